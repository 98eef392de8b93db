#pragma once

#include <gmock/gmock.h>

#include <array>
#include <cstddef>
#include <fstream>
#include <string>

#include "tav/ITAVSystemUtils.h"

namespace TAV::test
{

/// The system calls as a test expects them, by GoogleMock. `FakeTAVSystemUtils` forwards to the real system, fails what
/// it is told to, and needs no GoogleMock; a service is tested more easily with that one.
///
///     auto system = std::make_shared<::testing::NiceMock<TAV::test::MockTAVSystemUtils>>();
///     EXPECT_CALL(*system, pipe(_, _, O_CLOEXEC)).WillOnce(DoAll(SetArgReferee<1>(EMFILE), Return(-1)));
///
///     TAV::TAVUtils utils(system, logger, kernel);
///     EXPECT_FALSE(utils.executeSystemCommand({"/bin/true"}, nullptr));
///
/// What is not expected gives 0 and does nothing: a `fork` that gives 0 makes the test's own process the child. Expect
/// it, or use the fake.
///
/// The program that uses it links GTest::gmock itself.
class MockTAVSystemUtils : public ITAVSystemUtils
{
public:
    MOCK_METHOD(int, open, (std::string path, int flags, int& err), (override));
    MOCK_METHOD(ssize_t, read, (int fd, void* buffer, std::size_t count, int& err), (override));
    MOCK_METHOD(int, close, (int fd, int& err), (override));
    MOCK_METHOD(int, setenv, (const char* name, const char* value, int overwrite, int& err), (override));
    MOCK_METHOD(int, pipe, ((std::array<int, 2> & fds), int& err, int flags), (override));
    MOCK_METHOD(pid_t, fork, (int& err), (override));
    MOCK_METHOD(pid_t, waitpid, (pid_t pid, int* status, int options, int& err), (override));
    MOCK_METHOD(int, mkdir, (std::string path, mode_t mode, int& err), (override));
    MOCK_METHOD(int, dup2, (int oldFd, int newFd, int& err), (override));
    MOCK_METHOD(int, stat, (const char* path, struct stat* buffer, int& err), (override));
    MOCK_METHOD(void, openOutputFile, (std::ofstream & stream, std::string path), (override));
    MOCK_METHOD(void, openInputFile, (std::ifstream & stream, std::string path), (override));
};

} // namespace TAV::test
