#pragma once

#include <cstdint>
#include <string>

#include "tav/Export.h"

namespace TAV
{

/// How the queries of a client are made.
struct TAVQueryConfig
{
    std::string requestType; ///< HTTP method; an empty one gives a request line without a method
    /// File of CA certificates (PEM); an empty path makes every verification fail. They are trusted beside those in the
    /// directory that libcurl was built with, so any CA of the machine will do, too. A call layer whose `curlEasyInit`
    /// sets CURLOPT_CAPATH to null makes the file the only one that counts.
    std::string caCertPath;
    long sslVerifyHost = 2;     ///< 2: the certificate must name the host; 0: any name (CURLOPT_SSL_VERIFYHOST(3))
    long sslVerifyPeer = 1;     ///< 1: a CA of the file or of the machine must have signed it; 0: anything goes
    long sslSessionIdCache = 1; ///< 1: a later connection of a session resumes its TLS session; 0: never
    long timeout = 0;           ///< seconds for a whole transfer; 0: no limit
    std::string serverHost; ///< HOST or HOST:PORT; the URL is https://HOST:PORT/1. Not checked: never leave it empty.
    std::int32_t auxValue = 0; ///< the caller's; not read
    /// HOST:PORT or URL of a proxy (CURLOPT_PROXY(3)). Empty: none, whatever the environment says. One that is given is
    /// left out for the hosts in `no_proxy` of the environment.
    std::string proxyAddress;
    /// USER:PASSWORD for the proxy (CURLOPT_PROXYUSERPWD(3)). libcurl decodes it like a URL: write "%25" for each "%".
    /// A name and password in `proxyAddress` win over these.
    std::string proxyCredentials;
    long proxyTunnel = 0; ///< 1: tunnel through the proxy; an https URL is tunnelled anyway
};

/// The header lines of one request, as keys and values that are sent back to back: a key brings its own separator, such
/// as "X-Query: ". An empty line is not sent.
///
/// The lines go out in this order, crossed on purpose: `firstHeader`; `key1` and `value1`; `key2` and `value3`; `key4`
/// and `value4`; `key3` and `value2`.
struct TAVHTTPHeader
{
    std::string firstHeader; ///< a complete line, the first
    std::string key1;        ///< begins the second line
    std::string key2;        ///< begins the third line
    std::string key3;        ///< begins the fifth line
    std::string key4;        ///< begins the fourth line
    std::string value1;      ///< ends the second line
    std::string value2;      ///< ends the fifth line
    std::string value3;      ///< ends the third line
    std::string value4;      ///< ends the fourth line
};

/// Figures of one query. A query writes the last two, and those only if its status is 200.
struct LumoStats
{
    std::uint16_t attempts = 0;         ///< the caller's: how often the query was sent
    std::uint16_t queueTimeMs = 0;      ///< the caller's: milliseconds that the query waited before it was sent
    std::uint16_t totalTimeMs = 0;      ///< milliseconds of the whole transfer, rounded down, modulo 65536
    std::uint16_t tlsConnectTimeMs = 0; ///< milliseconds until TLS was set up, alike; 0 on a kept connection
};

/// HTTPS queries to a reputation service, over sessions that keep their connection.
///
/// A session is an easy handle of libcurl under a number of the caller's choice. It keeps its connection and TLS
/// session from one query to the next: open one per thread, and use it for all queries of that thread.
///
/// **Threads.** Different sessions of one client may send at the same time. Sessions are opened, closed and
/// reconfigured while no other thread uses the client, and one session is used by one thread at a time.
///
/// **Process.** libcurl ignores SIGPIPE while it works, and sessions that work side by side undo that for each other:
/// ignore the signal in the daemon.
///
/// The order of the operations is part of the binary interface.
class TAV_EXPORT ICurlWrapper
{
public:
    virtual ~ICurlWrapper() = default;

    /// Opens a session with all options of the stored configuration. Nothing is sent yet.
    ///
    /// An id that is open already keeps its session: the new one is set up all the same, then closed, and the call ends
    /// without an error.
    ///
    /// @param sessionId  any number
    /// @throws FMXException  code 1; no session is opened then:
    ///         "cURL configuration not set to perform init." before the first `configureOptions`;
    ///         "Failed to initialize curl handle";
    ///         "Failed to set callback function with error: " and libcurl's text;
    ///         "cURL configuration failed while setting common config.", or "SSL config.", or "proxy config.", after a
    ///         log line (level 2) that names the option which libcurl refused
    virtual void initSession(unsigned long sessionId) = 0;

    /// Closes a session and its connection.
    /// @param sessionId  its id
    /// @return false if it is not open, which is logged (level 2, without component)
    virtual bool deInitSession(unsigned long sessionId) = 0;

    /// Stores the configuration from which sessions are opened.
    ///
    /// The first call only stores: its id is not looked at. Each later call also sets the proxy options, and only
    /// those, of one open session anew; all other options of open sessions stay as they were.
    ///
    /// @param config     copied, and stored even when the call then throws
    /// @param sessionId  from the second call on, an open session
    /// @throws FMXException  code 1: "cURL session id ID not found for curl configuration update.", or "cURL
    ///         configuration failed while setting proxy config.", after a log line (level 2) that names the option
    virtual void configureOptions(const TAVQueryConfig& config, unsigned long sessionId) = 0;

    /// Sends one query and waits for its answer. Blocks until the transfer has ended, at most the configured time.
    ///
    /// **Only the HTTP status decides.** An answer that breaks off behind a status of 200 counts as success: compare
    /// its length with what you expect. Any other status is a failure, 204 and redirects too, and so is a transfer that
    /// ended without one (status 0). A proxy that refuses the tunnel shows as status 0. A failure is logged in three
    /// lines (level 6): libcurl's text, the status, and its reason.
    ///
    /// @param header     the header lines; not changed
    /// @param payload    the request's body, zero bytes included
    /// @param response   receives the answer's body behind what it holds; of a failed query too. Its size has no limit.
    /// @param sessionId  an open session
    /// @param stats      receives the two timings on success; untouched otherwise, but an exception from reading the
    ///                   total leaves the TLS time written
    /// @return whether the status was 200; false also if the session is not open, which is logged (level 2, without
    ///         component)
    /// @throws FMXException  code 1, the session stays open:
    ///         "Failed to append data to curl slist", "cURL HTTP header creation failed", "cURL payload size setting
    ///         failed", "cURL payload setting failed" or "cURL response string setting failed" before anything is sent
    ///         (the header lines then stay in memory for good); "Parsing of cURL response code failed." after the
    ///         transfer
    /// @throws std::exception  of the call layer's write callback: std::bad_alloc, std::length_error or
    ///         boost::lock_error. It crosses libcurl and spoils the session, which from then on reports the old status
    ///         without sending: close it (its sockets and the header lines stay for good), and open it anew.
    virtual bool sendNetworkRequest(TAVHTTPHeader& header,
                                    std::string payload,
                                    std::string& response,
                                    unsigned long sessionId,
                                    LumoStats& stats) = 0;
};

} // namespace TAV
