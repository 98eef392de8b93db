#include "CryptoFaults.h"

#include <dlfcn.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/md5.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace TAV::test
{
namespace
{

CryptoFaults* armed = nullptr;
/// Above 0 while a forwarded call runs.
thread_local int depth = 0;

bool beginsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

} // namespace

CryptoFaults::CryptoFaults()
{
    armed = this;
}

CryptoFaults::~CryptoFaults()
{
    armed = nullptr;
}

CryptoFaults* CryptoFaults::current()
{
    return depth == 0 ? armed : nullptr;
}

CryptoFaults::Outcome CryptoFaults::enter(const std::string& function, const std::string& arguments, bool canFail)
{
    // What is noted here allocates and may open streams of its own.
    ++depth;
    m_calls.push_back(function + arguments);
    const auto plan = m_plans.find(function);
    const bool planned = plan != m_plans.end() && plan->second.nth == ++m_counts[function];
    const bool swept = canFail && ++m_callsThatCanFail == m_sweep;
    --depth;
    if (!planned && !swept)
        return {};
    m_hasFailed = true;
    return {true, planned ? plan->second.result : 0};
}

std::size_t CryptoFaults::countOf(const std::string& beginning) const
{
    return static_cast<std::size_t>(
        std::count_if(m_calls.begin(), m_calls.end(), [&](const auto& call) { return beginsWith(call, beginning); }));
}

std::size_t CryptoFaults::positionOf(const std::string& beginning) const
{
    const auto found =
        std::find_if(m_calls.begin(), m_calls.end(), [&](const auto& call) { return beginsWith(call, beginning); });
    return static_cast<std::size_t>(found - m_calls.begin());
}

void CryptoFaults::freed(BIO* chain)
{
    ++depth;
    for (BIO* bio = chain; bio != nullptr; bio = BIO_next(bio))
        m_aliveBios.erase(bio);
    --depth;
}

} // namespace TAV::test

using TAV::test::CryptoFaults;
using TAV::test::depth;

namespace
{

/// Calls the function that this program's own definition hides.
template <typename Function, typename... Arguments>
auto forward(Function*, const char* name, Arguments... arguments)
{
    struct Inside
    {
        Inside() { ++depth; }
        ~Inside() { --depth; }
    } inside;
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr)
        std::abort();
    return reinterpret_cast<Function*>(found)(arguments...);
}

std::string inParentheses(long long value)
{
    return "(" + std::to_string(value) + ")";
}

/// The three digests' calls: 1 for success, 0 for failure.
template <typename Function, typename... Arguments>
int digestCall(Function* self, const char* name, const std::string& shown, Arguments... arguments)
{
    auto* faults = CryptoFaults::current();
    if (faults != nullptr && faults->enter(name, shown).failed)
        return 0;
    return forward(self, name, arguments...);
}

const char* kindOf(const BIO_METHOD* method)
{
    return method == BIO_f_base64() ? "BIO_new(base64)" : "BIO_new(memory)";
}

const char* nameOfControl(int command)
{
    switch (command)
    {
    case BIO_CTRL_FLUSH:
        return "BIO_flush";
    case BIO_C_GET_BUF_MEM_PTR:
        return "BIO_get_mem_ptr";
    case BIO_CTRL_SET_CLOSE:
        return "BIO_set_close";
    default:
        return "BIO_ctrl";
    }
}

} // namespace

