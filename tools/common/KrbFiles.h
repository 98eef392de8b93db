#pragma once

#include <string>

namespace programs
{

/// Where the keytab and the credentials cache of this process lie. A path that is not given is in a directory of the
/// process's own (mode 0700), which is removed at the end.
///
/// Both files are as good as the password: while this object lives, SIGINT, SIGTERM and SIGHUP remove them before they
/// end the process, unless something else has been installed for these signals. Have one of them at a time.
class KrbFiles
{
public:
    /// @throws std::runtime_error  if the directory cannot be made
    KrbFiles(const std::string& keytab, const std::string& cache);
    KrbFiles(const KrbFiles&) = delete;
    KrbFiles& operator=(const KrbFiles&) = delete;

    /// Removes the directory and what is in it; files at other places stay.
    ~KrbFiles();

    // Not const, as the handler takes them so.
    std::string& keytab() { return m_keytab; }
    std::string& cache() { return m_cache; }

    /// From now on signals leave the files where they are.
    void forget();

private:
    static void removeAndDie(int signal);

    std::string m_directory; ///< empty if both paths are given
    std::string m_keytab;
    std::string m_cache;
};

} // namespace programs
