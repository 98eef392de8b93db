// checksums FILE...: MD5, SHA-1 and SHA-256 of each regular file.
#include <filesystem>
#include <iostream>
#include <string>

#include "tav/QelSSLUtils.h"

int main(int argc, char** argv)
{
    TAV::QelSSLUtils ssl; // has no state: one serves all threads
    int failures = 0;
    for (int i = 1; i < argc; ++i)
    {
        std::string md5;
        std::string sha1;
        std::string sha256;
        // A directory would have the checksums of nothing, and a FIFO would block.
        std::error_code error;
        if (std::filesystem::is_regular_file(argv[i], error) &&
            ssl.getChecksumValues(argv[i], TAV::INPUT_FILE_PATH, md5, sha1, sha256))
        {
            std::cout << "MD5 (" << argv[i] << ") = " << md5 << "\n";
            std::cout << "SHA1 (" << argv[i] << ") = " << sha1 << "\n";
            std::cout << "SHA256 (" << argv[i] << ") = " << sha256 << "\n";
        }
        else
        {
            std::cerr << argv[i] << ": no file that can be read\n";
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
