#pragma once

#include <string>

#include "tav/ICurlWrapper.h"

namespace TAV::bench
{

/// A session as a program would write it straight upon libcurl: the same options, the same steps of a query, and
/// nothing between.
class BareCurl
{
public:
    /// A handle with the options of a session; the caller's to clean up.
    static void* open(const TAVQueryConfig& config);

    explicit BareCurl(const TAVQueryConfig& config) : m_handle(open(config)) {}
    BareCurl(const BareCurl&) = delete;
    BareCurl& operator=(const BareCurl&) = delete;
    ~BareCurl();

    /// @return whether the status was 200
    bool send(const TAVHTTPHeader& header, const std::string& payload, std::string& response);

private:
    void* m_handle;
};

} // namespace TAV::bench
