#include "RawServerBehaviours.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <utility>

namespace TAV::test
{
namespace
{

/// What the server does when it has sent its bytes.
enum class End
{
    Kept,   ///< waits for the next query
    Closed, ///< closes with close_notify
    Cut,    ///< closes without it
    Reset,
    Silent, ///< waits until the time limit of the query is over
};

/// A server that reads the request and answers with these bytes.
struct Answer
{
    std::string name;
    std::string what;
    std::string bytes;
    End end;
    CURLcode transfer;
    long status;
    std::string body;
};

const std::string kNoAnswer;
const std::string kOk = "HTTP/1.1 200 OK\r\n";
const std::string kLength3 = "Content-Length: 3\r\n\r\n";
const std::string kLength10 = "Content-Length: 10\r\n\r\n";
const std::string kChunked = "Transfer-Encoding: chunked\r\n\r\n";

Script scriptOf(const Answer& row)
{
    Script script = afterRequest({send(row.bytes)});
    if (row.end == End::Closed)
        script.push_back(closeCleanly());
    else if (row.end == End::Cut)
        script.push_back(cut());
    else if (row.end == End::Reset)
        script.push_back(reset());
    else if (row.end == End::Silent)
        script.push_back(stayStill());
    return script;
}

/// The texts of the statuses that occur here.
std::string textOf(long status)
{
    if (status == 0)
        return "Connection Could Not Be Established";
    return status == 500 ? "Internal Server Error" : "";
}

Behaviour behaviourOf(const Answer& row)
{
    Behaviour behaviour{row.name, row.what, scriptOf(row), row.transfer, row.status, textOf(row.status), row.body};
    behaviour.afterwards = row.end == End::Kept ? Afterwards::Kept : Afterwards::Closed;
    behaviour.timeout = row.end == End::Silent ? 1 : behaviour.timeout;
    return behaviour;
}

/// A server that never comes to an answer.
Behaviour noHandshake(const char* name, const char* what, Script script, CURLcode transfer = CURLE_SSL_CONNECT_ERROR)
{
    Behaviour behaviour{name, what, std::move(script), transfer, 0, textOf(0), ""};
    // In TLS 1.3 the client may be through with its handshake before it sees that the server is not.
    behaviour.tls.maxVersion = TLS1_2_VERSION;
    return behaviour;
}

std::vector<Behaviour> handshakes()
{
    const std::string alert("\x15\x03\x03\x00\x02\x02\x28", 7);
    std::vector<Behaviour> rows = {
        noHandshake("ClosedAtOnce", "closes as soon as it is connected", {cut()}),
        noHandshake("ClosedAfterHello", "closes when the client has said hello", {waitForBytes(), cut()}),
        noHandshake("ResetAfterHello", "resets when the client has said hello", {waitForBytes(), reset()}),
        noHandshake("ResetInHandshake", "resets in the middle of the handshake", {beginHandshake(), reset()}),
        noHandshake("AlertInHandshake", "refuses the handshake", {waitForBytes(), send(alert), cut()}),
        noHandshake("PlainHttp", "answers in plain HTTP", {waitForBytes(), send(answer("text")), cut()}),
        noHandshake("SilentInHandshake", "accepts, then silence", {stayStill()}, CURLE_OPERATION_TIMEDOUT),
    };
    rows.back().timeout = 1;
    return rows;
}

// A behaviour is a line or two.
// clang-format off

const std::vector<Answer>& brokenAnswers()
{
    static const std::vector<Answer> rows = {
        {"SilentAfterRequest", "takes the request, then silence",
         kNoAnswer, End::Silent, CURLE_OPERATION_TIMEDOUT, 0, ""},
        {"ClosedAfterRequest", "takes the request, then closes", kNoAnswer, End::Closed, CURLE_GOT_NOTHING, 0, ""},
        {"CutAfterRequest", "takes the request, then closes without close_notify",
         kNoAnswer, End::Cut, CURLE_GOT_NOTHING, 0, ""},
        {"ResetAfterRequest", "takes the request, then resets", kNoAnswer, End::Reset, CURLE_RECV_ERROR, 0, ""},
        {"NotHttp", "answers something that is not HTTP",
         "hello, this is not HTTP\r\n", End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"ClosedInStatusLine", "closes in the status line", "HTTP/1.1 20", End::Closed, CURLE_GOT_NOTHING, 0, ""},
        {"ResetInStatusLine", "resets in the status line", "HTTP/1.1 20", End::Reset, CURLE_RECV_ERROR, 0, ""},
        {"SilentInStatusLine", "silence in the status line",
         "HTTP/1.1 20", End::Silent, CURLE_OPERATION_TIMEDOUT, 0, ""},
        {"ClosedInHeader", "closes in a header line", kOk + "Content-Le", End::Closed, CURLE_OK, 200, ""},
        {"ResetInHeader", "resets in a header line", kOk + "Content-Le", End::Reset, CURLE_RECV_ERROR, 200, ""},
        {"SilentInHeader", "silence in a header line",
         kOk + "Content-Le", End::Silent, CURLE_OPERATION_TIMEDOUT, 200, ""},
        {"ClosedBeforeBody", "closes between headers and body",
         kOk + kLength10, End::Closed, CURLE_PARTIAL_FILE, 200, ""},
        {"ClosedInBody", "closes in the body", kOk + kLength10 + "abc", End::Closed, CURLE_PARTIAL_FILE, 200, "abc"},
        {"CutInBody", "closes in the body without close_notify",
         kOk + kLength10 + "abc", End::Cut, CURLE_PARTIAL_FILE, 200, "abc"},
        {"ResetInBody", "resets in the body", kOk + kLength10 + "abc", End::Reset, CURLE_RECV_ERROR, 200, "abc"},
        {"SilentInBody", "silence in the body",
         kOk + kLength10 + "abc", End::Silent, CURLE_OPERATION_TIMEDOUT, 200, "abc"},
    };
    return rows;
}

const std::vector<Answer>& lengths()
{
    static const std::vector<Answer> rows = {
        {"NoLengthClosed", "no length: the body ends with the connection",
         kOk + "\r\nabc", End::Closed, CURLE_OK, 200, "abc"},
        {"NoLengthCut", "no length, and closes without close_notify", kOk + "\r\nabc", End::Cut, CURLE_OK, 200, "abc"},
        {"NoLengthReset", "no length, then a reset", kOk + "\r\nabc", End::Reset, CURLE_RECV_ERROR, 200, "abc"},
        {"LengthTooSmall", "length 2, and 3 bytes",
         kOk + "Content-Length: 2\r\n\r\nabc", End::Closed, CURLE_OK, 200, "ab"},
        {"LengthNegative", "length -1",
         kOk + "Content-Length: -1\r\n\r\nabc", End::Closed, CURLE_WEIRD_SERVER_REPLY, 200, ""},
        {"LengthNotANumber", "a length that is not a number",
         kOk + "Content-Length: many\r\n\r\nabc", End::Closed, CURLE_WEIRD_SERVER_REPLY, 200, ""},
        {"LengthEmpty", "an empty length",
         kOk + "Content-Length: \r\n\r\nabc", End::Closed, CURLE_WEIRD_SERVER_REPLY, 200, ""},
        {"LengthOf23Digits", "a length of 23 digits",
         kOk + "Content-Length: 99999999999999999999999\r\n\r\nabc", End::Closed, CURLE_OK, 200, "abc"},
        {"LengthThreeThenFive", "lengths 3 and 5, and 5 bytes: the last counts",
         kOk + "Content-Length: 3\r\nContent-Length: 5\r\n\r\nabcde", End::Closed, CURLE_OK, 200, "abcde"},
        {"LengthFiveThenThree", "lengths 5 and 3, and 5 bytes: the last counts",
         kOk + "Content-Length: 5\r\nContent-Length: 3\r\n\r\nabcde", End::Closed, CURLE_OK, 200, "abc"},
    };
    return rows;
}

const std::vector<Answer>& chunks()
{
    static const std::vector<Answer> rows = {
        {"Chunked", "chunks",
         kOk + kChunked + "3\r\nabc\r\n2;name=value\r\nde\r\n0\r\n\r\n", End::Kept, CURLE_OK, 200, "abcde"},
        {"ChunkedWithTrailer", "chunks and a trailer",
         kOk + kChunked + "3\r\nabc\r\n0\r\nX-Trailer: 1\r\n\r\n", End::Kept, CURLE_OK, 200, "abc"},
        {"ChunkedWithLength", "chunks, and a length that contradicts them",
         kOk + "Content-Length: 2\r\n" + kChunked + "3\r\nabc\r\n0\r\n\r\n", End::Kept, CURLE_OK, 200, "abc"},
        {"ClosedInChunk", "closes in a chunk",
         kOk + kChunked + "5\r\nabc", End::Closed, CURLE_PARTIAL_FILE, 200, "abc"},
        {"ClosedBetweenChunks", "closes between two chunks",
         kOk + kChunked + "3\r\nabc\r\n", End::Closed, CURLE_PARTIAL_FILE, 200, "abc"},
        {"ResetInChunk", "resets in a chunk", kOk + kChunked + "5\r\nabc", End::Reset, CURLE_RECV_ERROR, 200, "abc"},
        {"ChunkSizeNotANumber", "a chunk size that is not a number",
         kOk + kChunked + "3\r\nabc\r\nxyz\r\n", End::Closed, CURLE_RECV_ERROR, 200, "abc"},
        {"ChunkSizeOf21Digits", "a chunk size of 21 digits",
         kOk + kChunked + "fffffffffffffffffffff\r\nabc", End::Closed, CURLE_RECV_ERROR, 200, ""},
        {"ChunkLongerThanItsSize", "a chunk of size 2, and 3 bytes",
         kOk + kChunked + "2\r\nabc\r\n0\r\n\r\n", End::Closed, CURLE_RECV_ERROR, 200, "ab"},
        {"UnknownTransferCoding", "a transfer coding that nobody knows",
         kOk + "Transfer-Encoding: strange\r\n\r\nabc", End::Closed, CURLE_BAD_CONTENT_ENCODING, 200, ""},
    };
    return rows;
}

const std::vector<Answer>& statuses()
{
    const std::string interim100 = "HTTP/1.1 100 Continue\r\n\r\n";
    const std::string interim103 = "HTTP/1.1 103 Early Hints\r\nLink: </style.css>\r\n\r\n";
    const std::string rest = " Odd\r\n" + kLength3 + "abc";
    static const std::vector<Answer> rows = {
        {"Continue", "100, then 200", interim100 + answer("abc"), End::Kept, CURLE_OK, 200, "abc"},
        {"EarlyHints", "103, 102, then 200",
         interim103 + "HTTP/1.1 102 Processing\r\n\r\n" + answer("abc"), End::Kept, CURLE_OK, 200, "abc"},
        {"ContinueOnly", "100, then closes", interim100, End::Closed, CURLE_GOT_NOTHING, 100, ""},
        {"EarlyHintsOnly", "103, then resets", interim103, End::Reset, CURLE_RECV_ERROR, 103, ""},
        {"SwitchingProtocols", "101, and other bytes",
         "HTTP/1.1 101 Switching Protocols\r\n\r\nabc", End::Closed, CURLE_OK, 101, "abc"},
        {"NoContentWithBody", "204, and a body nevertheless",
         "HTTP/1.1 204 No Content\r\n" + kLength3 + "abc", End::Kept, CURLE_OK, 204, ""},
        {"Redirect", "302 to another path",
         "HTTP/1.1 302 Found\r\nLocation: /2\r\n" + kLength3 + "abc", End::Kept, CURLE_OK, 302, "abc"},
        {"TwoAnswers", "500, and a 200 right behind it",
         "HTTP/1.1 500 Bad\r\n" + kLength3 + "abc" + answer("x"), End::Closed, CURLE_OK, 500, "abc"},
        {"Status999", "status 999", "HTTP/1.1 999" + rest, End::Kept, CURLE_OK, 999, "abc"},
        {"Status000", "status 000", "HTTP/1.1 000" + rest, End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"Status20", "status 20", "HTTP/1.1 20" + rest, End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"Status99", "status 99", "HTTP/1.1 99" + rest, End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"Status1000", "status 1000", "HTTP/1.1 1000" + rest, End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"StatusNotANumber", "status abc", "HTTP/1.1 abc" + rest, End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
        {"NoReason", "a status line without a reason",
         "HTTP/1.1 200\r\n" + kLength3 + "abc", End::Kept, CURLE_OK, 200, "abc"},
        {"OldVersion", "HTTP/1.0, without a length", "HTTP/1.0 200 OK\r\n\r\nabc", End::Closed, CURLE_OK, 200, "abc"},
        {"NewVersion", "a status line of HTTP/2",
         "HTTP/2 200\r\n" + kLength3 + "abc", End::Closed, CURLE_OK, 200, "abc"},
        {"UnknownVersion", "a status line of HTTP/9.9",
         "HTTP/9.9 200 OK\r\n" + kLength3 + "abc", End::Closed, CURLE_UNSUPPORTED_PROTOCOL, 0, ""},
    };
    return rows;
}

const std::vector<Answer>& headersAndBodies()
{
    constexpr std::size_t kKibibyte = 1024;
    const auto withHeader = [](const std::string& line) { return kOk + line + "\r\n" + kLength3 + "abc"; };
    const std::string zeros("a\0b\0\0c", 6);
    static const std::vector<Answer> rows = {
        {"EmptyBody", "an empty body", answer(""), End::Kept, CURLE_OK, 200, ""},
        {"BodyWithZeroBytes", "a body with zero bytes", answer(zeros), End::Kept, CURLE_OK, 200, zeros},
        {"CompressedBody", "a compressed body, which stays as it is",
         withHeader("Content-Encoding: gzip"), End::Kept, CURLE_OK, 200, "abc"},
        {"BareLineFeeds", "lines that end in LF alone",
         "HTTP/1.1 200 OK\nContent-Length: 3\n\nabc", End::Kept, CURLE_OK, 200, "abc"},
        {"HeadersTwice", "header lines that come twice",
         withHeader("X-A: 1\r\nX-A: 2\r\nContent-Length: 3"), End::Kept, CURLE_OK, 200, "abc"},
        {"LongHeader", "a header line of 99 KiB",
         withHeader("X-A: " + std::string(99 * kKibibyte, 'x')), End::Kept, CURLE_OK, 200, "abc"},
        {"TooLongHeader", "a header line of more than 100 KiB",
         withHeader("X-A: " + std::string(100 * kKibibyte, 'x')), End::Closed, CURLE_OUT_OF_MEMORY, 200, ""},
        {"HeaderWithoutColon", "a header line without a colon",
         withHeader("strange line"), End::Closed, CURLE_WEIRD_SERVER_REPLY, 200, ""},
        {"HeaderWithZeroByte", "a header line with a zero byte",
         withHeader(std::string("X-A: a\0b", 8)), End::Closed, CURLE_WEIRD_SERVER_REPLY, 200, ""},
    };
    return rows;
}

// clang-format on

std::vector<Behaviour> allBehaviours()
{
    std::vector<Behaviour> all = handshakes();
    for (const auto group : {brokenAnswers, lengths, chunks, statuses, headersAndBodies})
        std::transform(group().begin(), group().end(), std::back_inserter(all), behaviourOf);
    Behaviour slow = behaviourOf({"OneByteAtATime", "one byte at a time", "", End::Kept, CURLE_OK, 200, "abc"});
    slow.script = afterRequest({trickle(answer("abc"))});
    all.push_back(std::move(slow));
    return all;
}

/// Status and log: the reason is left out where it is that of status 0, or empty.
std::string outcomeOf(const Behaviour& behaviour)
{
    const std::string transfer = std::string("\"") + curl_easy_strerror(behaviour.transfer) + "\"";
    const std::string status = std::to_string(behaviour.status);
    if (behaviour.status == 200)
        return behaviour.transfer == CURLE_OK ? status : status + " (libcurl knows: " + transfer + ")";
    const bool hasReason = behaviour.status != 0 && !behaviour.statusText.empty();
    return status + ", " + transfer + (hasReason ? ", \"" + behaviour.statusText + "\"" : "");
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Behaviour& behaviour)
{
    return out << behaviour.name;
}

const std::vector<Behaviour>& rawServerBehaviours()
{
    static const std::vector<Behaviour> all = allBehaviours();
    return all;
}

std::string rowOf(const Behaviour& behaviour, const std::string& testName)
{
    const bool succeeds = behaviour.status == 200;
    const std::string& body = behaviour.body;
    return "| " + behaviour.what + " | " + (succeeds ? "true" : "false") + " | " + outcomeOf(behaviour) + " | " +
           (body.empty() ? "none" : std::to_string(body.size()) + " bytes") + " | " +
           (succeeds ? "written" : "untouched") + " | `" + testName + "/" + behaviour.name + "` |";
}

} // namespace TAV::test
