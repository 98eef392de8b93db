// What happens to a file. It knows interfaces only, so that a test can put doubles behind them.
#pragma once

#include <unistd.h>

#include <set>
#include <string>
#include <utility>

#include "tav/IMagic.h"
#include "tav/IQelArchiveUtils.h"
#include "tav/IQelSSL.h"

/// Nothing of it is owned: the services outlive the guard.
struct Services
{
    TAV::IMagic& magic; ///< open, with its database
    TAV::IQelSSL& ssl;
    TAV::IQelArchiveUtils& archives;
};

struct Rules
{
    std::set<std::string> denied; ///< SHA-256, lowercase
    std::string quarantine;       ///< a directory, by its absolute path
    std::string password;         ///< of the archives in it
};

class Guard
{
public:
    Guard(Services services, Rules rules) : m_services(services), m_rules(std::move(rules)) {}

    /// @param path  an absolute path of a regular file
    /// @return what was done, for people to read
    std::string handle(const std::string& path)
    {
        const char* answer = m_services.magic.magicFile(path.c_str());
        const std::string type = answer == nullptr ? "?" : answer; // a copy: libmagic's text dies with the next query
        std::string md5;
        std::string sha1;
        std::string sha256;
        if (!m_services.ssl.getChecksumValues(path, TAV::INPUT_FILE_PATH, md5, sha1, sha256))
            return "UNREADABLE   " + path;
        if (m_rules.denied.count(sha256) == 0)
            return "clean        " + path + " (" + type + ")";
        return (quarantine(path, sha256) ? "QUARANTINED  " : "NOT MOVED    ") + path + " (" + type + ")";
    }

private:
    bool quarantine(const std::string& path, const std::string& sha256)
    {
        if (path.find_first_of("*?") != std::string::npos)
            return false; // 7-Zip would take the name for a pattern, and move all that it fits
        const std::string archive = m_rules.quarantine + "/" + sha256.substr(0, 12) + ".7z";
        const pid_t before = ::getpid();
        const bool moved =
            m_services.archives.createArchive(archive, TAV::ArchiveType::SevenZip, {path}, {}, m_rules.password);
        if (::getpid() != before)
        {
            // A child that could not start 7-Zip comes back like this. The caller waits for a word of it.
            const ssize_t told = ::write(STDERR_FILENO, "not started\n", 12);
            ::_exit(told < 0 ? 126 : 127);
        }
        return moved;
    }

    Services m_services;
    Rules m_rules;
};
