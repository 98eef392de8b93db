#include <cerrno>
#include <climits>
#include <type_traits>

#include "CommandFixture.h"

namespace TAV
{
namespace
{

using test::KeepMap;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DescriptorsTest : public test::CommandFixture
{
};

TEST_F(DescriptorsTest, ClosesBothEndsOfAPipeInOrder)
{
    std::array<int, 2> fds{40, 41};
    m_utils.closePipeFds(fds);
    EXPECT_THAT(m_system->calls(), ElementsAre("close(40)", "close(41)"));
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(DescriptorsTest, LeavesZerosInAClosedPair)
{
    std::array<int, 2> fds{40, 41};
    m_utils.closePipeFds(fds);
    EXPECT_THAT(fds, ElementsAre(0, 0));
}

TEST_F(DescriptorsTest, ClosesWhateverNumbersThePairHolds)
{
    std::array<int, 2> fds{-1, -1};
    m_utils.closePipeFds(fds);
    m_utils.closePipeFds(fds);
    EXPECT_THAT(m_system->calls(), ElementsAre("close(-1)", "close(-1)", "close(0)", "close(0)"));
}

TEST_F(DescriptorsTest, PairEndsAsZerosHoweverClosingFails)
{
    for (const int err : {EBADF, EINTR, EIO, ENOSPC})
    {
        m_system->succeed();
        m_system->failCall("close", 1, err, test::Lasting::FromThenOn);
        std::array<int, 2> fds{7, 8};
        m_utils.closePipeFds(fds);
        EXPECT_THAT(fds, ElementsAre(0, 0)) << err;
    }
    EXPECT_EQ(m_system->countOf("close"), 8U) << "the second end must be closed although the first one failed";
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(DescriptorsTest, KeepsOnlyWhatAMapNamesWithTrue)
{
    const KeepMap map{{-1, true}, {0, true}, {1, false}, {2, true}, {INT_MAX, true}};
    const std::map<int, bool> expected{{-1, true},
                                       {0, true},
                                       {1, false},
                                       {2, true},
                                       {3, false},
                                       {INT_MAX, true},
                                       {INT_MAX - 1, false},
                                       {INT_MIN, false}};
    for (const auto& [fd, kept] : expected)
    {
        EXPECT_EQ(m_utils.checkIfFdToBeKeptOpen(fd, &map), kept) << fd;
        EXPECT_FALSE(m_utils.checkIfFdToBeKeptOpen(fd, nullptr)) << fd;
    }
    EXPECT_EQ(map.size(), 5U) << "asking must not insert";
    EXPECT_THAT(m_system->calls(), IsEmpty());
}

TEST_F(DescriptorsTest, DuplicatesOntoADescriptorThatIsNotKept)
{
    const KeepMap map{{1, false}, {2, true}};
    m_utils.duplicateFd(7, 0, nullptr, 0);
    m_utils.duplicateFd(7, 0, &map, 0);
    m_utils.duplicateFd(7, 1, &map, 0);
    EXPECT_THAT(m_system->calls(), ElementsAre("dup2(7, 0)", "dup2(7, 0)", "dup2(7, 1)"));
}

TEST_F(DescriptorsTest, LeavesAKeptDescriptorAlone)
{
    const KeepMap map{{2, true}};
    m_utils.duplicateFd(7, 2, &map, 0);
    EXPECT_THAT(m_system->calls(), IsEmpty());
}

TEST_F(DescriptorsTest, DoesNotDuplicateOntoItself)
{
    const KeepMap map{{7, false}, {8, true}};
    for (const KeepMap* keep : {static_cast<const KeepMap*>(nullptr), &map})
    {
        m_utils.duplicateFd(7, 7, keep, 0);
        m_utils.duplicateFd(8, 8, keep, 0);
    }
    EXPECT_THAT(m_system->calls(), IsEmpty());
}

TEST_F(DescriptorsTest, WhetherTheOldDescriptorIsKeptDoesNotMatter)
{
    const KeepMap map{{7, true}};
    m_utils.duplicateFd(7, 0, &map, 0);
    EXPECT_THAT(m_system->calls(), ElementsAre("dup2(7, 0)"));
}

TEST_F(DescriptorsTest, HandsDuplicationACopyOfTheErrorValue)
{
    int seen = 0;
    m_system->onDup2 = [&seen](int, int, int& err)
    {
        seen = err;
        err = EBUSY;
        return -1;
    };
    int err = EMFILE;
    m_utils.duplicateFd(7, 1, nullptr, err);
    EXPECT_EQ(seen, EMFILE);
    EXPECT_EQ(err, EMFILE);
    EXPECT_THAT(m_logger.lines(), IsEmpty());
}

TEST_F(DescriptorsTest, TheTwoThatChangeNothingAreConst)
{
    static_assert(
        std::is_invocable_r_v<bool, decltype(&TAVUtils::checkIfFdToBeKeptOpen), const TAVUtils&, int, const KeepMap*>);
    static_assert(
        std::is_same_v<decltype(&TAVUtils::duplicateFd), void (TAVUtils::*)(int, int, const KeepMap*, int) const>);
    static_assert(std::is_same_v<decltype(&TAVUtils::closePipeFds), void (TAVUtils::*)(std::array<int, 2>&)>);
}

} // namespace
} // namespace TAV
