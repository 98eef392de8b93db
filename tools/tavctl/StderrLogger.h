#pragma once

#include <string>

#include "common/SecretMask.h"
#include "tav/ILogger.h"

namespace tavctl
{

/// Prints the library's lines on standard error when asked to, with passwords masked.
class StderrLogger : public TAV::ILogger
{
public:
    explicit StderrLogger(bool enabled) : m_enabled(enabled) {}

    void log(int level, std::string message) override;
    void log(int level, std::string component, const std::string& message) override;

    bool isEnabled() const { return m_enabled; }
    programs::SecretMask& mask() { return m_mask; }

private:
    bool m_enabled;
    programs::SecretMask m_mask;
};

} // namespace tavctl