extern "C"
{

    BIO* BIO_new(const BIO_METHOD* method)
    {
        auto* faults = CryptoFaults::current();
        if (faults != nullptr && faults->enter(kindOf(method)).failed)
            return nullptr;
        BIO* bio = forward(&BIO_new, "BIO_new", method);
        if (faults != nullptr)
            faults->made(bio);
        return bio;
    }

    BIO* BIO_new_mem_buf(const void* buffer, int length)
    {
        auto* faults = CryptoFaults::current();
        if (faults != nullptr && faults->enter("BIO_new_mem_buf", inParentheses(length)).failed)
            return nullptr;
        BIO* bio = forward(&BIO_new_mem_buf, "BIO_new_mem_buf", buffer, length);
        if (faults != nullptr)
            faults->made(bio);
        return bio;
    }

    BIO* BIO_push(BIO* bio, BIO* append)
    {
        if (auto* faults = CryptoFaults::current())
            faults->enter("BIO_push", "", false);
        return forward(&BIO_push, "BIO_push", bio, append);
    }

    void BIO_set_flags(BIO* bio, int flags)
    {
        if (auto* faults = CryptoFaults::current())
            faults->enter("BIO_set_flags", inParentheses(flags), false);
        forward(&BIO_set_flags, "BIO_set_flags", bio, flags);
    }

    int BIO_write(BIO* bio, const void* data, int length)
    {
        if (auto* faults = CryptoFaults::current())
        {
            const auto outcome = faults->enter("BIO_write", inParentheses(length));
            if (outcome.failed)
                return outcome.result;
        }
        return forward(&BIO_write, "BIO_write", bio, data, length);
    }

    int BIO_read(BIO* bio, void* data, int length)
    {
        if (auto* faults = CryptoFaults::current())
        {
            const auto outcome = faults->enter("BIO_read", inParentheses(length));
            if (outcome.failed)
                return outcome.result;
        }
        return forward(&BIO_read, "BIO_read", bio, data, length);
    }

    long BIO_ctrl(BIO* bio, int command, long number, void* pointer)
    {
        auto* faults = CryptoFaults::current();
        const bool setsClose = command == BIO_CTRL_SET_CLOSE;
        if (faults != nullptr)
        {
            const auto outcome = faults->enter(nameOfControl(command), setsClose ? inParentheses(number) : "");
            if (outcome.failed)
                return outcome.result;
        }
        const long result = forward(&BIO_ctrl, "BIO_ctrl", bio, command, number, pointer);
        if (faults != nullptr && command == BIO_C_GET_BUF_MEM_PTR)
            faults->encodedInto(*static_cast<BUF_MEM**>(pointer));
        return result;
    }

    void BIO_free_all(BIO* chain)
    {
        if (auto* faults = CryptoFaults::current())
        {
            faults->enter("BIO_free_all", "", false);
            faults->freed(chain);
        }
        forward(&BIO_free_all, "BIO_free_all", chain);
    }

    unsigned char* HMAC(const EVP_MD* method,
                        const void* key,
                        int keyLength,
                        const unsigned char* data,
                        size_t length,
                        unsigned char* digest,
                        unsigned int* digestLength)
    {
        if (auto* faults = CryptoFaults::current())
        {
            const std::string sizes = "(key " + std::to_string(keyLength) + ", data " + std::to_string(length) +
                                      ", length before " + std::to_string(*digestLength) + ")";
            const auto outcome = faults->enter("HMAC", sizes);
            if (outcome.failed)
            {
                *digestLength = static_cast<unsigned int>(outcome.result);
                return nullptr;
            }
        }
        return forward(&HMAC, "HMAC", method, key, keyLength, data, length, digest, digestLength);
    }

    int MD5_Init(MD5_CTX* context)
    {
        return digestCall(&MD5_Init, "MD5_Init", "", context);
    }

    int MD5_Update(MD5_CTX* context, const void* data, size_t size)
    {
        if (auto* faults = CryptoFaults::current())
            faults->fedToMd5(data, size);
        return digestCall(&MD5_Update, "MD5_Update", inParentheses(static_cast<long long>(size)), context, data, size);
    }

    int MD5_Final(unsigned char* digest, MD5_CTX* context)
    {
        return digestCall(&MD5_Final, "MD5_Final", "", digest, context);
    }

    int SHA1_Init(SHA_CTX* context)
    {
        return digestCall(&SHA1_Init, "SHA1_Init", "", context);
    }

    int SHA1_Update(SHA_CTX* context, const void* data, size_t size)
    {
        return digestCall(
            &SHA1_Update, "SHA1_Update", inParentheses(static_cast<long long>(size)), context, data, size);
    }

    int SHA1_Final(unsigned char* digest, SHA_CTX* context)
    {
        return digestCall(&SHA1_Final, "SHA1_Final", "", digest, context);
    }

    int SHA256_Init(SHA256_CTX* context)
    {
        return digestCall(&SHA256_Init, "SHA256_Init", "", context);
    }

    int SHA256_Update(SHA256_CTX* context, const void* data, size_t size)
    {
        return digestCall(
            &SHA256_Update, "SHA256_Update", inParentheses(static_cast<long long>(size)), context, data, size);
    }

    int SHA256_Final(unsigned char* digest, SHA256_CTX* context)
    {
        return digestCall(&SHA256_Final, "SHA256_Final", "", digest, context);
    }

    FILE* fopen(const char* path, const char* mode)
    {
        auto* faults = CryptoFaults::current();
        if (faults != nullptr && faults->enter("fopen", std::string("(") + path + ", " + mode + ")").failed)
            return nullptr;
        return forward(&fopen, "fopen", path, mode);
    }

    int setvbuf(FILE* file, char* buffer, int mode, size_t size)
    {
        if (auto* faults = CryptoFaults::current())
            faults->enter("setvbuf", "", false);
        return forward(&setvbuf, "setvbuf", file, buffer, mode, size);
    }

    size_t fread(void* buffer, size_t size, size_t count, FILE* file)
    {
        auto* faults = CryptoFaults::current();
        if (faults == nullptr)
            return forward(&fread, "fread", buffer, size, count, file);
        const std::string shown = "(" + std::to_string(size) + " x " + std::to_string(count) + ")";
        const auto outcome = faults->enter("fread", shown, false);
        // A failure here is a read that brings fewer bytes; none for an error.
        return forward(
            &fread, "fread", buffer, size, outcome.failed ? static_cast<size_t>(outcome.result) : count, file);
    }

    int fclose(FILE* file)
    {
        if (auto* faults = CryptoFaults::current())
            faults->enter("fclose", "", false);
        return forward(&fclose, "fclose", file);
    }

} // extern "C"
