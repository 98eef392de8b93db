#include "peers/QueryPeers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <Poco/Net/Context.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/HTTPSClientSession.h>
#include <Poco/StreamCopier.h>

namespace TAV::bench::peers
{

Connect pocoClient()
{
    return [](const Question& question) -> Work
    {
        using namespace Poco::Net;
        const Context::Ptr context =
            new Context(Context::TLS_CLIENT_USE, "", "", question.caFile, Context::VERIFY_STRICT, 9, false, "DEFAULT");
        auto session = std::make_shared<HTTPSClientSession>("localhost", question.port, context);
        session->setKeepAlive(true);
        return [session, question]
        {
            HTTPRequest request(HTTPRequest::HTTP_POST, "/1", HTTPMessage::HTTP_1_1);
            for (const auto& [name, value] : question.header)
                request.set(name, value);
            request.setContentLength(static_cast<std::streamsize>(question.payload.size()));
            session->sendRequest(request) << question.payload;
            HTTPResponse answer;
            std::string body;
            Poco::StreamCopier::copyToString(session->receiveResponse(answer), body);
            require(answer.getStatus() == HTTPResponse::HTTP_OK, "Poco::Net");
        };
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Connect pocoClient()
{
    return {};
}

} // namespace TAV::bench::peers

#endif
