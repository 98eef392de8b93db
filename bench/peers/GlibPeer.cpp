#include "peers/Peers.h"

#ifdef TAV_BENCH_HAS_PEER

#include <glib.h>

#include <array>

namespace TAV::bench::peers
{

namespace
{

/// Standard error is captured and dropped.
void run(const char* const* arguments, GSpawnFlags flags, char** output)
{
    char* errors = nullptr;
    int status = 0;
    const bool success = g_spawn_sync(nullptr,
                                      const_cast<char**>(arguments),
                                      nullptr,
                                      flags,
                                      nullptr,
                                      nullptr,
                                      output,
                                      &errors,
                                      &status,
                                      nullptr) != 0;
    require(success && status == 0, "g_spawn_sync");
    g_free(errors);
}

} // namespace

Work glibRun()
{
    return []
    {
        const std::array<const char*, 2> arguments{kTrue};
        run(arguments.data(), G_SPAWN_STDOUT_TO_DEV_NULL, nullptr);
    };
}

Work glibCapture()
{
    return []
    {
        const std::array<const char*, 3> arguments{kEcho, kWord};
        char* output = nullptr;
        run(arguments.data(), G_SPAWN_DEFAULT, &output);
        g_free(output);
    };
}

} // namespace TAV::bench::peers

#else

namespace TAV::bench::peers
{

Work glibRun()
{
    return {};
}

Work glibCapture()
{
    return {};
}

} // namespace TAV::bench::peers

#endif
