#include "common/StandardDescriptors.h"
#include "reputation_server/Application.h"

int main(int argc, char** argv)
{
    programs::restoreProcessDefaults();
    return reputationserver::run(argc, argv);
}
