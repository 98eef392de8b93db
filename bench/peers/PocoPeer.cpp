#include "peers/Peers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <Poco/Pipe.h>
#include <Poco/Process.h>

#include <array>

namespace TAV::bench::peers
{

Work pocoRun()
{
    return []
    {
        Poco::Pipe errors;
        require(Poco::Process::launch(kTrue, {}, nullptr, nullptr, &errors).wait() == 0, "Poco::Process");
    };
}

Work pocoCapture()
{
    return []
    {
        Poco::Pipe output;
        Poco::Pipe errors;
        const Poco::ProcessHandle process = Poco::Process::launch(kEcho, {kWord}, nullptr, &output, &errors);
        std::array<char, 64> text{};
        require(output.readBytes(text.data(), static_cast<int>(text.size())) > 0, "Poco::Pipe");
        require(process.wait() == 0, "Poco::Process");
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Work pocoRun()
{
    return {};
}

Work pocoCapture()
{
    return {};
}

} // namespace TAV::bench::peers

#endif
