#include "frame/FailureCodes.h"
#include "frame/LogLevels.h"
#include "tav/CurlWrapper.h"
#include "tav/FMXException.h"

namespace TAV
{
namespace
{

constexpr const char* kUnknownSession = "cURL session id ";
constexpr const char* kUnknownToQuery = " not found to perform query.";
constexpr const char* kHeaderRefused = "cURL HTTP header creation failed";
constexpr const char* kSizeRefused = "cURL payload size setting failed";
constexpr const char* kPayloadRefused = "cURL payload setting failed";
constexpr const char* kResponseRefused = "cURL response string setting failed";
constexpr const char* kUnreadable = "Parsing of cURL response code failed.";
constexpr const char* kFailed = "Failed to connect to Lumo server: ";
constexpr const char* kLastCode = "Last HTTP response code received from Lumo server is: ";
constexpr const char* kLastText = "Last HTTP response message received from Lumo server is: ";

void require(CURLcode result, const char* refusal)
{
    if (result != CURLE_OK)
        throw FMXException(kGeneralFailure, refusal);
}

/// The list of header lines, which the caller frees. When a line cannot be added, the lines before it are deliberately
/// left in memory.
curl_slist* makeHeaderList(ICurlAPIUtility& api, const TAVHTTPHeader& header)
{
    const std::string lines[] = {
        header.firstHeader,
        header.key1 + header.value1,
        header.key2 + header.value3, // the second and third values are deliberately crossed
        header.key4 + header.value4,
        header.key3 + header.value2,
    };
    curl_slist* list = nullptr;
    for (const std::string& line : lines)
        list = api.curlSlistAppend(list, line.c_str());
    return list;
}

/// A time of the last transfer in milliseconds; what exceeds 16 bits deliberately wraps around.
std::uint16_t milliseconds(ICurlAPIUtility& api, void* handle, CURLINFO info)
{
    double seconds = 0.0;
    require(api.curlGetInfo(handle, info, seconds), kUnreadable);
    return static_cast<std::uint16_t>(static_cast<int>(seconds * 1000.0));
}

} // namespace

bool CurlWrapper::sendNetworkRequest(
    TAVHTTPHeader& header, std::string payload, std::string& response, unsigned long sessionId, LumoStats& stats)
{
    const auto session = m_sessions.find(sessionId);
    if (session == m_sessions.end())
    {
        m_logger.log(kLogFailure, kUnknownSession + std::to_string(sessionId) + kUnknownToQuery);
        return false;
    }
    void* const handle = session->second.get();

    // A refusal up to the transfer deliberately leaves the list in memory.
    curl_slist* const headerList = makeHeaderList(*m_curlApi, header);
    require(m_curlApi->curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, headerList), kHeaderRefused);
    // The size comes first: libcurl then copies that many bytes, zero bytes included.
    const long size = static_cast<long>(payload.size());
    require(m_curlApi->curlSetLongOpt(handle, CURLOPT_POSTFIELDSIZE, size), kSizeRefused);
    require(m_curlApi->curlSetStringOpt(handle, CURLOPT_COPYPOSTFIELDS, std::move(payload)), kPayloadRefused);
    require(m_curlApi->curlSetResponseString(handle, CURLOPT_WRITEDATA, response), kResponseRefused);

    CURLcode transferred = m_curlApi->curlEasyPerform(handle);
    if (headerList != nullptr)
        m_curlApi->curlSlistFreeAll(headerList);

    // The status alone decides, whatever became of the transfer.
    long code = 0;
    require(m_curlApi->curlGetInfo(handle, CURLINFO_RESPONSE_CODE, code), kUnreadable);
    if (code == m_successCode)
    {
        stats.tlsConnectTimeMs = milliseconds(*m_curlApi, handle, CURLINFO_APPCONNECT_TIME);
        stats.totalTimeMs = milliseconds(*m_curlApi, handle, CURLINFO_TOTAL_TIME);
        return true;
    }

    // Sessions send side by side: looking a status up must not insert it.
    const auto text = m_httpStatusText.find(code);
    m_logger.log(kLogDetail, m_className, kFailed + getCURLErrMsg(transferred));
    m_logger.log(kLogDetail, m_className, kLastCode + std::to_string(code));
    m_logger.log(kLogDetail, m_className, kLastText + (text == m_httpStatusText.end() ? std::string() : text->second));
    return false;
}

std::string CurlWrapper::getCURLErrMsg(CURLcode& code)
{
    const char* text = m_curlApi->curlEasyStrerror(code);
    return text == nullptr ? std::string() : std::string(text);
}

} // namespace TAV
