#include <cstdio>
#include <string>

#include "tav/MagicUtils.h"
#include "tav/QelSSLUtils.h"

int main(int, char** argv)
{
    TAV::MagicUtils magic;
    magic.magicOpen();
    magic.magicLoad(nullptr); // libmagic's own database of types
    TAV::QelSSLUtils ssl;
    for (std::string md5, sha1, sha256; *++argv != nullptr;)
    {
        const char* type = magic.magicFile(*argv); // libmagic's text, valid until the next query
        const bool hashed = ssl.getChecksumValues(*argv, TAV::INPUT_FILE_PATH, md5, sha1, sha256);
        std::printf("%s  %s  %s\n", *argv, type ? type : "?", hashed ? sha256.c_str() : "unreadable");
    }
    magic.magicClose();
}
