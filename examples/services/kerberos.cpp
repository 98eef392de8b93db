// kerberos USER@REALM DIRECTORY: makes a keytab, with the password that it reads from standard input, and waits for a
// line; until then the processes that it starts, and libcurl in it, could pass a proxy that asks for Negotiate.
#include <iostream>
#include <memory>
#include <string>

#include "PrintingLogger.h"
#include "tav/FMXException.h"
#include "tav/KrbAPIWrapper.h"
#include "tav/KrbHandler.h"
#include "tav/TAVSystemUtils.h"

int main(int argc, char** argv)
try
{
    if (argc != 3)
    {
        std::cerr << "usage: kerberos USER@REALM DIRECTORY\n";
        return 2;
    }
    PrintingLogger logger;
    const std::string directory = argv[2]; // the daemon's own, with mode 0700
    std::string cache = directory + "/krb5cc";
    std::string keytab = directory + "/client.keytab";
    // Sets KRB5_CLIENT_KTNAME and KRB5CCNAME for the process: one handler, before threads start.
    TAV::KrbHandler kerberos(
        logger, std::make_shared<TAV::TAVSystemUtils>(), cache, keytab, std::make_shared<TAV::KrbAPIWrapper>());
    TAV::TAVProxyConfig account;
    account.userPrincipal = argv[1];
    std::getline(std::cin, account.password);
    if (account.password.size() > 8192 || !kerberos.configKrbSession(account)) // a longer one would end the process
        return 1;
    std::cout << keytab << std::endl;
    std::string line;
    std::getline(std::cin, line);
    return 0; // the handler deletes both files
}
catch (const TAV::FMXException& failure) // no std::exception
{
    std::cerr << failure.message << "\n";
    return 1;
}
