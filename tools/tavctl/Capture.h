#pragma once

#include <string>
#include <vector>

#include "tav/ITAVUtils.h"

namespace tavctl
{

/// What a program wrote to its standard output, and whether it ended with status 0.
struct Captured
{
    bool isSuccess = false;
    std::string output;
};

/// Runs a program and takes its output, of any size, while it runs. What a program that it leaves behind writes later
/// is not waited for.
/// @throws Failure  if there is no pipe to be had
Captured captureOutput(TAV::ITAVUtils& utils, const std::vector<std::string>& argv);

} // namespace tavctl
