#include "tavctl/doctor/Mounts.h"

#include <algorithm>
#include <sstream>

namespace tavctl::doctor
{

bool Mount::hasOption(const std::string& option) const
{
    return std::find(options.begin(), options.end(), option) != options.end();
}

std::string Mount::valueOf(const std::string& name) const
{
    for (const std::string& option : options)
    {
        if (option.rfind(name + "=", 0) == 0)
            return option.substr(name.size() + 1);
    }
    return "";
}

std::vector<Mount> parseMounts(const std::string& text)
{
    std::vector<Mount> mounts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        std::istringstream fields(line);
        std::string device;
        std::string options;
        Mount mount;
        if (!(fields >> device >> mount.place >> mount.type >> options))
            continue;
        std::istringstream list(options);
        for (std::string option; std::getline(list, option, ',');)
            mount.options.push_back(option);
        mounts.push_back(std::move(mount));
    }
    return mounts;
}

} // namespace tavctl::doctor
