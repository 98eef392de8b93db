#include "endpoint_scan/Logger.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "common/Text.h"

namespace endpointscan
{
namespace
{

// The levels that the services use.
constexpr int kFailureLevel = 2;
constexpr int kNotableLevel = 5;

spdlog::level::level_enum spdlogLevel(int level)
{
    if (level <= kFailureLevel)
        return spdlog::level::err;
    return level <= kNotableLevel ? spdlog::level::warn : spdlog::level::info;
}

} // namespace

void Logger::log(int level, std::string message)
{
    log(level, "library", message);
}

void Logger::log(int level, std::string component, const std::string& message)
{
    m_sink->log(spdlogLevel(level), "{}: {}", component, programs::printable(m_mask.masked(message)));
}

std::shared_ptr<spdlog::logger> makeSink(const std::string& file, bool isVerbose)
{
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
