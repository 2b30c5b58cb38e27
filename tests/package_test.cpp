// The package room and its queues: numbering, delivery, the buffer of a received stream and its splitter.
#include <algorithm>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <thread>

#include "KestovaStorage/internal/buffers/receivebuffer.h"
#include "KestovaStorage/internal/buffers/walkqueue.h"
#include "KestovaStorage/internal/package/deliveryworker.h"
#include "KestovaStorage/internal/package/packagebuilder.h"
#include "KestovaStorage/internal/package/packagesplitter.h"
#include "KestovaStorage/packagerecorder.h"
#include "UdpSocket/udpsocket.h"
#include "support/radarpackages.h"
#include "support/recordedpackages.h"
#include "support/tempdir.h"

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(tPackageRecorderTest, recordsGroupNumberAndTimeAndCountsWhatFindsNoFile)
{
    const tTempDir dir;
    storage::tDataStorageIO storage("", ".data");
    Kestova::tPackageRecorder recorder(storage);
    const NetAddress group{net::transAddr("239.17.0.1"), net::HtoNs(6001)};
    recorder.Record({}, group, "no file", 7, 5);
    EXPECT_EQ(storage.GetWriteLostCnt(), 1U);
    ASSERT_TRUE(storage.CreateNewWritingFile(dir.string() + "/", "", false));
    recorder.Record({1, 2, 4, 8, 0}, group, "spoke", 5, 1'700'000'000'123);
    recorder.Record({}, {}, nullptr, 9, 0);
    recorder.Record({}, {}, "none", -1, std::uint64_t{1} << 48);  // later than any recording can be
    recorder.Record({}, {}, noise().data(), 65'507, 7);
    ASSERT_TRUE(storage.WaitWriteIdle(10'000));
    storage.FinishWrite();
    const auto packages = recordedPackages(dir.string());
    ASSERT_EQ(packages.size(), 3U);
    EXPECT_EQ(asText(packages[0].msgInfo) + " " + packages[0].payload, "1,2,4,8,0 spoke");
    EXPECT_TRUE(packages[0].group.ip == group.ip && packages[0].group.port == 6001);
    EXPECT_TRUE(packages[0].timeMs == 1'700'000'000'123 && packages[0].timestamp_ms == packages[0].timeMs);
    EXPECT_TRUE(packages[1].payload.empty() && packages[1].timestamp_ms > packages[0].timestamp_ms);
    EXPECT_EQ(packages[2].payload, noise().substr(0, 65'507));
    EXPECT_TRUE(packages[0].packCnt == 1 && packages[1].packCnt == 2 && packages[2].packCnt == 4);
    EXPECT_TRUE(recorder.GetRecordedCnt() == 5 && storage.GetWriteLostCnt() == 2);
}

TEST(tDeliveryWorkerTest, handsPackagesOverInTheOrderOfTheirNumbers)
{
    tDeliveryWorker queue;
    tPackageBuilder builder(queue);
    std::vector<std::uint32_t> numbers;
    queue.start([&](const char* package, std::size_t len, std::size_t) {
        numbers.push_back(std::uint32_t{asPackage(package, len)->packCnt});
    });
    std::vector<std::thread> producers;
    for (int i = 0; i < 3; ++i)
        producers.emplace_back([&builder, payload = std::string(2 * tDeliveryWorker::cLongSegment, 'p')] {
            for (std::size_t k = 0; k < 30'000; ++k)  // enough that they meet
                builder.build({}, payload.data(), k % 100 == 0 ? payload.size() : k % 10);
        });
    for (std::thread& producer : producers)
        producer.join();
    EXPECT_TRUE(queue.waitIdle(30s));
    EXPECT_EQ(numbers.size(), 90'000U);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

namespace
{
class tPackageRoomsTest : public testing::Test
{
protected:
    void receive(const std::string& bytes) { m_buffer.append(bytes.data(), bytes.size()); }
    std::string taken()
    {
        m_buffer.take();
        return {m_buffer.bytes(), m_buffer.len()};
    }
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
            if (!m_chain.nextBlock())
                return "none";
        return {bytes, len};
    }

    tReceiveBuffer m_buffer;
    tWalkQueue m_chain;
};
using tReceiveBufferTest = tPackageRoomsTest;
using tWalkQueueTest = tPackageRoomsTest;
}  // namespace

TEST_F(tReceiveBufferTest, carriesALongRestThroughManySmallChunks)
{
    std::string rest(tReceiveBuffer::cHeadroom, 'r');
    receive(rest);
    EXPECT_EQ(taken(), rest);
    m_buffer.done(0);
    for (int i = 0; i < 2'000; ++i)  // far beyond the end of a region
    {
        const std::string chunk(999, static_cast<char>('a' + i % 26));
        receive(chunk);
        rest += chunk;
        ASSERT_EQ(taken(), rest);
        m_buffer.done(chunk.size());
        rest.erase(0, chunk.size());
    }
    EXPECT_LE(m_buffer.memory(), 2 * tReceiveBuffer::cUsualSize);
}

TEST_F(tReceiveBufferTest, givesTheMemoryOfALargeBacklogBack)
{
    const std::string chunk(32 * 1024 * 1024, 'x');
    for (int i = 0; i < 2; ++i)
        receive(chunk);
    EXPECT_EQ(taken(), chunk + chunk);
    receive(chunk);
    m_buffer.done(2 * chunk.size() - 5);
    m_buffer.clear();
    m_buffer.shrinkParsed();
    m_buffer.shrinkReceived();
    EXPECT_LT(m_buffer.memory(), chunk.size());
    receive("yz");
    EXPECT_EQ(taken(), "xxxxxyz");
}

TEST_F(tWalkQueueTest, needsNoMoreMemoryForASteadyStreamAndGivesThatOfALargeBacklogBack)
{
    const std::string segment(583, 's');
    std::size_t steady = 0;
    for (int i = 0; i < 10'000; ++i)
    {
        push(segment);
        ASSERT_EQ(next(), segment);
        ASSERT_EQ(next(), "none");
        steady = steady == 0 ? m_chain.memory() : steady;
    }
    EXPECT_EQ(m_chain.memory(), steady);
    for (int i = 0; i < 50'000; ++i)
        push(segment);
    const std::size_t backlog = m_chain.memory();
    for (int i = 0; i < 50'000; ++i)
        ASSERT_EQ(next(), segment);
    EXPECT_EQ(next(), "none");
    m_chain.takeSurplus();
    EXPECT_LT(m_chain.memory(), backlog / 2);
}

namespace
{
using tTexts = std::vector<std::string>;

class tPackageSplitterTest : public testing::Test, protected iSplitterSink
{
protected:
    // Feeds the splitter as its owner does: what it is not done with stays in front. The view is a buffer of exactly
    // its size, so that a read beyond it is found.
    void feed(const std::string& bytes)
    {
        m_rest += bytes;
        const std::vector<char> view(m_rest.begin(), m_rest.end());
        m_rest.erase(0, m_splitter.split(view.data(), view.size()));
    }
    void OnPackage(const char* package, std::size_t len) override
    {
        m_packages.emplace_back(package, len);
        if (m_onPackage)
            m_onPackage();
    }
    void OnLine(const char* text) override { m_lines.emplace_back(text); }
    int Id() const override { return 17; }
    bool GoOn() const override { return true; }

    tPackageSplitter m_splitter{*this};
    std::function<void()> m_onPackage;
    std::string m_rest;
    tTexts m_packages, m_lines;
};

// The lines, exactly as they are printed.
std::string bad(const std::string& what, int remain)
{
    return "\t *** bad " + what + " remain_size " + std::to_string(remain) + " ***\r\n";
}
std::string deleted(int bytes, int remain)
{
    return "\t *** delete " + std::to_string(bytes) + " remain " + std::to_string(remain) + " ***\r\n";
}

TEST_F(tPackageSplitterTest, findsItsWayAgainAfterDamage)
{
    const std::string good = makePackage(0), beat = "... Client ID:17 HeartBeat!\r\n", dots(70, '.');
    const std::string wrongEnd = good.substr(0, 40) + 'R', wrongHead = 'q' + good.substr(1);
    const std::string dotsRead = "head 2E2E2E2E2E2E2E2E:........";
    // Bytes, the lines printed for them, the packages found, the bytes that stay.
    const std::tuple<std::string, tTexts, std::size_t, std::size_t> cases[] = {
        {good.substr(0, 40), {}, 0, 40},
        {"0123456789", {}, 0, 10},  // too short to be judged
        {"0123456789" + good, {bad("head 3736353433323130:01234567", 51), deleted(10, 41)}, 1, 0},
        {dots, {bad(dotsRead, 70), deleted(70, 0)}, 0, 0},
        {dots + good.substr(0, 7), {bad(dotsRead, 77), deleted(77, 0)}, 0, 0},  // a head cut in two
        {wrongHead + good, {bad("head 656C6176726F7571:quorvale", 82), deleted(41, 41)}, 1, 0},
        {std::string("ab\0defgh", 8) + good, {bad("head 6867666564006261:ab", 49), deleted(8, 41)}, 1, 0},
        {wrongEnd + good, {bad("end 52616461525F515A", 82)}, 1, 0},
        // A wrong end loses 41 bytes, not the package.
        {makePackage(0, "ten bytes!", eIdentify, 9) + good,
         {bad("end 616461525F515A21", 92), bad("head 6461525F515A2173:s!ZQ_Rad", 51), deleted(10, 41)},
         1,
         0},
        {makePackage(0, "", eIdentify, 65535), {bad("end 0", 41)}, 0, 0},  // an end that is not there
        {"check1" + std::string(34, '.'), {}, 0, 40},
        {"check1" + good, {beat}, 1, 0},
        {std::string("check\0", 6) + "checkQ" + good, {beat, beat}, 1, 0}};
    for (const auto& [bytes, lines, packages, rest] : cases)
    {
        SCOPED_TRACE(bytes);
        m_packages.clear();
        m_lines.clear();
        m_rest.clear();
        m_splitter.resetCount();
        feed(bytes);
        EXPECT_EQ(m_lines, lines);
        EXPECT_EQ(m_packages, tTexts(packages, good));
        EXPECT_EQ(m_rest.size(), rest);
    }
}

TEST_F(tPackageSplitterTest, reportsAGapOnceAcceptsAnyFirstNumberAndCountsAfterTheDelivery)
{
    std::vector<std::uint32_t> during;
    m_onPackage = [&] { during.push_back(m_splitter.count()); };
    for (const std::uint32_t number : {0U, 1U, 2U, 5U, 6U})
        feed(makePackage(number));
    EXPECT_EQ(m_splitter.count(), 7U);
    m_splitter.resetCount();
    feed(makePackage(4'000'000'000) + makePackage(4'000'000'002));
    EXPECT_THAT(m_lines, ElementsAre("\t *** discontinuous data, cnt 3 rec 5 ***\r\n",
                                     "\t *** discontinuous data, cnt -294967295 rec -294967294 ***\r\n"));
    EXPECT_THAT(during, ElementsAre(0, 1, 2, 5, 6, 4'000'000'000, 4'000'000'002));
}

TEST_F(tPackageSplitterTest, carriesPayloadsOf65494BytesAndNoLongerOnes)
{
    feed(makePackage(0, std::string(65494, 'p')) + makePackage(1, std::string(65495, 'p')));
    EXPECT_EQ(m_packages.size(), 1U);
    EXPECT_THAT(m_lines, ElementsAre(bad("end 72616461525F515A", 65536), bad("head 7070707070707070:pppppppp", 65495),
                                     deleted(65495, 0)));
}
}  // namespace
