// A program outside the tree that uses the ready-made loggers, with or without spdlog.
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "tav/logging/MaskingLogger.h"
#include "tav/logging/SyslogLogger.h"

#ifdef WITH_SPDLOG
#include <spdlog/sinks/ostream_sink.h>

#include <sstream>

#include "tav/logging/SpdlogLogger.h"
#endif

namespace
{

bool expect(bool holds, const char* what)
{
    std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
    return holds;
}

//! [masked syslog]
/// What a daemon has for its logs.
struct Loggers
{
    TAV::SyslogLogger syslog{"exampled", LOG_PID, LOG_DAEMON}; // {} if the program calls openlog itself
    TAV::MaskingLogger masked{syslog};                         // the services get this one
};
//! [masked syslog]

bool masks()
{
    Loggers loggers;
    loggers.masked.hide("sesame");
    return expect(loggers.masked.masked("open sesame") == "open ****", "masks a secret");
}

#ifdef WITH_SPDLOG
//! [spdlog]
/// Details at level debug instead of info.
TAV::SpdlogLogger makeLogger(std::shared_ptr<spdlog::logger> target)
{
    TAV::SpdlogLevels levels;
    levels.detail = spdlog::level::debug;
    return TAV::SpdlogLogger(std::move(target), levels);
}
//! [spdlog]

bool writesLines()
{
    std::ostringstream out;
    auto target = std::make_shared<spdlog::logger>("it", std::make_shared<spdlog::sinks::ostream_sink_mt>(out));
    target->set_pattern("%l %v");
    TAV::SpdlogLogger logger = makeLogger(target);
    logger.log(2, "TAVUtils", "text");
    logger.log(6, "TAVUtils", "not wanted");
    return expect(out.str() == "error [TAVUtils] text\n", "logs through spdlog");
}
#else
bool writesLines()
{
    return true;
}
#endif

} // namespace

int main()
{
    const bool good = masks();
    return writesLines() && good ? 0 : 1;
}
