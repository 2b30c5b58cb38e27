#include "KestovaStorage/internal/receivebuffer.h"

#include <string>

#include <gtest/gtest.h>

namespace
{
class tReceiveBufferTest : public testing::Test
{
protected:
    void receive(const std::string& bytes) { m_buffer.append(bytes.data(), bytes.size()); }
    std::string taken()
    {
        m_buffer.take();
        return {m_buffer.bytes(), m_buffer.len()};
    }

    tReceiveBuffer m_buffer;
};

TEST_F(tReceiveBufferTest, putsTheRestInFrontOfWhatComesNext)
{
    receive("abc");
    receive("def");
    EXPECT_EQ(taken(), "abcdef");
    m_buffer.done(4);
    receive("ghijkl");
    EXPECT_EQ(taken(), "efghijkl");
    m_buffer.done(8);
    EXPECT_TRUE(m_buffer.empty());
    receive("m");
    EXPECT_EQ(taken(), "m");
}

TEST_F(tReceiveBufferTest, carriesALongRestThroughManySmallChunks)
{
    std::string rest(tReceiveBuffer::cHeadroom, 'r');
    receive(rest);
    EXPECT_EQ(taken(), rest);
    m_buffer.done(0);
    std::size_t received = 0;
    for (int i = 0; i < 2'000; ++i)  // far beyond the end of a region
    {
        const std::string chunk(999, static_cast<char>('a' + i % 26));
        receive(chunk);
        received += chunk.size();
        rest += chunk;
        ASSERT_EQ(taken(), rest);
        m_buffer.done(chunk.size());
        rest.erase(0, chunk.size());
    }
    EXPECT_EQ(received, 1'998'000U);
    EXPECT_LE(m_buffer.memory(), 2 * tReceiveBuffer::cUsualSize);
}

TEST_F(tReceiveBufferTest, forgetsWhatIsNotTakenAndKeepsTheRest)
{
    receive("abc");
    taken();
    receive("def");
    m_buffer.clear();
    EXPECT_TRUE(m_buffer.empty());
    receive("ghi");
    EXPECT_EQ(taken(), "abcghi");
    m_buffer.takeBack();
    receive("jklmno");
    EXPECT_EQ(taken(), "abcjklmno");
}

TEST_F(tReceiveBufferTest, givesTheMemoryOfALargeBacklogBack)
{
    const std::string chunk(32 * 1024 * 1024, 'x');
    receive(chunk);
    receive(chunk);
    EXPECT_EQ(taken(), chunk + chunk);
    receive(chunk);
    EXPECT_GT(m_buffer.memory(), 3 * chunk.size());
    m_buffer.done(2 * chunk.size() - 5);
    m_buffer.clear();
    m_buffer.cutBackParsed();
    m_buffer.cutBackReceived();
    EXPECT_LE(m_buffer.memory(), 2 * tReceiveBuffer::cKeptSize);
    receive("yz");
    EXPECT_EQ(taken(), "xxxxxyz");
}
}  // namespace
