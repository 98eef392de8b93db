#include "peers/Peers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <boost/process.hpp>
#include <string>

namespace bp = boost::process;

namespace TAV::bench::peers
{
namespace
{

void awaitSuccess(bp::child& process)
{
    process.wait();
    require(process.exit_code() == 0, "boost::process::child");
}

} // namespace

Work boostRun()
{
    return []
    {
        bp::ipstream errors;
        bp::child process(kTrue, bp::std_in<bp::null, bp::std_out> bp::null, bp::std_err > errors);
        awaitSuccess(process);
    };
}

Work boostCapture()
{
    return []
    {
        bp::ipstream output;
        bp::ipstream errors;
        bp::child process(kEcho, kWord, bp::std_in<bp::null, bp::std_out> output, bp::std_err > errors);
        std::string text;
        require(static_cast<bool>(std::getline(output, text)), "boost::process::ipstream");
        awaitSuccess(process);
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Work boostRun()
{
    return {};
}

Work boostCapture()
{
    return {};
}

} // namespace TAV::bench::peers

#endif
