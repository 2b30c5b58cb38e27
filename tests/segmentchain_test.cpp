#include "KestovaStorage/internal/segmentchain.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace
{
class tSegmentChainTest : public testing::Test
{
protected:
    void push(const std::string& bytes)
    {
        std::memcpy(m_chain.reserve(bytes.size()), bytes.data(), bytes.size());
        m_chain.publish();
    }
    // The next segment, "none" at the end.
    std::string next()
    {
        const char* bytes = nullptr;
        std::size_t len = 0;
        while (!m_chain.next(bytes, len))
            if (!m_chain.step())
                return "none";
        return {bytes, len};
    }

    tSegmentChain m_chain;
};

TEST_F(tSegmentChainTest, givesSegmentsInTheOrderOfTheirComing)
{
    push("one");
    push("");
    EXPECT_EQ(next(), "one");
    push("three");
    EXPECT_EQ(next(), "");
    EXPECT_EQ(next(), "three");
    EXPECT_EQ(next(), "none");
    push("four");
    EXPECT_EQ(next(), "four");
    EXPECT_EQ(next(), "none");
}

TEST_F(tSegmentChainTest, showsNothingThatIsNotPublished)
{
    push("one");
    m_chain.reserve(3);
    EXPECT_EQ(next(), "one");
    EXPECT_EQ(next(), "none");
}

TEST_F(tSegmentChainTest, takesSegmentsLargerThanABlockAndFilledOnes)
{
    const std::string large(2 * tSegmentChain::cLargestSize, 'l');
    push("one");
    auto filled = tSegmentChain::makeLink(5);
    std::memcpy(filled->reserve(5), "other", 5);
    m_chain.append(std::move(filled));
    push(large);
    push("last");
    EXPECT_EQ(next(), "one");
    EXPECT_EQ(next(), "other");
    EXPECT_EQ(next(), large);
    EXPECT_EQ(next(), "last");
    EXPECT_EQ(next(), "none");
}

TEST_F(tSegmentChainTest, needsOneBlockForASteadyStream)
{
    for (int i = 0; i < 10'000; ++i)
    {
        const std::string segment(583, static_cast<char>('a' + i % 26));
        push(segment);
        ASSERT_EQ(next(), segment);
        ASSERT_EQ(next(), "none");
    }
    EXPECT_EQ(m_chain.memory(), tSegmentChain::cFirstSize);
}

TEST_F(tSegmentChainTest, givesTheMemoryOfALargeBacklogBack)
{
    const std::string segment(1000, 's');
    for (int i = 0; i < 50'000; ++i)
        push(segment);
    EXPECT_GT(m_chain.memory(), 50'000U * 1000);
    for (int i = 0; i < 50'000; ++i)
        ASSERT_EQ(next(), segment);
    EXPECT_EQ(next(), "none");
    m_chain.takeUnneeded();
    EXPECT_LE(m_chain.memory(), tSegmentChain::cKeptSize);
}
}  // namespace
