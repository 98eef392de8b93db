#include "tav/testing/FakeMagic.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <type_traits>

#include "support/TemporaryDirectory.h"
#include "tav/MagicUtils.h"

namespace TAV::test
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StrEq;

/// "code: message" of the exception, or "nothing thrown".
template <typename Call>
std::string thrownBy(const Call& call)
{
    try
    {
        call();
    }
    catch (const FMXException& exception)
    {
        return std::to_string(exception.code) + ": " + exception.message;
    }
    return "nothing thrown";
}

class FakeMagicTest : public testing::Test
{
protected:
    void load()
    {
        magic.magicOpen();
        magic.magicLoad(nullptr);
    }

    FakeMagic magic;
};

TEST_F(FakeMagicTest, TypesComeFromTheTableByPath)
{
    magic.types = {{"/a.png", "image/png"}, {"/broken", std::nullopt}};
    load();
    EXPECT_STREQ(magic.magicFile("/a.png"), "image/png");
    EXPECT_EQ(magic.magicFile("/broken"), nullptr);
    EXPECT_STREQ(magic.magicFile("/else"), "application/octet-stream");
    magic.defaultType = "text/plain";
    EXPECT_STREQ(magic.magicFile("/else"), "text/plain");
    magic.defaultType.reset();
    EXPECT_EQ(magic.magicFile("/else"), nullptr);
    magic.magicClose();
    EXPECT_THAT(magic.problems(), IsEmpty());
}

TEST_F(FakeMagicTest, DescriptorsAreFoundByNumberThenByTheirPath)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("x", "content");
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    magic.types[path] = "image/png";
    load();
    EXPECT_STREQ(magic.magicDescriptor(fd), "image/png");
    magic.descriptorTypes[fd] = "text/html";
    EXPECT_STREQ(magic.magicDescriptor(fd), "text/html");
    magic.descriptorTypes.clear();
    ::close(fd);
    EXPECT_EQ(magic.magicDescriptor(fd), nullptr) << "not open";
}

TEST_F(FakeMagicTest, TheNullPathIsStandardInput)
{
    magic.descriptorTypes[0] = "text/x-c";
    load();
    EXPECT_STREQ(magic.magicFile(nullptr), "text/x-c");
    EXPECT_THAT(magic.calls(), ElementsAre("magicOpen()", "magicLoad(null)", "magicFile(null)"));
}

TEST_F(FakeMagicTest, AnAnswerDiesWithTheNextQueryOrTheClose)
{
    magic.defaultType = "text/plain";
    load();
    const char* const first = magic.magicFile("/a");
    const char* const second = magic.magicFile("/b");
    EXPECT_THAT(first, StrEq("##########")) << "although the types are the same";
    EXPECT_THAT(second, StrEq("text/plain"));
    EXPECT_EQ(magic.magicDescriptor(-2), nullptr);
    EXPECT_THAT(second, StrEq("##########")) << "a query without an answer, too";
    const char* const third = magic.magicFile("/c");
    magic.magicClose();
    EXPECT_THAT(third, StrEq("##########"));
}

TEST_F(FakeMagicTest, AnAnswerDiesWithTheNextLoadWhetherItSucceedsOrFails)
{
    load();
    const char* const first = magic.magicFile("/a");
    magic.magicLoad(nullptr);
    EXPECT_THAT(first, MatchesRegex("#+"));
    const char* const second = magic.magicFile("/a");
    magic.failCall("magicLoad", 1, 3);
    EXPECT_NE(thrownBy([&] { magic.magicLoad(nullptr); }), "nothing thrown");
    EXPECT_THAT(second, MatchesRegex("#+"));
}

TEST_F(FakeMagicTest, PlannedFailuresComeAsTheRealOnesDo)
{
    magic.failCall("magicOpen", 1, 1);
    magic.failCall("magicLoad", 1, 3);
    magic.failCall("magicFile", 1);
    magic.failCall("magicDescriptor", 1);
    magic.loadError = "no such database";
    EXPECT_EQ(thrownBy([&] { magic.magicOpen(); }), "1: Failed to create magic instance");
    EXPECT_EQ(thrownBy([&] { magic.magicOpen(); }), "nothing thrown");
    EXPECT_EQ(thrownBy([&] { magic.magicLoad("/x.mgc"); }), "3: no such database");
    EXPECT_EQ(thrownBy([&] { magic.magicLoad(nullptr); }), "nothing thrown");
    EXPECT_EQ(magic.magicFile("/a"), nullptr);
    EXPECT_NE(magic.magicFile("/a"), nullptr);
    EXPECT_EQ(magic.magicDescriptor(0), nullptr);
    magic.magicClose();
    EXPECT_THAT(magic.problems(), IsEmpty());
    EXPECT_THAT(magic.plan()->pending(), IsEmpty());
}

TEST_F(FakeMagicTest, AnInstanceThatIsNotClosedIsAProblem)
{
    EXPECT_THAT(magic.problems(), IsEmpty());
    magic.magicOpen();
    EXPECT_THAT(magic.problems(), ElementsAre("not closed"));
    magic.magicLoad(nullptr);
    EXPECT_THAT(magic.problems(), ElementsAre("not closed"));
    magic.magicClose();
    EXPECT_THAT(magic.problems(), IsEmpty());
}

