#include "common/KrbFiles.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace programs
{
namespace
{

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// What a signal is to remove.
std::atomic<const KrbFiles*> inUse{nullptr};
static_assert(std::atomic<const KrbFiles*>::is_always_lock_free, "read in a signal handler");

std::string makeDirectory()
{
    const char* parent = std::getenv("TMPDIR");
    std::string path = std::string(parent == nullptr || *parent == '\0' ? "/tmp" : parent) + "/tav-kerberos.XXXXXX";
    if (::mkdtemp(path.data()) == nullptr)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    return path;
}

} // namespace

KrbFiles::KrbFiles(const std::string& keytab, const std::string& cache)
    : m_directory(keytab.empty() || cache.empty() ? makeDirectory() : ""),
      m_keytab(keytab.empty() ? m_directory + "/keytab" : keytab),
      m_cache(cache.empty() ? m_directory + "/cache" : cache)
{
    inUse = this;
    for (const int signal : kSignals)
    {
        struct sigaction action = {};
        ::sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_DFL) // ignored, by nohup for instance, or somebody else's
            continue;
        action.sa_handler = removeAndDie;
        ::sigaction(signal, &action, nullptr);
    }
}

KrbFiles::~KrbFiles()
{
    std::error_code ignored;
    if (!m_directory.empty())
        std::filesystem::remove_all(m_directory, ignored);
    forget();
}

void KrbFiles::forget()
{
    inUse = nullptr;
}

void KrbFiles::removeAndDie(int signal)
{
    const KrbFiles* files = inUse;
    if (files != nullptr)
    {
        ::unlink(files->m_keytab.c_str());
        ::unlink(files->m_cache.c_str());
        ::rmdir(files->m_directory.c_str());
    }
    static_cast<void>(std::signal(signal, SIG_DFL));
    static_cast<void>(::raise(signal)); // takes effect when this function returns
}

} // namespace programs
