#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "tav/ILogger.h"

namespace TAV
{

/// Hands each line on to another logger with the secrets in it masked. The library announces each command with all its
/// arguments, and the archive tool takes its password as one: "-p" and the password.
///
///     TAV::SyslogLogger syslog;
///     TAV::MaskingLogger logger(syslog);
///     logger.hide(password);
///     TAV::QelArchiveUtils archives(logger, utils);
///
/// What becomes "****":
///
/// - in the line that announces a command: the rest of each argument that begins with "-p", up to the next blank, or up
///   to the closing quote if it begins with one. So a password that nobody told of is masked too, if it holds no blank.
///   Other programs' arguments of that form ("cp -pr") are masked with it;
/// - in each line: every occurrence of a secret that it was told to hide. One of less than `kShortestText` bytes is
///   masked as an argument "-p" only: anywhere else, the gaps would tell what it is.
///
/// **Ownership.** The logger behind it must outlive this object.
///
/// **Threads.** It takes no lock and changes nothing while it logs, so it may be called from as many threads as the
/// logger behind it. `hide` changes it: call it before another thread logs.
///
/// **Fork.** In the forked child of a command it does what it does elsewhere: it copies each line into memory of its
/// own, which glibc allows there, and takes no lock. Whether the line arrives is up to the logger behind it.
///
/// **Secrets.** The secrets told stay in its memory until it goes, and are not wiped.
class MaskingLogger : public ILogger
{
public:
    /// What stands for a secret, whatever its length.
    static constexpr const char* kMask = "****";

    /// How many bytes a secret must have to be masked anywhere in a line.
    static constexpr std::size_t kShortestText = 4;

    /// @param next     gets every line; must outlive this object
    /// @param secrets  texts to hide, as `hide` takes them
    explicit MaskingLogger(ILogger& next, const std::vector<std::string>& secrets = {}) : m_next(next)
    {
        for (const std::string& secret : secrets)
            hide(secret);
    }

    /// Hides a text from now on. Needed for a password that holds a blank, where the end of the argument cannot be
    /// seen, and for what stands elsewhere than in a command. Not to be called while another thread logs.
    /// @param secret  the text, without "-p"; an empty one changes nothing
    void hide(const std::string& secret)
    {
        if (secret.empty())
            return;
        m_secrets.push_back(secret);
        // The longest first: a secret may begin with another one.
        std::sort(m_secrets.begin(),
                  m_secrets.end(),
                  [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
    }

    /// @param message  a line of the library, or any other text that is about to be shown
    /// @return the text with the secrets in it masked
    std::string masked(const std::string& message) const
    {
        std::string text = message;
        const bool isCommand = message.rfind(kAnnouncement, 0) == 0;
        for (const std::string& secret : m_secrets)
        {
            if (isCommand)
                replaceAll(text, kSwitch + secret, std::string(kSwitch) + kMask);
            if (secret.size() >= kShortestText)
                replaceAll(text, secret, kMask);
        }
        if (isCommand)
            maskArguments(text);
        return text;
    }

    void log(int level, std::string message) override { m_next.log(level, masked(message)); }

    void log(int level, std::string component, const std::string& message) override
    {
        m_next.log(level, std::move(component), masked(message));
    }

private:
    static constexpr const char* kAnnouncement = "Child process called to execute the system command : ";
    static constexpr const char* kSwitch = " -p";

    static void replaceAll(std::string& text, const std::string& from, const std::string& to)
    {
        for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
    }

    /// Where the argument ends whose text begins at `begin`.
    static std::size_t endOfArgument(const std::string& text, std::size_t begin)
    {
        const char first = text[begin];
        if (first == '"' || first == '\'')
        {
            const std::size_t quote = text.find(first, begin + 1);
            if (quote != std::string::npos)
                begin = quote;
        }
        return std::min(text.find(' ', begin), text.size());
    }

    /// Masks what nobody told of.
    static void maskArguments(std::string& text)
    {
        const std::size_t length = std::string(kSwitch).size();
        for (auto at = text.find(kSwitch); at != std::string::npos; at = text.find(kSwitch, at))
        {
            at += length;
            if (at < text.size() && text[at] != ' ')
                text.replace(at, endOfArgument(text, at) - at, kMask);
        }
    }

    ILogger& m_next;
    std::vector<std::string> m_secrets;
};

} // namespace TAV
