#pragma once

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "apps/FakeArchiver.h"
#include "endpoint_scan/Quarantine.h"
#include "support/TemporaryDirectory.h"
#include "tav/QelArchiveUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

/// A tree with files, a quarantine beside it, and a stand-in for the archive tool.
class QuarantineScene : public ::testing::Test
{
protected:
    static constexpr const char* kPassword = "pass word";

    QuarantineScene();

    /// Makes a file in the tree and returns the entry that a scan would make of it.
    endpointscan::RecordEntry denied(const std::string& path, const std::string& content, mode_t mode = 0644);

    endpointscan::Quarantine open(const std::string& password = kPassword);

    /// Puts the files into the quarantine and insists that all went well.
    std::string storeAll(const std::vector<endpointscan::RecordEntry>& files);

    /// Path to content of all regular files of a directory.
    static std::map<std::string, std::string> contentOf(const std::string& directory);

    /// Names in the quarantine but the lock.
    std::vector<std::string> quarantineNames() const;

    std::string root() const { return m_place.file("files"); }
    virtual std::string quarantinePath() const { return m_place.file("quarantine"); }
    std::string target() const { return m_place.file("back"); }
    static bool never() { return false; }

    TemporaryDirectory m_place;
    RecordingLogger m_logger;
    std::shared_ptr<FakeArchiver> m_tool = std::make_shared<FakeArchiver>();
    QelArchiveUtils m_archives{m_logger, m_tool};
};

} // namespace TAV::test
