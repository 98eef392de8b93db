#pragma once

#include <functional>
#include <vector>

#include "endpoint_scan/Types.h"

namespace endpointscan
{

/// Lists everything below a directory, sorted by path. Regular files come back without a verdict of substance, to be
/// examined (`Failed` without a reason); all else is `Skipped`, or `Failed` if a directory cannot be read. Symbolic
/// links are not followed; the kernel's own file systems (/proc and the like) are skipped.
/// @param root      an open directory
/// @param excluded  directories that are not entered
std::vector<Finding> walk(int root, const std::vector<Identity>& excluded, const std::function<bool()>& isCancelled);

/// Whether `walk` left it to be examined.
bool isToBeExamined(const Finding& finding);

} // namespace endpointscan
