// hello FILE...: tells the SHA-256 of each file.
#include <iostream>
#include <string>

#include "PrintingLogger.h"
#include "tav/QelSSLUtils.h"

int main(int argc, char** argv)
{
    PrintingLogger logger;
    TAV::QelSSLUtils ssl;
    for (int i = 1; i < argc; ++i)
    {
        const std::string path = argv[i];
        std::string md5;
        std::string sha1;
        std::string sha256;
        if (ssl.getChecksumValues(path, TAV::INPUT_FILE_PATH, md5, sha1, sha256))
            std::cout << sha256 << "  " << path << "\n";
        else
            logger.log(2, "hello", "cannot read " + path);
    }
}
