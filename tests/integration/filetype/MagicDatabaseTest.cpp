#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/SacrificialProcess.h"
#include "support/SharedNotes.h"
#include "support/TemporaryDirectory.h"
#include "support/Tools.h"
#include "tav/FMXException.h"
#include "tav/MagicUtils.h"

namespace fs = std::filesystem;

namespace TAV
{
namespace
{

std::string textOf(const char* answer)
{
    return answer == nullptr ? "(null)" : answer;
}

/// libmagic itself, asked without the class under test.
class Libmagic
{
public:
    explicit Libmagic(const char* database = nullptr)
        : m_cookie(magic_open(MAGIC_MIME_TYPE)), m_loaded(magic_load(m_cookie, database))
    {
    }
    Libmagic(const Libmagic&) = delete;
    Libmagic& operator=(const Libmagic&) = delete;
    ~Libmagic() { magic_close(m_cookie); }

    std::string file(const std::string& path) { return textOf(magic_file(m_cookie, path.c_str())); }
    std::string standardInput() { return textOf(magic_file(m_cookie, nullptr)); }
    std::string descriptor(int fd) { return textOf(magic_descriptor(m_cookie, fd)); }
    int loaded() const { return m_loaded; }
    std::string error() const { return textOf(magic_error(m_cookie)); }

private:
    magic_t m_cookie;
    int m_loaded;
};

/// Root reads everything.
void giveUpRoot()
{
    constexpr uid_t kNobody = 65534;
    if (::geteuid() == 0 && ::seteuid(kNobody) != 0)
        throw std::runtime_error("cannot become somebody else");
}

class MagicFileKindsTest : public testing::Test
{
protected:
    MagicFileKindsTest()
    {
        magic.magicOpen();
        magic.magicLoad(nullptr);
    }
    ~MagicFileKindsTest() override { magic.magicClose(); }

    std::string typeOf(const std::string& path) { return textOf(magic.magicFile(path.c_str())); }

    std::string typeOfDescriptor(const std::string& path, int flags = O_RDONLY)
    {
        const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
        EXPECT_GE(fd, 0) << path;
        const std::string type = textOf(magic.magicDescriptor(fd));
        ::close(fd);
        return type;
    }

