#pragma once

#include <spdlog/logger.h>

#include <memory>
#include <string>

#include "common/SecretMask.h"
#include "tav/ILogger.h"

namespace endpointscan
{

/// The daemon's logger, handed to the services: passes their lines on to spdlog, with passwords masked.
class Logger : public TAV::ILogger
{
public:
    explicit Logger(std::shared_ptr<spdlog::logger> sink) : m_sink(std::move(sink)) {}

    void log(int level, std::string message) override;
    void log(int level, std::string component, const std::string& message) override;

    /// A password that must not appear. Call it before any thread logs.
    void hide(const std::string& password) { m_mask.add(password); }

private:
    std::shared_ptr<spdlog::logger> m_sink;
    programs::SecretMask m_mask;
};

/// Where the lines go: to the end of a file if one is named; else to standard error, where only failures are shown
/// unless `isVerbose`. Each line is written out at once, so that a forked child holds none of them.
/// @throws spdlog::spdlog_ex  if the file cannot be opened
std::shared_ptr<spdlog::logger> makeSink(const std::string& file, bool isVerbose);

} // namespace endpointscan