TEST_F(FakeMagicTest, WhatWouldCorruptMemoryIsAProblem)
{
    load();
    magic.magicClose();
    EXPECT_EQ(magic.magicFile("/a"), nullptr);
    EXPECT_EQ(magic.magicDescriptor(0), nullptr);
    EXPECT_NE(thrownBy([&] { magic.magicLoad(nullptr); }), "nothing thrown");
    magic.magicClose();
    EXPECT_THAT(magic.problems(),
                ElementsAre("magicFile: closed before",
                            "magicDescriptor: closed before",
                            "magicLoad: closed before",
                            "magicClose: closed before"));
}

TEST_F(FakeMagicTest, ALostInstanceIsAProblemAndANewOneIsNot)
{
    load();
    magic.magicClose();
    load();
    EXPECT_NE(magic.magicFile("/a"), nullptr);
    magic.magicOpen();
    EXPECT_EQ(magic.magicFile("/a"), nullptr) << "the new instance has no database";
    magic.magicClose();
    EXPECT_THAT(magic.problems(),
                ElementsAre("magicOpen: the former instance is not closed", "magicFile: no database loaded"));
}

/// How the two are set up so that they ought to give the same answers.
template <typename Magic>
struct Subject
{
    void prepareLoadFailure() {}
    void setType(const std::string&, const char*) {}

    Magic magic;
};

template <>
void Subject<FakeMagic>::prepareLoadFailure()
{
    magic.failCall("magicLoad", 1, 3);
}

template <>
void Subject<FakeMagic>::setType(const std::string& path, const char* type)
{
    magic.types[path] = type;
}

/// The order of the calls matters in the same way to libmagic and to the fake.
template <typename Magic>
class MagicContractTest : public testing::Test
{
protected:
    MagicContractTest() { subject.setType(text, "text/plain"); }

    bool hasAnswers()
    {
        const int fd = ::open(text.c_str(), O_RDONLY | O_CLOEXEC);
        const bool byDescriptor = magic.magicDescriptor(fd) != nullptr;
        ::close(fd);
        const bool byPath = magic.magicFile(text.c_str()) != nullptr;
        EXPECT_EQ(byDescriptor, byPath);
        return byPath;
    }

    const TemporaryDirectory directory;
    const std::string text = directory.write("text", "plain words\n");
    Subject<Magic> subject;
    IMagic& magic = subject.magic;
};

using Implementations = testing::Types<MagicUtils, FakeMagic>;

class ImplementationNames
{
public:
    template <typename Magic>
    static std::string GetName(int)
    {
        return std::is_same_v<Magic, FakeMagic> ? "Fake" : "Real";
    }
};

TYPED_TEST_SUITE(MagicContractTest, Implementations, ImplementationNames);

TYPED_TEST(MagicContractTest, BeforeOpenQueriesGiveNullAndALoadThrows)
{
    EXPECT_FALSE(this->hasAnswers());
    EXPECT_EQ(thrownBy([&] { this->magic.magicLoad(nullptr); }), "3: Magic database is not open");
    this->magic.magicClose();
}

TYPED_TEST(MagicContractTest, WithoutADatabaseQueriesGiveNull)
{
    this->magic.magicOpen();
    EXPECT_FALSE(this->hasAnswers());
    this->magic.magicClose();
}

TYPED_TEST(MagicContractTest, ALoadedDatabaseAnswers)
{
    this->magic.magicOpen();
    this->magic.magicLoad(nullptr);
    EXPECT_TRUE(this->hasAnswers());
    EXPECT_STREQ(this->magic.magicFile(this->text.c_str()), "text/plain");
    EXPECT_EQ(this->magic.magicDescriptor(-2), nullptr);
    EXPECT_TRUE(this->hasAnswers()) << "usable after a failure";
    EXPECT_STREQ(this->magic.magicDescriptor(-1), "application/x-empty") << "the result of a failed open(2)";
    this->magic.magicClose();
}

TYPED_TEST(MagicContractTest, AFailedLoadDropsTheDatabaseUntilTheNextOne)
{
    this->magic.magicOpen();
    this->magic.magicLoad(nullptr);
    this->subject.prepareLoadFailure();
    const std::string missing = this->directory.file("missing.mgc");
    EXPECT_EQ(thrownBy([&] { this->magic.magicLoad(missing.c_str()); }).substr(0, 2), "3:");
    EXPECT_FALSE(this->hasAnswers());
    this->magic.magicLoad(nullptr);
    EXPECT_TRUE(this->hasAnswers());
    this->magic.magicClose();
}

TYPED_TEST(MagicContractTest, AClosedObjectMayBeOpenedAgain)
{
    for (int round = 0; round < 2; ++round)
    {
        this->magic.magicOpen();
        this->magic.magicLoad(nullptr);
        EXPECT_TRUE(this->hasAnswers());
        this->magic.magicClose();
    }
}

} // namespace
} // namespace TAV::test
