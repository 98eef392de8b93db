#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/GuardedUtils.h"
#include "tavctl/Context.h"

namespace tavctl
{

/// The command service as this program uses it: over the real system and kernel, guarded, logging to the context.
std::shared_ptr<programs::GuardedUtils> makeUtils(Context& context);

/// Refuses a program that cannot be run.
/// @throws Failure  with the reason
void requireRunnable(const std::string& program);

} // namespace tavctl
