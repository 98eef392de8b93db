#include "common/SecretMask.h"

#include <algorithm>

namespace programs
{
namespace
{

constexpr const char* kCommandStarted = "Child process called to execute the system command : ";
const std::string kMask = "****";
const std::string kSwitch = " -p";

void replaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

/// Masks what nobody told about: from " -p" to the next blank.
void maskSwitches(std::string& text)
{
    for (auto at = text.find(kSwitch); at != std::string::npos; at = text.find(kSwitch, at))
    {
        at += kSwitch.size();
        const auto end = std::min(text.find(' ', at), text.size());
        if (end != at)
            text.replace(at, end - at, kMask);
    }
}

} // namespace

void SecretMask::add(const std::string& password)
{
    if (password.empty())
        return;
    m_arguments.push_back(kSwitch + password);
    // The longest first: a password may begin with another one.
    std::sort(m_arguments.begin(),
              m_arguments.end(),
              [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
}

std::string SecretMask::masked(const std::string& message) const
{
    if (message.rfind(kCommandStarted, 0) != 0)
        return message;
    std::string text = message;
    for (const std::string& argument : m_arguments)
        replaceAll(text, argument, kSwitch + kMask);
    maskSwitches(text);
    return text;
}

} // namespace programs
