#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "tav/QelSSLUtils.h"

namespace TAV
{
namespace
{

struct ChainRelease
{
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using BioChain = std::unique_ptr<BIO, ChainRelease>;

/// How many '=' stand at the end of a text; at most 2 count.
std::size_t paddingOf(const std::string& text)
{
    if (text.back() != '=')
        return 0;
    return text[text.size() - 2] == '=' ? 2 : 1;
}

/// From this input on it pays to make room for the text beforehand: the block is copied each time it grows.
constexpr int kLargeInput = 64 * 1024;

std::size_t encodedSize(int length)
{
    return static_cast<std::size_t>(std::ceil(length / 3.0) * 4);
}

/// Does nothing if that much cannot be had: then writing grows the block, or fails.
void makeRoom(BIO* memory, std::size_t size)
{
    BUF_MEM* block = nullptr;
    BIO_get_mem_ptr(memory, &block);
    if (block == nullptr)
        return;
    BUF_MEM_grow(block, size);
    block->length = 0; // still empty
}

} // namespace

bool QelSSLUtils::encodeBase64(std::string input, std::string& out)
{
    using Encoder =
        boost::archive::iterators::base64_from_binary<boost::archive::iterators::transform_width<const char*, 6, 8>>;

    const std::size_t length = input.size();
    std::string text((length + 2) / 3 * 4, '='); // what the encoder leaves over is the padding
    std::copy(Encoder(input.data()), Encoder(input.data() + length), text.begin());
    out = std::move(text);
    return !out.empty();
}

bool QelSSLUtils::base64EncodeInputBuffer(std::string& out, const unsigned char* buffer, int length)
{
    BIO* filter = BIO_new(BIO_f_base64());
    if (filter == nullptr)
        return false;
    BIO* memory = BIO_new(BIO_s_mem());
    if (memory == nullptr)
        return false; // deliberately without releasing the filter
    const BioChain chain(BIO_push(filter, memory));
    BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);

    if (length >= kLargeInput)
        makeRoom(memory, encodedSize(length));
    // libcrypto answers 0 to a write of no bytes, which here is no failure.
    if (length != 0 && BIO_write(chain.get(), buffer, length) != length)
        return false;
    if (BIO_flush(chain.get()) <= 0)
        return false;

    BUF_MEM* encoded = nullptr;
    BIO_get_mem_ptr(chain.get(), &encoded);
    // Deliberate: the block outlives the chain and is never released, one per call.
    if (BIO_set_close(chain.get(), BIO_NOCLOSE) == 0)
        return false;
    if (encoded == nullptr)
        return false;
    out = std::string(encoded->data, encodedSize(length));
    return true;
}

bool QelSSLUtils::decodeBase64(std::string input, std::string& out)
{
    out.clear();
    if (input.size() <= 3)
        return false;
    const std::size_t expected = input.size() * 3 / 4 - paddingOf(input);

    BIO* memory = BIO_new_mem_buf(input.c_str(), -1);
    BIO* filter = BIO_new(BIO_f_base64());
    if (filter == nullptr)
        return false; // deliberately without releasing the memory BIO
    const BioChain chain(BIO_push(filter, memory));
    BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
    out.resize(expected + 1); // the decoder may yield one byte too many
    const int size = BIO_read(chain.get(), out.data(), static_cast<int>(input.size()));
    const bool complete = size >= 0 && static_cast<std::size_t>(size) == expected;
    out.resize(complete ? expected : 0);
    return complete;
}

} // namespace TAV
