#include "common/StandardDescriptors.h"
#include "endpoint_scan/Application.h"

int main(int argc, char** argv)
{
    programs::restoreProcessDefaults();
    programs::ignoreBrokenPipes(); // a reader that goes away, of a pipe or a connection, must not end a scan half-way
    return endpointscan::run(argc, argv);
}
