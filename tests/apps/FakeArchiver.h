#pragma once

#include <functional>
#include <string>

#include "tav/testing/FakeQelArchiveUtils.h"
#include "tav/testing/FakeTAVUtils.h"

namespace TAV::test
{

/// Stands for the archive tool: takes the command lines that `QelArchiveUtils` makes and does what the tool would do,
/// within the process.
class FakeArchiver : public FakeTAVUtils
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

    FakeArchiver();

    Fault fault = Fault::None;
    /// Called before a command does anything, with its arguments.
    std::function<void(const Argv&)> beforeCommand;
    /// Called when a command has done its work.
    std::function<void(const Argv&)> afterCommand;

private:
    bool run(const Argv& argv);
    bool create(const std::string& archive, const std::string& directory, const std::string& password);
    bool extract(const std::string& archive, const std::string& directory, const std::string& password);

    FakeQelArchiveUtils m_archives;
};

} // namespace TAV::test
