// watcher DIRECTORY: tells the type and the SHA-256 of each file that arrives there.
#include <exception>
#include <iostream>

#include "Inbox.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"
#include "tav/QelSSLUtils.h"

int main(int argc, char** argv)
try
{
    if (argc != 2)
        return std::cerr << "usage: watcher DIRECTORY\n", 2;
    Inbox inbox(argv[1]);
    TAV::MagicUtils magic;
    magic.magicOpen();
    magic.magicLoad(nullptr); // libmagic's own database
    TAV::QelSSLUtils ssl;
    std::cout << "watching" << std::endl;
    while (const auto path = inbox.next())
    {
        const char* type = magic.magicFile(path->c_str()); // libmagic's text, valid until the next query
        std::string md5;
        std::string sha1;
        std::string sha256;
        const bool isRead = ssl.getChecksumValues(*path, TAV::INPUT_FILE_PATH, md5, sha1, sha256);
        std::cout << *path << ": " << (type == nullptr ? "?" : type) << ", " << (isRead ? sha256 : "unreadable")
                  << std::endl;
    }
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
