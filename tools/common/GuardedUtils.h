#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tav/ITAVUtils.h"

namespace programs
{

/// An `ITAVUtils` that makes every command safe to run, whoever asks for it; hand it to `QelArchiveUtils` in place of
/// the object that it wraps. It adds three things:
///
/// - a program that is missing or not executable is refused before a child is made;
/// - a child that comes back, because its program did not start, ends here with status 127 and never reaches the
///   caller's code;
/// - a command without a keep-map gets one that keeps nothing. Its standard error then goes to /dev/null, and the call
///   returns when the child ends, however it ends: without a map it would wait for ever for a child that fails without
///   a word or that writes more than a pipe holds.
class GuardedUtils : public TAV::ITAVUtils
{
public:
    explicit GuardedUtils(std::shared_ptr<TAV::ITAVUtils> utils);

    std::chrono::system_clock::time_point getCurrentSystemClockNow() override;
    bool setCPULimit(std::set<int> pids, unsigned short limit, std::string groupName) override;
    void removeCPULimit(std::set<int> pids, std::string groupName) override;
    bool executeSystemCommand(const std::vector<std::string>& argv, const std::map<int, bool>* fdsToKeepOpen) override;
    bool readSystemCommandOutput(std::vector<std::string> argv,
                                 const std::map<int, bool>* fdsToKeepOpen,
                                 int* outPipe) override;
    bool isCGroupsSupported() override;
    bool isDefaultCGroupsMountAvailable() override;

private:
    std::shared_ptr<TAV::ITAVUtils> m_utils;
};

/// Why `path` cannot be run as a program, or an empty text if it looks as if it could.
std::string obstacleToRun(const std::string& path);

} // namespace programs
