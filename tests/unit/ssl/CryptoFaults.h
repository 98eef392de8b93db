#pragma once

#include <openssl/bio.h>
#include <openssl/buffer.h>

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace TAV::test
{

/// While it lives, every libcrypto and stream call that the hashing code makes passes through it: the call is noted,
/// and fails if the test planned so. Otherwise it is forwarded. What libcrypto calls inside itself is not looked at.
///
/// One at a time, in one thread. The names in plans are those of the functions; BIO_ctrl goes by what it asks for:
/// BIO_new(base64), BIO_new(memory), BIO_new_mem_buf, BIO_push, BIO_set_flags, BIO_write, BIO_flush, BIO_get_mem_ptr,
/// BIO_set_close, BIO_read, BIO_free_all, HMAC, MD5_Init ... SHA256_Final, fopen, setvbuf, fread, fclose.
class CryptoFaults
{
public:
    CryptoFaults();
    CryptoFaults(const CryptoFaults&) = delete;
    CryptoFaults& operator=(const CryptoFaults&) = delete;
    ~CryptoFaults();

    /// Makes the nth call (from 1) of this function fail as the function itself reports failure.
    void fail(const std::string& function, unsigned int nth = 1) { m_plans[function] = {nth, 0}; }
    /// The same with the result, or the length, that it reports instead.
    void fail(const std::string& function, unsigned int nth, int result) { m_plans[function] = {nth, result}; }
    /// Makes call number `nth` of all fail that can fail; for sweeps.
    void failCallNumber(unsigned int nth) { m_sweep = nth; }
    /// Whether a planned failure took place.
    bool hasFailed() const { return m_hasFailed; }

    /// The calls in order, with the arguments that matter.
    std::vector<std::string> calls() const { return m_calls; }
    std::size_t countOf(const std::string& beginning) const;
    /// Where the first call that begins so stands; the number of calls if there is none.
    std::size_t positionOf(const std::string& beginning) const;

    /// The BIOs that were made and never freed.
    const std::set<BIO*>& aliveBios() const { return m_aliveBios; }
    /// The memory block that the last encoding took its text from.
    BUF_MEM* encodedBlock() const { return m_encodedBlock; }
    /// All bytes that MD5 was fed with.
    const std::string& md5Input() const { return m_md5Input; }

    // For the functions that stand in.
    struct Outcome
    {
        bool failed = false;
        int result = 0;
    };
    static CryptoFaults* current();
    Outcome enter(const std::string& function, const std::string& arguments = "", bool canFail = true);
    void made(BIO* bio) { m_aliveBios.insert(bio); }
    void freed(BIO* chain);
    void encodedInto(BUF_MEM* block) { m_encodedBlock = block; }
    void fedToMd5(const void* data, std::size_t size) { m_md5Input.append(static_cast<const char*>(data), size); }

private:
    struct Plan
    {
        unsigned int nth = 0;
        int result = 0;
    };

    std::map<std::string, Plan> m_plans;
    std::map<std::string, unsigned int> m_counts;
    std::vector<std::string> m_calls;
    std::set<BIO*> m_aliveBios;
    BUF_MEM* m_encodedBlock = nullptr;
    std::string m_md5Input;
    unsigned int m_sweep = 0;
    unsigned int m_callsThatCanFail = 0;
    bool m_hasFailed = false;
};

} // namespace TAV::test
