// file_type FILE...: the MIME type of each file.
#include <iostream>

#include "tav/FMXException.h"
#include "tav/MagicUtils.h"

int main(int argc, char** argv)
try
{
    TAV::MagicUtils magic; // one for each thread
    magic.magicOpen();
    magic.magicLoad(nullptr); // libmagic's own database
    for (int i = 1; i < argc; ++i)
    {
        // libmagic's text: copy it to keep it beyond the next query. For a file that cannot be read it is a sentence.
        const char* type = magic.magicFile(argv[i]);
        std::cout << argv[i] << ": " << (type == nullptr ? "unknown" : type) << "\n";
    }
    magic.magicClose(); // the destructor does not
    return 0;
}
catch (const TAV::FMXException& failure) // no std::exception
{
    std::cerr << failure.message << "\n";
    return 1;
}
