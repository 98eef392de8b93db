#include "peers/QueryPeers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <httplib.h>

namespace TAV::bench::peers
{

Connect httplibClient()
{
    return [](const Question& question) -> Work
    {
        auto client = std::make_shared<httplib::SSLClient>("localhost", question.port);
        client->set_ca_cert_path(question.caFile);
        client->enable_server_certificate_verification(true);
        client->set_keep_alive(true);
        client->set_tcp_nodelay(true);
        httplib::Headers header;
        std::string contentType;
        for (const auto& [name, value] : question.header)
        {
            if (name == "Content-Type")
                contentType = value;
            else
                header.emplace(name, value);
        }
        return [client, header, contentType, payload = question.payload]
        {
            const httplib::Result answer = client->Post("/1", header, payload, contentType);
            require(answer && answer->status == 200, "cpp-httplib");
        };
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Connect httplibClient()
{
    return {};
}

} // namespace TAV::bench::peers

#endif
