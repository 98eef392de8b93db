#pragma once

#include <algorithm>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tav/FMXException.h"
#include "tav/IMagic.h"
#include "tav/testing/Fake.h"

namespace TAV::test
{

/// File types from a table that a test sets. No file is read and libmagic is never called.
///
///     FakeMagic magic;
///     magic.types = {{"/srv/logo.png", "image/png"}, {"/srv/broken", std::nullopt}}; // null for the second
///     magic.failCall("magicLoad", 1, 3);                                             // no database, code 3
///     ...
///     EXPECT_THAT(magic.problems(), IsEmpty());                                      // closed, once
///
/// **Answers.** As with libmagic, an answer dies with the next query, `magicLoad` or `magicClose`: its text is then
/// overwritten by '#', so that a caller who kept the pointer instead of a copy is found out. The memory itself stays
/// until the fake ends.
///
/// **The order of calls** counts as it does with `MagicUtils`: before `magicOpen`, and without a loaded database,
/// queries give null; so they do after a failed `magicLoad`, which also drops the database that was loaded before. What
/// corrupts memory there (a second `magicClose` in a row, a query after it) does nothing here and stands in `problems`.
///
/// **A planned failure** throws from `magicOpen` and `magicLoad`, as FMXException with the error of the plan as its
/// code: plan 1 for `magicOpen` and 3 for `magicLoad`, as the real ones have. `magicFile` and `magicDescriptor` give
/// null. `magicClose` has no failure: a plan for it changes nothing.
///
/// Link `tavutils::tavutils` with it, for the exception.
class FakeMagic : public IMagic, public Fake
{
public:
    using Fake::Fake;

    /// A MIME type, or empty for null.
    using Type = std::optional<std::string>;

    /// The types of files by the path that is asked for.
    std::map<std::string, Type> types;
    /// The types of descriptors by their number, 0 for standard input. One that is not here is looked up in `types` by
    /// the path that it was opened with; one that is not open gives null, and -1 "application/x-empty", as with today's
    /// libmagic: check what open(2) gave before.
    std::map<int, Type> descriptorTypes;
    /// What has no entry in the tables. Note that libmagic answers for a missing file with a text like
    /// "cannot open `/x' (No such file or directory)", and for one that may not be read with "regular file, no read
    /// permission".
    Type defaultType = "application/octet-stream";
    /// The message of a planned failure of `magicLoad`.
    std::string loadError = "the database cannot be loaded";

    /// What is wrong by now, empty if nothing is: first each wrong call, in order; then whether the instance is still
    /// open. "magicClose: closed before", "magicFile: no database loaded", "not closed". Ask when the tested code is
    /// through.
    std::vector<std::string> problems() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> problems = m_problems;
        if (m_state == State::Open || m_state == State::Loaded)
            problems.emplace_back("not closed");
        return problems;
    }

    /// Loads a database if an instance is open; the path is only noted.
    void magicLoad(const char* path) override;
    /// Looks the path up; null stands for standard input.
    const char* magicFile(const char* path) override;
    /// Closes the instance, if there is one.
    void magicClose() override;
    /// Makes an instance. One that is open already is lost, which is a problem.
    void magicOpen() override;
    /// Looks the descriptor up.
    const char* magicDescriptor(int fd) override;

private:
    enum class State
    {
        Closed,
        Open,
        Loaded,
        Released, ///< closed, and the owner still holds the stale handle
    };

    Type typeOf(const std::string& path) const;
    Type typeOf(int fd) const;
    const char* answer(const char* operation, const Type& type);
    void endAnswer();

    mutable std::mutex m_mutex;
    State m_state = State::Closed;
    std::vector<std::string> m_problems;
    std::deque<std::string> m_answers; ///< all of them: a kept pointer stays one into memory of ours
};

inline void FakeMagic::magicLoad(const char* path)
{
    const auto fault = enter("magicLoad", path == nullptr ? "null" : path);
    const std::lock_guard<std::mutex> lock(m_mutex);
    constexpr int kDatabaseFailure = 3;
    if (m_state == State::Released)
        m_problems.emplace_back("magicLoad: closed before");
    if (m_state == State::Closed || m_state == State::Released)
        throw FMXException(fault.value_or(kDatabaseFailure), "Magic database is not open");
    endAnswer();
    m_state = fault ? State::Open : State::Loaded;
    if (fault)
        throw FMXException(*fault, loadError);
}

inline const char* FakeMagic::magicFile(const char* path)
{
    const auto fault = enter("magicFile", path == nullptr ? "null" : path);
    return answer("magicFile", fault ? std::nullopt : path == nullptr ? typeOf(0) : typeOf(path));
}

inline void FakeMagic::magicClose()
{
    enter("magicClose", "", false);
    const std::lock_guard<std::mutex> lock(m_mutex);
    endAnswer();
    if (m_state == State::Released)
        m_problems.emplace_back("magicClose: closed before");
    if (m_state != State::Closed)
        m_state = State::Released;
}

inline void FakeMagic::magicOpen()
{
    const auto fault = enter("magicOpen", "");
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Open || m_state == State::Loaded)
        m_problems.emplace_back("magicOpen: the former instance is not closed");
    m_state = fault ? State::Closed : State::Open;
    if (fault)
        throw FMXException(*fault, "Failed to create magic instance");
}

inline const char* FakeMagic::magicDescriptor(int fd)
{
    const auto fault = enter("magicDescriptor", std::to_string(fd));
    return answer("magicDescriptor", fault ? std::nullopt : typeOf(fd));
}

inline FakeMagic::Type FakeMagic::typeOf(const std::string& path) const
{
    const auto type = types.find(path);
    return type == types.end() ? defaultType : type->second;
}

inline FakeMagic::Type FakeMagic::typeOf(int fd) const
{
    const auto type = descriptorTypes.find(fd);
    if (type != descriptorTypes.end())
        return type->second;
    if (fd == -1)
        return "application/x-empty";
    std::error_code isNotOpen;
    const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), isNotOpen);
    return isNotOpen ? std::nullopt : typeOf(path.string());
}

/// Ends the answer before, and gives the new one if there is a database to take it from.
inline const char* FakeMagic::answer(const char* operation, const Type& type)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    endAnswer();
    if (m_state != State::Loaded)
    {
        const char* reason = m_state == State::Released ? ": closed before" : ": no database loaded";
        m_problems.push_back(operation + std::string(reason));
        return nullptr;
    }
    return type ? m_answers.emplace_back(*type).c_str() : nullptr;
}

inline void FakeMagic::endAnswer()
{
    if (!m_answers.empty())
        std::fill(m_answers.back().begin(), m_answers.back().end(), '#');
}

} // namespace TAV::test
