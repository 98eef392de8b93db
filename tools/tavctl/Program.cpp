#include "tavctl/Program.h"

#include "common/KernelVersion.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tavctl/Input.h"

namespace tavctl
{

std::shared_ptr<programs::GuardedUtils> makeUtils(Context& context)
{
    return std::make_shared<programs::GuardedUtils>(
        std::make_shared<TAV::TAVUtils>(std::make_shared<TAV::TAVSystemUtils>(),
                                        context.logger,
                                        std::make_shared<TAV::kernelVersion>(programs::runningKernel())));
}

void requireRunnable(const std::string& program)
{
    const std::string obstacle = programs::obstacleToRun(program);
    if (obstacle.empty())
        return;
    const bool isBareName = program.find('/') == std::string::npos;
    throw Failure(about(program, obstacle) + (isBareName ? " (give the whole path; PATH is not searched)" : ""));
}

} // namespace tavctl
