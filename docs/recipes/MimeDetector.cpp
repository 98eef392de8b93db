// Recipe: one libmagic instance per thread, closed once, with answers that outlive the next query.

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/TemporaryDirectory.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"

namespace
{

namespace fs = std::filesystem;

//! [mime detector]
/// Opened and loaded for as long as it lives. For one thread: make one in each.
class MimeDetector
{
public:
    /// @throws TAV::FMXException  if the database cannot be loaded
    explicit MimeDetector(const char* database = nullptr)
    {
        m_magic.magicOpen();
        try
        {
            m_magic.magicLoad(database);
        }
        catch (...)
        {
            m_magic.magicClose();
            throw;
        }
    }
    MimeDetector(const MimeDetector&) = delete;
    MimeDetector& operator=(const MimeDetector&) = delete;
    ~MimeDetector() { m_magic.magicClose(); }

    /// The MIME type, as a text of the caller's own; nothing if the file is missing or its content may not be read.
    std::optional<std::string> typeOf(const std::string& path)
    {
        const char* answer = m_magic.magicFile(path.c_str());
        if (answer == nullptr)
            return std::nullopt; // what older libmagic says of a missing file
        std::string type = answer;
        // Today's says "cannot open ..." or "regular file, no read permission": a type has a slash in its first word.
        if (type.substr(0, type.find(' ')).find('/') == std::string::npos)
            return std::nullopt;
        return type;
    }

private:
    TAV::MagicUtils m_magic;
};
//! [mime detector]

TEST(MimeDetectorTest, KeepsAnswerBeyondNextQuery)
{
    const TAV::test::TemporaryDirectory directory;
    MimeDetector detector;
    const auto text = detector.typeOf(directory.write("text", "plain words\n"));
    const auto image = detector.typeOf(directory.write("image", "GIF89a\x01\x01\x01\x01"));

    EXPECT_EQ(text, "text/plain");
    EXPECT_EQ(image, "image/gif");
}

TEST(MimeDetectorTest, TellsMissingFileFromType)
{
    const TAV::test::TemporaryDirectory directory;

    EXPECT_EQ(MimeDetector().typeOf(directory.file("missing")), std::nullopt);
}

TEST(MimeDetectorTest, TellsFileThatMayNotBeReadFromType)
{
    const TAV::test::TemporaryDirectory directory;
    fs::permissions(directory.path(), fs::perms(0755));
    for (const auto& [name, mode] : {std::pair{"none", 0}, {"executable", 0111}, {"writable", 0222}})
        fs::permissions(directory.write(name, "plain words\n"), fs::perms(mode));
    TAV::test::SharedNotes notes;
    TAV::test::SacrificialProcess process(
        [&]
        {
            constexpr uid_t kNobody = 65534;
            if (::geteuid() == 0 && ::seteuid(kNobody) != 0) // root reads everything
                throw std::runtime_error("cannot become somebody else");
            MimeDetector detector;
            for (const char* name : {"none", "executable", "writable"})
                notes.add(detector.typeOf(directory.file(name)).value_or("nothing"));
        });

    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(notes.text(), "nothing\nnothing\nnothing\n");
}

TEST(MimeDetectorTest, ClosesInstanceWhoseDatabaseCannotBeLoaded)
{
    const TAV::test::TemporaryDirectory directory;

    // The leak sanitizer watches the instance.
    EXPECT_THROW(MimeDetector(directory.file("missing").c_str()), TAV::FMXException);
}

TEST(MimeDetectorTest, ServesThreadsWithOneInstanceEach)
{
    const TAV::test::TemporaryDirectory directory;
    const std::string path = directory.write("text", "plain words\n");
    std::vector<std::optional<std::string>> answers(4);
    std::vector<std::thread> threads;
    threads.reserve(answers.size());
    for (auto& answer : answers)
        threads.emplace_back([&answer, &path] { answer = MimeDetector().typeOf(path); });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(answers, std::vector<std::optional<std::string>>(4, "text/plain"));
}

} // namespace
