#pragma once

#include <string>
#include <vector>

#include "tav/Export.h"

namespace TAV
{

/// What is known of a proxy that asks for Kerberos. The library reads the last two fields; the others are the caller's.
struct TAVProxyConfig
{
    bool proxyFlag1 = false;            ///< the caller's
    bool proxyFlag2 = false;            ///< the caller's
    std::string proxyText1;             ///< the caller's
    std::string proxyText2;             ///< the caller's
    std::vector<std::string> proxyList; ///< the caller's
    bool proxyFlag3 = false;            ///< the caller's
    std::string userPrincipal;          ///< the account, as user\@REALM
    std::string password;               ///< its password, 8192 bytes at most; a longer one aborts the process
};

/// Kerberos for authenticating to a proxy: from an account's name and password it writes a client keytab and checks
/// with the KDC that it works. The GSSAPI library then finds keytab and cache through the environment when libcurl
/// answers the proxy's Negotiate challenge (RFC 4559), and obtains its tickets by itself.
///
/// The key is RC4-HMAC (RFC 4757) and no other: the account needs such a key, and the KDC and libkrb5 must allow it.
///
/// Each failure is one log line (level 6) and a false result. Want of memory is a false result without a line, or
/// std::bad_alloc; nothing else is thrown.
///
/// **Threads.** One thread at a time. While a renewal runs, a transfer of another thread may find no keytab.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT IkrbHandler
{
public:
    virtual ~IkrbHandler() = default;

    /// Stores the account and runs `renewTicket`, the one of a derived class if there is one.
    /// @param config  copied, password included, and kept until the next call; not changed
    /// @return what `renewTicket` returns
    virtual bool configKrbSession(TAVProxyConfig& config) = 0;

    /// Makes the keytab anew, whether the old one has expired or not: deletes the two files, derives the key, writes
    /// the keytab, and asks the KDC for initial credentials with it. When to call it is the caller's decision.
    ///
    /// Blocks while the KDC is asked, for about half a minute if it is silent. The credentials cache is not written;
    /// the GSSAPI library writes it later. Each renewal keeps the keytab entry, the key and the credentials in memory
    /// for good: 13 blocks, about 1 kB.
    ///
    /// A failure before the keytab is written leaves none, and the proxy refuses until a renewal succeeds. One at the
    /// KDC leaves the new keytab, whose key the GSSAPI library shows to the KDC at each negotiation: delete it after a
    /// wrong password, which may lock the account otherwise.
    ///
    /// A file that is not there or cannot be deleted is logged (level 6) and is no failure; that is so for the cache on
    /// each renewal that follows another one without a negotiation between them. Success is logged at level 5.
    /// @return whether the KDC answered with credentials
    virtual bool renewTicket() = 0;
};

} // namespace TAV
