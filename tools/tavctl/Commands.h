#pragma once

#include <CLI/CLI.hpp>

#include "tavctl/Context.h"

namespace tavctl
{

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
