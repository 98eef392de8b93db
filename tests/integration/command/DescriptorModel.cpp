#include "DescriptorModel.h"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>

namespace TAV::test
{
namespace
{

/// A process as far as descriptors are concerned.
struct Simulation
{
    DescriptorTable table;
    int limit = 0;
    std::set<int> kept;

    bool keeps(int fd) const { return kept.count(fd) != 0; }

    int open(const std::string& what)
    {
        for (int fd = 0; fd < limit; ++fd)
        {
            if (table.emplace(fd, what).second)
                return fd;
        }
        return -1;
    }

    bool dup2(int from, int to)
    {
        if (table.count(from) == 0)
            return false;
        table[to] = std::string(table.at(from));
        return true;
    }

    void close(int fd) { table.erase(fd); }

    void closeUnkept(int first, int last)
    {
        for (auto entry = table.lower_bound(first); entry != table.end() && entry->first <= last;)
            entry = keeps(entry->first) ? std::next(entry) : table.erase(entry);
    }

    /// @return false if /dev/null cannot be opened
    bool fillWithDevNull()
    {
        if (keeps(0) && keeps(1) && keeps(2))
            return true;
        const int null = open("+ /dev/null");
        if (null < 0)
            return false;
        for (int fd = 0; fd < 3; ++fd)
        {
            if (!keeps(fd) && fd != null)
                dup2(null, fd);
        }
        close(null);
        return true;
    }
};

ChildFate executeChild(Simulation child, int errWriteEnd)
{
    child.dup2(errWriteEnd, 2);
    child.closeUnkept(3, child.limit); // the limit itself is the first number that is tried
    child.closeUnkept(0, 1);
    if (!child.fillWithDevNull())
        return {ChildFate::Kind::ComesBack, child.table, true, "Failed to open /dev/null"};
    return {ChildFate::Kind::RunsProgram, child.table, false, ""};
}

ChildFate captureChild(Simulation child, std::array<int, 2> errPipe, std::array<int, 2> outPipe)
{
    child.closeUnkept(0, child.limit - 1); // the limit itself stays open
    if (!child.fillWithDevNull())
        return {ChildFate::Kind::ComesBack, child.table, false, "Failed to open /dev/null"};
    if (child.keeps(2))
    {
        if (!child.dup2(errPipe[1], 2))
            return {ChildFate::Kind::ComesBack,
                    child.table,
                    false,
                    std::string("Failed to duplicate STDERR in child process. Error was ") + std::strerror(EBADF)};
        child.close(errPipe[0]);
        child.close(errPipe[1]);
    }
    if (!child.dup2(outPipe[1], 1))
        return {ChildFate::Kind::ComesBack,
                child.table,
                false,
                std::string("Failed to duplicate Stdout in child process. Error was ") + std::strerror(EBADF)};
    child.close(outPipe[0]);
    child.close(outPipe[1]);
    return {ChildFate::Kind::RunsProgram, child.table, false, ""};
}

} // namespace

ChildFate predictChild(Operation operation, const CallerState& caller, const std::map<int, bool>* keepMap)
{
    Simulation process{caller.table, caller.limit, {}};
    if (keepMap != nullptr)
    {
        for (const auto& [fd, keep] : *keepMap)
        {
            if (keep)
                process.kept.insert(fd);
        }
    }
    std::array<int, 2> errPipe{-1, -1};
    if (keepMap == nullptr || process.keeps(2))
    {
        errPipe = {process.open("r " + caller.errPipe), process.open("w " + caller.errPipe)};
        if (errPipe[0] < 0 || errPipe[1] < 0)
            return {ChildFate::Kind::NeverMade, {}, false, "Failed to create Pipe FD to execute system command"};
        process.kept = {2, errPipe[0], errPipe[1]};
    }
    if (operation == Operation::Execute)
        return executeChild(process, errPipe[1]);
    process.kept.insert({1, caller.outPipe[0], caller.outPipe[1]});
    return captureChild(process, errPipe, caller.outPipe);
}

} // namespace TAV::test
