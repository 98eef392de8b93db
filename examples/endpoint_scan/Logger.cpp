#include "endpoint_scan/Logger.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "common/Text.h"
#include "endpoint_scan/Types.h"

namespace endpointscan
{

std::shared_ptr<spdlog::logger> makeSink(const std::string& file, bool isVerbose)
{
    // spdlog would make the directories of a mistyped name.
    if (!file.empty() && !std::ofstream(file, std::ios::app))
        throw UsageError("--log " + programs::printable(file) + ": " + std::strerror(errno));
    spdlog::sink_ptr sink;
    if (file.empty())
        sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    else
        sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(file);
    auto logger = std::make_shared<spdlog::logger>("endpoint_scan", std::move(sink));
    logger->set_level(file.empty() && !isVerbose ? spdlog::level::err : spdlog::level::info);
    logger->flush_on(spdlog::level::trace);
    return logger;
}

} // namespace endpointscan
