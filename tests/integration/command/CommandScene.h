#pragma once

#include <sys/types.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DescriptorModel.h"
#include "support/SharedNotes.h"
#include "tav/TAVSystemUtils.h"
#include "tav/TAVUtils.h"
#include "tav/testing/RecordingLogger.h"

namespace TAV::test
{

using KeepMap = std::map<int, bool>;

/// The real system calls; tells the notes, if there are any, what a test outside must know to watch or disturb the run:
/// "pipe 5 6", "child 4711", "reading 5".
class WatchedSystemUtils : public TAVSystemUtils
{
public:
    explicit WatchedSystemUtils(SharedNotes* notes = nullptr) : m_notes(notes) {}

    int pipe(std::array<int, 2>& fds, int& err, int flags) override;
    pid_t fork(int& err) override;
    ssize_t read(int fd, void* buffer, std::size_t count, int& err) override;

    /// The last pipe that was made, as the kernel calls it: "pipe:[4711]".
    const std::string& pipeName() const { return m_pipeName; }

private:
    void note(const std::string& line);

    SharedNotes* m_notes;
    std::string m_pipeName = "pipe:[none]";
};

/// What a test of commands needs, in a sacrificial process.
struct CommandScene
{
    explicit CommandScene(SharedNotes* notes = nullptr);

    std::shared_ptr<WatchedSystemUtils> system;
    RecordingLogger logger;
    TAVUtils utils;
};

/// What a returned child and its caller log when waiting fails.
std::string waitFailedNote(Operation operation, const std::string& who);

constexpr int kExitOfReturnedChild = 127;

/// Runs an operation and notes how it ended, in the caller and in a child that comes back: first "caller logged ..."
/// for each line, then "caller got true"; the same with "child". A child that comes back ends here.
void noteRun(SharedNotes& notes,
             const RecordingLogger& logger,
             const std::function<bool()>& operation,
             int childExit = kExitOfReturnedChild);

/// Runs an operation as noteRun does, in a sacrificial process with a scene of its own, to its end.
/// @return all notes
std::vector<std::string> notesOf(const std::function<bool(TAVUtils&)>& operation, int childExit = kExitOfReturnedChild);

/// A keep-map that makes no pipe for standard error, so that no failure can block the caller.
extern const KeepMap kKeepNothing;

/// Runs a command by the one or the other operation.
/// @param outPipe  for capture
bool runCommand(
    TAVUtils& utils, Operation operation, const std::vector<std::string>& argv, const KeepMap* keep, int* outPipe);

/// The same; what is captured is dropped.
bool runCommand(TAVUtils& utils, Operation operation, const std::vector<std::string>& argv, const KeepMap* keep);

/// A pipe for captured output, both ends closed at the end.
class OutputPipe
{
public:
    OutputPipe();
    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;
    ~OutputPipe();

    int* ends() { return m_ends.data(); }

    /// Closes the write end and reads to the end of the text.
    std::string takeText();

private:
    std::array<int, 2> m_ends{-1, -1};
};

/// The note that the caller of executeSystemCommand logs about its command.
std::string startedNote(const std::vector<std::string>& argv, const std::string& who = "caller");

/// What the caller of readSystemCommandOutput logs about a child that failed.
std::string failedNote(int status, const std::string& error, const std::string& rest);

/// A descriptor as /proc/PID/fd shows it.
std::string describeDescriptor(pid_t pid, int fd);

/// Programs for children.
constexpr const char* kAct = TAV_ACT;
constexpr const char* kSelfReport = TAV_SELF_REPORT;

} // namespace TAV::test
