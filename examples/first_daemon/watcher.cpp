// watcher DIRECTORY DENY-LIST QUARANTINE: moves what the deny list names into archives in the quarantine.
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "Guard.h"
#include "Inbox.h"
#include "PrintingLogger.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"
#include "tav/QelArchiveUtils.h"
#include "tav/QelSSLUtils.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/logging/MaskingLogger.h"

namespace
{

Rules readRules(const std::string& denyList, const std::filesystem::path& quarantine)
{
    Rules rules;
    std::ifstream lines(denyList);
    for (std::string sha256; lines >> sha256;)
        rules.denied.insert(sha256);
    if (rules.denied.empty())
        throw std::runtime_error(denyList + ": no digests");
    const char* password = std::getenv("WATCHER_PASSWORD");
    rules.password = password == nullptr ? "" : password;
    rules.quarantine = std::filesystem::absolute(quarantine).string();
    return rules;
}

} // namespace

int main(int argc, char** argv)
try
{
    if (argc != 4)
        return std::cerr << "usage: watcher DIRECTORY DENY-LIST QUARANTINE\n", 2;
    PrintingLogger printing;
    TAV::MaskingLogger logger(printing); // the archive tool's command line, which is logged, holds the password
    auto version = std::make_shared<TAV::kernelVersion>(TAV::kernelVersion{6, 1, 0}); // see uname(2)
    auto utils = std::make_shared<TAV::TAVUtils>(std::make_shared<TAV::TAVSystemUtils>(), logger, version);
    TAV::QelArchiveUtils archives(logger, utils);
    TAV::QelSSLUtils ssl;
    TAV::MagicUtils magic;
    magic.magicOpen();
    magic.magicLoad(nullptr);

    Guard guard({magic, ssl, archives}, readRules(argv[2], argv[3]));
    Inbox inbox(argv[1]);
    std::cout << "watching" << std::endl;
    while (const auto path = inbox.next())
        std::cout << guard.handle(*path) << std::endl;
    magic.magicClose();
    std::cout << "stopped" << std::endl;
}
catch (const TAV::FMXException& failure) // no std::exception
{
    return std::cerr << failure.message << "\n", 1;
}
catch (const std::exception& failure)
{
    return std::cerr << failure.what() << "\n", 1;
}
