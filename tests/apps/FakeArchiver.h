#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tav/ITAVUtils.h"

namespace TAV::test
{

/// Stands for the archive tool: takes the command lines that `QelArchiveUtils` makes and does what the tool would do,
/// within the process. Its archives hold one text per file and the password.
class FakeArchiver : public ITAVUtils
{
public:
    enum class Fault
    {
        None,
        ToolMissing,       ///< every command gives false and does nothing
        CreateHalfDone,    ///< the first input is stored and deleted, the result is false: a full disk
        CreateDropsFile,   ///< one input is deleted and not stored, the result is true
        ExtractFails,      ///< the archive that was made cannot be read again
        ExtractAltersFile, ///< one byte of a file comes back changed
        ExtractAltersRecord,
    };

    Fault fault = Fault::None;
    /// Called before a command does anything, with its arguments.
    std::function<void(const std::vector<std::string>&)> onCommand;
    /// Called when a command has done its work.
    std::function<void(const std::vector<std::string>&)> afterCommand;

    const std::vector<std::vector<std::string>>& commands() const { return m_commands; }

    bool executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>*) override;

    std::chrono::system_clock::time_point getCurrentSystemClockNow() override { return {}; }
    bool setCPULimit(std::set<int>, unsigned short, std::string) override { return false; }
    void removeCPULimit(std::set<int>, std::string) override {}
    bool readSystemCommandOutput(std::vector<std::string>, const std::map<int, bool>*, int*) override { return false; }
    bool isCGroupsSupported() override { return false; }
    bool isDefaultCGroupsMountAvailable() override { return false; }

private:
    bool create(const std::string& archive, const std::string& directory, const std::string& password);
    bool extract(const std::string& archive, const std::string& directory, const std::string& password);

    std::vector<std::vector<std::string>> m_commands;
};

} // namespace TAV::test