    const test::TemporaryDirectory directory;
    MagicUtils magic;
};

TEST_F(MagicFileKindsTest, TextIsTextWithoutItsCharacterSet)
{
    EXPECT_EQ(typeOf(directory.write("ascii", "plain words\n")), "text/plain");
    EXPECT_EQ(typeOf(directory.write("utf8", "na\xc3\xafve caf\xc3\xa9\n")), "text/plain");
    EXPECT_EQ(typeOf(directory.write("script", "#!/bin/sh\necho\n")), "text/x-shellscript");
    EXPECT_EQ(typeOfDescriptor(directory.file("script")), "text/x-shellscript");
}

TEST_F(MagicFileKindsTest, EveryKindOfFileGetsLibmagicsOwnAnswer)
{
    Libmagic libmagic;
    const std::string fifo = directory.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    fs::create_symlink("nowhere", directory.file("dangling"));
    fs::create_symlink(directory.write("empty", ""), directory.file("link"));
    for (const std::string& path : {directory.file("empty"),
                                    directory.file("missing"),
                                    directory.file("empty") + "/below",
                                    directory.path(),
                                    fifo,
                                    directory.write("\xff\xfe not UTF-8 \xc3", "plain words\n"),
                                    directory.file("\xff\xfe missing"),
                                    directory.file("dangling"),
                                    directory.file("link"),
                                    std::string("/dev/null"),
                                    std::string("/dev/zero"),
                                    std::string("/proc/version"),
                                    std::string()})
        EXPECT_EQ(typeOf(path), libmagic.file(path)) << path;
}

TEST_F(MagicFileKindsTest, EveryKindOfDescriptorGetsLibmagicsOwnAnswer)
{
    Libmagic libmagic;
    const std::string fifo = directory.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {directory.write("empty", ""),
                                    directory.write("\xff\xfe not UTF-8 \xc3", "plain words\n"),
                                    directory.path(),
                                    fifo,
                                    std::string("/dev/null")})
    {
        const int flags = (path == fifo ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_CLOEXEC;
        const int fd = ::open(path.c_str(), flags);
        ASSERT_GE(fd, 0) << path;
        EXPECT_EQ(textOf(magic.magicDescriptor(fd)), libmagic.descriptor(fd)) << path;
        ::close(fd);
    }
}

TEST_F(MagicFileKindsTest, WhatMayNotBeReadGetsASentence)
{
    fs::permissions(directory.path(), fs::perms(0755));
    Libmagic libmagic;
    test::SharedNotes notes;
    const std::string path = directory.write("file", "plain words\n");
    const auto noteAnswer = [&](int mode)
    {
        fs::permissions(path, fs::perms(mode));
        test::SacrificialProcess process(
            [&]
            {
                giveUpRoot();
                notes.add(typeOf(path) == libmagic.file(path) ? typeOf(path) : "not libmagic's own answer");
            });
        EXPECT_EQ(process.wait(), 0);
    };
    for (const int mode : {0, 0111, 0222, 0444})
        noteAnswer(mode);
    const std::vector<std::string> answers = notes.lines();
    ASSERT_EQ(answers.size(), 4U);
    for (const std::string& answer : {answers[0], answers[1], answers[2]})
        EXPECT_EQ(answer.substr(0, answer.find(' ')).find('/'), std::string::npos) << answer << " looks like a type";
    EXPECT_EQ(answers[3], "text/plain") << "with the right to read";
}

/// Asks about standard input, in a process where that is this file, or is closed if there is none.
std::string typeOfStandardInput(MagicUtils& magic, const std::string& path)
{
    Libmagic libmagic;
    test::SharedNotes notes;
    test::SacrificialProcess process(
        [&]
        {
            ::close(0);
            if (!path.empty() && ::open(path.c_str(), O_RDONLY) != 0)
                throw std::runtime_error("cannot open " + path);
            const std::string type = textOf(magic.magicFile(nullptr));
            ::lseek(0, 0, SEEK_SET);
            notes.add(type == libmagic.standardInput() ? type : "not libmagic's own answer: " + type);
        });
    EXPECT_EQ(process.wait(), 0);
    return notes.text();
}

TEST_F(MagicFileKindsTest, ANullPathStandsForStandardInput)
{
    EXPECT_EQ(typeOfStandardInput(magic, directory.write("image", "GIF89a\x01\x01\x01\x01")), "image/gif\n");
    EXPECT_EQ(typeOfStandardInput(magic, directory.write("text", "plain words\n")), "text/plain\n");
    EXPECT_EQ(typeOfStandardInput(magic, "/dev/null"), "application/x-empty\n") << "read, whatever kind of file it is";
    EXPECT_EQ(typeOfStandardInput(magic, ""), "(null)\n");
}

TEST_F(MagicFileKindsTest, SpecialFilesAreNotOpened)
{
    const std::string fifo = directory.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(typeOf(fifo), "inode/fifo") << "opening it would block";
    EXPECT_EQ(typeOf(directory.path()), "inode/directory");
    EXPECT_EQ(typeOf("/dev/zero"), "inode/chardevice");
}

TEST_F(MagicFileKindsTest, MissingFileThrowsNothing)
{
    // Null, or today's text that says so; never a type.
    EXPECT_EQ(typeOf(directory.file("missing")).find('/') == std::string::npos ||
                  typeOf(directory.file("missing")).rfind("cannot open", 0) == 0,
              true);
}

TEST_F(MagicFileKindsTest, ClosedDescriptorGivesNull)
{
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ::close(fd);
    EXPECT_EQ(magic.magicDescriptor(fd), nullptr);
    EXPECT_NE(magic.magicFile("/dev/null"), nullptr) << "usable after a failure";
}

TEST(MagicUnopenedTest, QueriesGetLibmagicsAnswerToANullHandle)
{
    MagicUtils magic;
    EXPECT_EQ(magic.magicFile("/dev/null"), nullptr);
    EXPECT_EQ(magic.magicDescriptor(0), nullptr);
    EXPECT_THROW(magic.magicLoad(nullptr), FMXException);
    magic.magicClose();
}

TEST(MagicUnopenedTest, QueriesWithoutADatabaseGiveNull)
{
    MagicUtils magic;
    magic.magicOpen();
    EXPECT_EQ(magic.magicFile("/etc/passwd"), nullptr);
    magic.magicClose();
}

constexpr const char* kOwnDatabase = "0\tstring\tTAVX\ta file of our own\n!:mime\tapplication/x-tav-test\n";

class MagicDatabaseTest : public testing::Test
{
protected:
    MagicDatabaseTest() { magic.magicOpen(); }
    ~MagicDatabaseTest() override { magic.magicClose(); }

