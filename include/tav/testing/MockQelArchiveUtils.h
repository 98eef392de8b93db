#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tav/IQelArchiveUtils.h"

namespace TAV::test
{

/// Archives as a test expects them, by GoogleMock. `FakeQelArchiveUtils` behaves like the tool, its inputs' deletion
/// included, and needs no GoogleMock.
///
///     ::testing::NiceMock<TAV::test::MockQelArchiveUtils> archives;
///     EXPECT_CALL(archives, createArchive(EndsWith(".7z"), _, ElementsAre("/tmp/sample"), _, "infected"))
///         .WillOnce(Return(true));
///
///     EXPECT_TRUE(Quarantine(archives).take("/tmp/sample"));
///
/// What is not expected gives false and touches no file.
///
/// The program that uses it links GTest::gmock itself.
class MockQelArchiveUtils : public IQelArchiveUtils
{
public:
    MOCK_METHOD(bool,
                createArchive,
                (const std::string& archivePath,
                 ArchiveType type,
                 const std::vector<std::string>& files,
                 const std::vector<ArchiveInputFileInfo>& fileInfos,
                 const std::string& password),
                (override));
    MOCK_METHOD(bool,
                extractArchive,
                (const std::string& archivePath, const std::string& outputDirectory, const std::string& password),
                (override));
};

} // namespace TAV::test
