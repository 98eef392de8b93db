#include "CommandScene.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "support/SacrificialProcess.h"

namespace TAV::test
{

const KeepMap kKeepNothing;

int WatchedSystemUtils::pipe(std::array<int, 2>& fds, int& err, int flags)
{
    const int result = TAVSystemUtils::pipe(fds, err, flags);
    if (result == 0)
    {
        m_pipeName = describeDescriptor(::getpid(), fds[0]);
        note("pipe " + std::to_string(fds[0]) + " " + std::to_string(fds[1]));
    }
    return result;
}

pid_t WatchedSystemUtils::fork(int& err)
{
    const pid_t pid = TAVSystemUtils::fork(err);
    if (pid > 0)
        note("child " + std::to_string(pid));
    return pid;
}

ssize_t WatchedSystemUtils::read(int fd, void* buffer, std::size_t count, int& err)
{
    note("reading " + std::to_string(fd));
    return TAVSystemUtils::read(fd, buffer, count, err);
}

void WatchedSystemUtils::note(const std::string& line)
{
    if (m_notes != nullptr)
        m_notes->add(line);
}

CommandScene::CommandScene(SharedNotes* notes)
    : system(std::make_shared<WatchedSystemUtils>(notes)),
      utils(system, logger, std::make_shared<kernelVersion>(kernelVersion{6, 1, 0}))
{
}

void noteRun(SharedNotes& notes, const RecordingLogger& logger, const std::function<bool()>& operation, int childExit)
{
    const pid_t before = ::getpid();
    const std::size_t logged = logger.lines().size();
    const bool outcome = operation();
    const std::string who = ::getpid() == before ? "caller" : "child";
    const std::vector<LogLine> lines = logger.lines();
    for (std::size_t i = logged; i < lines.size(); ++i)
    {
        std::ostringstream text;
        text << who << " logged " << lines[i];
        notes.add(text.str());
    }
    notes.add(who + (outcome ? " got true" : " got false"));
    if (::getpid() != before)
        ::_exit(childExit);
}

std::vector<std::string> notesOf(const std::function<bool(TAVUtils&)>& operation, int childExit)
{
    SharedNotes notes;
    SacrificialProcess process(
        [&]
        {
            CommandScene scene;
            noteRun(
                notes, scene.logger, [&] { return operation(scene.utils); }, childExit);
        });
    if (process.wait() != 0)
        throw std::runtime_error("the sacrificial process did not come to its end; its notes:\n" + notes.text());
    return notes.lines();
}

bool runCommand(
    TAVUtils& utils, Operation operation, const std::vector<std::string>& argv, const KeepMap* keep, int* outPipe)
{
    return operation == Operation::Execute ? utils.executeSystemCommand(argv, keep)
                                           : utils.readSystemCommandOutput(argv, keep, outPipe);
}

bool runCommand(TAVUtils& utils, Operation operation, const std::vector<std::string>& argv, const KeepMap* keep)
{
    OutputPipe output;
    return runCommand(utils, operation, argv, keep, output.ends());
}

OutputPipe::OutputPipe()
{
    if (::pipe2(m_ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("cannot make a pipe");
}

OutputPipe::~OutputPipe()
{
    for (const int fd : m_ends)
        ::close(fd);
}

std::string OutputPipe::takeText()
{
    ::close(std::exchange(m_ends[1], -1));
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t size = 1; size > 0;)
    {
        size = ::read(m_ends[0], piece.data(), piece.size());
        text.append(piece.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    return text;
}

std::string waitFailedNote(Operation operation, const std::string& who)
{
    return who + " logged [2] TAVUtils: Failed to wait for child pid exit status in " +
           (operation == Operation::Execute ? "execute" : "read") + " system command";
}

std::string startedNote(const std::vector<std::string>& argv, const std::string& who)
{
    std::string note = who + " logged [6] TAVUtils: Child process called to execute the system command : ";
    for (const std::string& argument : argv)
        note += " " + argument;
    return note;
}

std::string failedNote(int status, const std::string& error, const std::string& rest)
{
    return "caller logged [2] TAVUtils: Child exited abnormally in reading system command output with return status " +
           std::to_string(status) + " and errno - " + error + "." + rest;
}

std::string describeDescriptor(pid_t pid, int fd)
{
    std::array<char, PATH_MAX> target{};
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    const ssize_t size = ::readlink(path.c_str(), target.data(), target.size());
    return {target.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
}

} // namespace TAV::test
