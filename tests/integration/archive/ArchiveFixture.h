#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"
#include "tav/QelArchiveUtils.h"

namespace TAV::test
{

/// How one archive operation ended. It runs in a process of its own: its command might come back or block.
struct ArchiveRun
{
    std::string result;            ///< "true", "false", or what went wrong with the process
    std::vector<std::string> log;  ///< "level component: message"
    std::vector<std::string> left; ///< what the operation left behind: descriptors, child processes
};

inline constexpr const char* kArchiveTool = "/opt/Brenlow/zel/tav/bin/7za";

using ArchiveOperation = std::function<bool(IQelArchiveUtils&)>;

/// Runs an operation with the production classes. `before` is run in the new process first.
ArchiveRun runArchive(const ArchiveOperation& operation, const std::function<void()>& before = nullptr);

/// Names of what is in a directory, sorted.
std::vector<std::string> namesIn(const std::string& directory);

/// A directory for each test, and the two operations in it.
class ArchiveTest : public testing::Test
{
protected:
    void SetUp() override;

    ArchiveRun
    create(const std::string& archive, const std::vector<std::string>& files, const std::string& password = "");
    ArchiveRun extract(const std::string& archive, const std::string& directory, const std::string& password = "");

    /// Expects that the archive yields exactly this one file.
    void expectContent(const std::string& archive,
                       const std::string& name,
                       const std::string& content,
                       const std::string& password = "");

    const TemporaryDirectory directory;

private:
    int m_extractions = 0;
};

} // namespace TAV::test
