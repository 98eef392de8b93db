#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>

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

} // namespace

bool QelSSLUtils::encodeBase64(std::string input, std::string& out)
{
    using Encoder =
        boost::archive::iterators::base64_from_binary<boost::archive::iterators::transform_width<const char*, 6, 8>>;

    const std::size_t length = input.size();
    std::string text;
    text.reserve((length + 2) / 3 * 4);
    text.assign(Encoder(input.data()), Encoder(input.data() + length));
    text.append((3 - length % 3) % 3, '=');
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
    const auto size = static_cast<std::size_t>(std::ceil(length / 3.0) * 4);
    out = std::string(encoded->data, size);
    return true;
}

bool QelSSLUtils::decodeBase64(std::string input, std::string& out)
{
    out.clear();
    if (input.size() <= 3)
        return false;
    const std::size_t expected = input.size() * 3 / 4 - paddingOf(input);
    const std::unique_ptr<char[]> decoded(new char[expected + 1]);

    BIO* memory = BIO_new_mem_buf(input.c_str(), -1);
    BIO* filter = BIO_new(BIO_f_base64());
    if (filter == nullptr)
        return false; // deliberately without releasing the memory BIO
    const BioChain chain(BIO_push(filter, memory));
    BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
    const int size = BIO_read(chain.get(), decoded.get(), static_cast<int>(input.size()));
    if (size < 0 || static_cast<std::size_t>(size) != expected)
        return false;
    out.assign(decoded.get(), expected);
    return true;
}

} // namespace TAV
