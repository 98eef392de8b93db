#include "peers/QueryPeers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <memory>

namespace TAV::bench::peers
{
namespace
{

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

class Client
{
public:
    explicit Client(const Question& question) : m_request(http::verb::post, "/1", 11, question.payload)
    {
        m_context.load_verify_file(question.caFile);
        m_stream.set_verify_mode(asio::ssl::verify_peer);
        m_stream.set_verify_callback(asio::ssl::host_name_verification("localhost"));
        m_stream.next_layer().connect({asio::ip::address_v4::loopback(), question.port});
        m_stream.next_layer().set_option(asio::ip::tcp::no_delay(true));
        m_stream.handshake(asio::ssl::stream_base::client);
        m_request.set(http::field::host, "localhost:" + std::to_string(question.port));
        for (const auto& [name, value] : question.header)
            m_request.set(name, value);
        m_request.prepare_payload();
    }

    void ask()
    {
        http::write(m_stream, m_request);
        http::response<http::string_body> answer;
        http::read(m_stream, m_buffer, answer);
        require(answer.result() == http::status::ok, "Boost.Beast");
    }

private:
    asio::io_context m_io;
    asio::ssl::context m_context{asio::ssl::context::tls_client};
    asio::ssl::stream<asio::ip::tcp::socket> m_stream{m_io, m_context};
    http::request<http::string_body> m_request;
    beast::flat_buffer m_buffer;
};

} // namespace

Connect beastClient()
{
    return [](const Question& question) -> Work
    {
        auto client = std::make_shared<Client>(question);
        return [client] { client->ask(); };
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Connect beastClient()
{
    return {};
}

} // namespace TAV::bench::peers

#endif
