#include "common/StandardDescriptors.h"
#include "tavctl/Application.h"

int main(int argc, char** argv)
{
    programs::restoreProcessDefaults();
    return tavctl::run(argc, argv);
}
