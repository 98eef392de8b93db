#include <magic.h>

#include "Cases.h"
#include "Pair.h"
#include "tav/MagicUtils.h"

namespace TAV::bench
{
namespace
{

class Detectors
{
public:
    Detectors()
    {
        library.magicOpen();
        library.magicLoad(nullptr);
        require(cookie != nullptr && magic_load(cookie, nullptr) == 0, "magic_load");
    }
    Detectors(const Detectors&) = delete;
    Detectors& operator=(const Detectors&) = delete;
    ~Detectors()
    {
        library.magicClose();
        magic_close(cookie);
    }

    MagicUtils library;
    magic_t cookie = magic_open(MAGIC_MIME_TYPE);
};

} // namespace

void addFileTypeCases()
{
    const WhileMeasured<Detectors> detectors;
    for (const char* path : {"/bin/true", "/etc/passwd"})
    {
        Pair pair{std::string("MIME type of ") + path, "magic_file", 1.03};
        pair.ours = [=] { require(detectors->library.magicFile(path) != nullptr, "magicFile"); };
        pair.theirs = [=] { require(magic_file(detectors->cookie, path) != nullptr, "magic_file"); };
        pair.surroundings = detectors.madeBy(std::make_unique<Detectors>);
        compare(pair);
    }
}

} // namespace TAV::bench
