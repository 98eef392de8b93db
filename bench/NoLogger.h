#pragma once

#include <string>

#include "tav/ILogger.h"

namespace TAV::bench
{

/// Takes every line and does nothing with it.
class NoLogger : public ILogger
{
public:
    void log(int, std::string) override {}
    void log(int, std::string, const std::string&) override {}
};

} // namespace TAV::bench