    /// Compiles the database as an administrator would; the tool writes into its working directory.
    std::string compile(const std::string& source) const
    {
        directory.write("own", source);
        test::outputOf({"sh", "-c", "cd \"$1\" && file -C -m own", "sh", directory.path()});
        return directory.file("own.mgc");
    }

    std::optional<FMXException> loadFailure(const std::string& path)
    {
        try
        {
            magic.magicLoad(path.c_str());
        }
        catch (const FMXException& exception)
        {
            return exception;
        }
        return std::nullopt;
    }

    const test::TemporaryDirectory directory;
    MagicUtils magic;
};

TEST_F(MagicDatabaseTest, OwnCompiledDatabaseDecides)
{
    if (!test::hasTool("file"))
        GTEST_SKIP() << "the program `file` is missing: install the package file";
    const std::string subject = directory.write("subject", "TAVX and more");
    magic.magicLoad(compile(kOwnDatabase).c_str());
    EXPECT_STREQ(magic.magicFile(subject.c_str()), "application/x-tav-test");
    const int fd = ::open(subject.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_STREQ(magic.magicDescriptor(fd), "application/x-tav-test");
    ::close(fd);
    EXPECT_STRNE(magic.magicFile("/proc/self/exe"), "application/x-tav-test");
}

TEST_F(MagicDatabaseTest, OwnSourceDatabaseDecidesToo)
{
    magic.magicLoad(directory.write("own", kOwnDatabase).c_str());
    EXPECT_STREQ(magic.magicFile(directory.write("subject", "TAVX").c_str()), "application/x-tav-test");
}

TEST_F(MagicDatabaseTest, SecondLoadReplacesTheDatabase)
{
    const std::string subject = directory.write("subject", "TAVX");
    magic.magicLoad(directory.write("own", kOwnDatabase).c_str());
    magic.magicLoad(nullptr);
    EXPECT_STREQ(magic.magicFile(subject.c_str()), "text/plain");
}

TEST_F(MagicDatabaseTest, DamagedDatabaseThrowsCodeThreeWithLibmagicsText)
{
    if (!test::hasTool("file"))
        GTEST_SKIP() << "the program `file` is missing: install the package file";
    const std::string compiled = test::readFile(compile(kOwnDatabase));
    std::string otherVersion = compiled;
    otherVersion[4] = '\x63';
    const std::string damaged[] = {directory.write("truncated.mgc", compiled.substr(0, compiled.size() - 5)),
                                   directory.write("version.mgc", otherVersion),
                                   directory.write("garbage.mgc", "nonsense\n"),
                                   directory.file("missing.mgc")};
    for (const std::string& path : damaged)
    {
        const Libmagic libmagic(path.c_str());
        ASSERT_EQ(libmagic.loaded(), -1) << path;
        const auto exception = loadFailure(path);
        ASSERT_TRUE(exception) << path;
        EXPECT_EQ(exception->code, 3);
        EXPECT_EQ(exception->message, libmagic.error());
        EXPECT_NE(exception->message, "") << path;
    }
}

TEST_F(MagicDatabaseTest, LoadAfterAFailedLoadWorks)
{
    EXPECT_TRUE(loadFailure(directory.write("garbage", "nonsense\n")));
    magic.magicLoad(nullptr);
    EXPECT_STREQ(magic.magicFile(directory.write("text", "plain words\n").c_str()), "text/plain");
}

} // namespace
} // namespace TAV
