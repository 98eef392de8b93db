#include <fcntl.h>
#include <unistd.h>

#include "common/StandardDescriptors.h"
#include "tavctl/Application.h"

namespace
{

/// A result that nobody gets is a failure: if the output is closed, something that cannot be written takes its place.
void makeClosedOutputUnwritable()
{
    if (::fcntl(STDOUT_FILENO, F_GETFD) < 0)
        ::dup2(::open("/dev/null", O_RDONLY), STDOUT_FILENO); // opened as 1, or as 0, which is closed then as well
}

} // namespace

int main(int argc, char** argv)
{
    makeClosedOutputUnwritable();
    programs::restoreProcessDefaults();
    return tavctl::run(argc, argv);
}
