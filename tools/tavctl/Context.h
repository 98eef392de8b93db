#pragma once

#include <functional>
#include <stdexcept>

#include "tav/logging/MaskingLogger.h"
#include "tavctl/Console.h"

namespace tavctl
{

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr int kNotAnswered = 3; ///< query: no answer, or one that is no success

/// Arguments that parse but make no sense: exit code 2.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A command that cannot do its work: exit code 1.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What every subcommand works with.
struct Context
{
    Console& console;
    TAV::MaskingLogger& logger;
    bool isVerbose; ///< whether the logger shows anything
};

/// The work of a subcommand; its result is the exit code.
using Action = std::function<int(Context&)>;

} // namespace tavctl
