#pragma once

#include <string>

#include "tav/ILogger.h"

namespace tavctl
{

/// Prints the library's lines on standard error when asked to.
class StderrLogger : public TAV::ILogger
{
public:
    explicit StderrLogger(bool enabled) : m_enabled(enabled) {}

    void log(int level, std::string message) override;
    void log(int level, std::string component, const std::string& message) override;

private:
    bool m_enabled;
};

} // namespace tavctl
