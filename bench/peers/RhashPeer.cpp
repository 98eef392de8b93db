#include "peers/Peers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <rhash.h>

#include <array>
#include <cstdio>

namespace TAV::bench::peers
{

Work rhashOf(const std::string& path)
{
    rhash_library_init();
    return [path]
    {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        require(file != nullptr, "fopen");
        rhash context = rhash_init(RHASH_MD5 | RHASH_SHA1 | RHASH_SHA256);
        require(context != nullptr && rhash_file_update(context, file) == 0 && rhash_final(context, nullptr) == 0,
                "librhash");
        static_cast<void>(std::fclose(file));
        std::array<char, 128> text{};
        for (const rhash_ids id : {RHASH_MD5, RHASH_SHA1, RHASH_SHA256})
            require(rhash_print(text.data(), context, static_cast<unsigned int>(id), RHPR_HEX) != 0, "rhash_print");
        rhash_free(context);
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Work rhashOf(const std::string&)
{
    return {};
}

} // namespace TAV::bench::peers

#endif
