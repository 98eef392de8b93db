#pragma once

#include <CLI/CLI.hpp>

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

/// Adds one subcommand to the program. When the subcommand is chosen, it puts its work into `chosen`.
using Registration = void (*)(CLI::App& app, Action& chosen);

// One function per subcommand, each in a file of its own; Application.cpp lists them in the order of the help.
void registerMime(CLI::App& app, Action& chosen);
void registerChecksum(CLI::App& app, Action& chosen);
void registerHmac(CLI::App& app, Action& chosen);
void registerBase64(CLI::App& app, Action& chosen);
void registerRun(CLI::App& app, Action& chosen);
void registerCapture(CLI::App& app, Action& chosen);
void registerArchive(CLI::App& app, Action& chosen);
void registerCpuLimit(CLI::App& app, Action& chosen);
void registerQuery(CLI::App& app, Action& chosen);
void registerKrb(CLI::App& app, Action& chosen);
void registerDoctor(CLI::App& app, Action& chosen);

} // namespace tavctl
