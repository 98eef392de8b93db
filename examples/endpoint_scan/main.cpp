#include "common/StandardDescriptors.h"
#include "endpoint_scan/Application.h"

int main(int argc, char** argv)
{
    programs::restoreProcessDefaults();
    return endpointscan::run(argc, argv);
}
