#include "KestovaStorage/packagebuilderandsplitter.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/packagerecorder.h"
#include "support/radarpackages.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;

namespace
{
const tUdpMsgInfo cInfo{1, 2, eRadarClientType, 3, 4};

// Keeps console lines that are not what a test is about out of its output.
struct tSilence
{
    tSilence() { testing::internal::CaptureStdout(); }
    ~tSilence() { testing::internal::GetCapturedStdout(); }
};

class tPackageBuilderAndSplitterTest : public testing::Test
{
protected:
    void SetUp() override { m_object.AddPackageObserer(&m_seen); }
    void load(const std::string& bytes) { m_object.LoadRecBuff(bytes.data(), static_cast<int>(bytes.size())); }
    void build(const std::string& payload, unsigned long timestamp = 1)
    {
        m_object.BuildPackage(cInfo, "239.17.0.1", 6001, payload.data(), static_cast<int>(payload.size()), timestamp);
    }
    // Ends the calls to m_seen, so that what they use may go; twice, since a call under way may have added it again.
    void endCalls()
    {
        m_object.RemovePackageObserer(&m_seen);
        m_object.RemovePackageObserer(&m_seen);
    }
    bool splits(std::size_t number)
    {
        return waitUntil([&] { return m_seen.splitted().size() >= number; });
    }

    tPackageRecorder m_seen;  // outlives the object
    tPackageBuilderAndSplitter m_object;
};

TEST_F(tPackageBuilderAndSplitterTest, buildsPackagesByteForByte)
{
    m_object.SetID(9);
    m_object.BuildPackage(cInfo, "239.17.0.1", 6001, "payload", 7, 1'700'000'000'123);
    ASSERT_TRUE(m_object.WaitBuildIdle(5000));
    const auto calls = m_seen.builded();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].bytes,
              std::string("Quorvale\x01\x02\x08\x03\x04\0\0\0\0\xef\x11\0\x01\x71\x17\x7b\x68\xe5\xcf\x8b"
                          "\x01\0\0\x07\0payloadZQ_Radar",
                          48));
    EXPECT_EQ(calls[0].id, 9);
    EXPECT_EQ(calls[0].timestamp, 1'700'000'000'123UL);
    EXPECT_EQ(m_object.GetBuildedPackageCnt(), 1U);
}

TEST_F(tPackageBuilderAndSplitterTest, takesMissingPartsOfAMessageAsNothing)
{
    const auto before = std::chrono::system_clock::now().time_since_epoch() / 1ms;
    m_object.BuildPackage(cInfo, nullptr, 65536 + 258, "x", -1, 0);
    m_object.BuildPackage(cInfo, "no address", 1, nullptr, 5, 1);
    ASSERT_TRUE(m_object.WaitBuildIdle(5000));
    const auto calls = m_seen.builded();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].bytes.size(), 41U);
    EXPECT_EQ(calls[0].bytes.substr(17, 6), std::string("\0\0\0\0\x02\x01", 6));
    EXPECT_EQ(calls[0].bytes.substr(31), std::string("\0\0ZQ_Radar", 10));
    EXPECT_GE(calls[0].timestamp, static_cast<unsigned long>(before));
    EXPECT_LE(calls[0].timestamp, static_cast<unsigned long>(before) + 60'000);
    EXPECT_EQ(calls[1].bytes.size(), 41U);
}

TEST_F(tPackageBuilderAndSplitterTest, keepsPayloadsBeyondTheLengthField)
{
    for (const std::size_t len : {65495U, 65507U, 65536U, 300'000U})
    {
        SCOPED_TRACE(len);
        build(std::string(len, 'p'));
        ASSERT_TRUE(m_object.WaitBuildIdle(5000));
        const std::string bytes = m_seen.builded().back().bytes;
        EXPECT_EQ(bytes.size(), len + 41);
        EXPECT_EQ(bytes.substr(31, 2), littleEndian(len, 2));
        EXPECT_EQ(bytes.substr(len + 31), "ppZQ_Radar");
    }
}

TEST_F(tPackageBuilderAndSplitterTest, stampsReadyPackagesInPlaceAndIgnoresShortOnes)
{
    std::string package = makePackage(77, "ready");
    build("first");
    m_object.BuildPackage(package.data(), 40);
    m_object.BuildPackage(package.data(), -5);
    m_object.BuildPackage(nullptr, 50);
    m_object.BuildPackage(package.data(), static_cast<int>(package.size()));
    ASSERT_TRUE(m_object.WaitBuildIdle(5000));
    EXPECT_EQ(package, makePackage(1, "ready"));
    const auto calls = m_seen.builded();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[1].bytes, package);
    EXPECT_EQ(calls[1].timestamp, 1'700'000'000'123UL);
}

TEST_F(tPackageBuilderAndSplitterTest, numbersPackagesOfManyThreadsInTheOrderOfTheirDelivery)
{
    constexpr std::size_t cThreads = 4, cEach = 300;
    std::vector<std::thread> producers;
    for (std::size_t t = 0; t < cThreads; ++t)
        producers.emplace_back([&, t] {
            for (std::size_t i = 0; i < cEach; ++i)
                build(std::string(i % 4 == t ? 130'000 : 100, 'p'));
        });
    for (auto& producer : producers)
        producer.join();
    ASSERT_TRUE(m_object.WaitBuildIdle(10'000));
    const auto calls = m_seen.builded();
    ASSERT_EQ(calls.size(), cThreads * cEach);
    for (std::size_t i = 0; i < calls.size(); ++i)
        ASSERT_EQ(calls[i].bytes.substr(13, 4), littleEndian(i, 4));
}

TEST_F(tPackageBuilderAndSplitterTest, splitsTheSameInChunksOfAnySize)
{
    const std::string stream = makePackage(0) + makePackage(1, "one") + makePackage(2, std::string(5000, 'p'));
    for (const char& byte : stream)
        m_object.LoadRecBuff(&byte, 1);
    ASSERT_TRUE(splits(3));
    m_object.Clear();
    load(stream);
    m_object.LoadRecBuff(stream.data(), 0);
    m_object.LoadRecBuff(stream.data(), -1);
    m_object.LoadRecBuff(nullptr, 10);
    ASSERT_TRUE(splits(6));
    std::string all;
    for (const auto& call : m_seen.splitted())
        all += call.bytes;
    EXPECT_EQ(all, stream + stream);
}

TEST_F(tPackageBuilderAndSplitterTest, deliversReadAndWriteKindsOnAnotherThread)
{
    for (unsigned kind = 0; kind < 256; ++kind)
        load(makePackage(kind, "", static_cast<tMsgType>(kind)));
    ASSERT_TRUE(splits(256));
    const auto calls = m_seen.splitted();
    std::thread::id parse;
    for (const auto& call : calls)
        if (call.bytes[10] == eIdentify)
            parse = call.thread;
    for (const auto& call : calls)
        EXPECT_EQ(call.thread != parse, call.bytes[10] == eReadType || call.bytes[10] == eWriteType) << call.bytes[10];
}

TEST_F(tPackageBuilderAndSplitterTest, deliversEverySinglePackageWithoutAnotherPush)
{
    for (std::uint32_t i = 0; i < 500; ++i)  // a lost wake-up would leave one behind
    {
        load(makePackage(3 * i));
        load(makePackage(3 * i + 1, "", eReadType));
        build("x");
        ASSERT_TRUE(splits(2 * i + 2));
        ASSERT_TRUE(m_object.WaitBuildIdle(5000));
        m_object.Clear();
    }
}

TEST_F(tPackageBuilderAndSplitterTest, losesNoWakeUpToClear)
{
    const tSilence silence;
    std::atomic<bool> cleared{false};
    std::thread clearer([&] {
        for (int i = 0; i < 5'000; ++i)
            m_object.Clear();
        cleared = true;
    });
    for (std::uint32_t i = 0; !cleared; ++i)
        load(makePackage(i, "", i % 2 == 0 ? eIdentify : eReadType));
    clearer.join();
    m_object.Clear();
    load(makePackage(1, "last one", eIdentify) + makePackage(2, "last one", eReadType));
    EXPECT_TRUE(waitUntil([&] {
        std::size_t last = 0;
        for (const auto& call : m_seen.splitted())
            last += call.bytes.find("last one") != std::string::npos;
        return last == 2;
    }));
}

TEST_F(tPackageBuilderAndSplitterTest, tellsOfMoreThanFiftyWaitingPackages)
{
    tGate gate;
    m_seen.m_onCall = [&] { gate.pass(); };
    testing::internal::CaptureStdout();
    load(makePackage(0, "", eReadType));
    ASSERT_TRUE(splits(1));
    for (std::uint32_t i = 1; i <= 53; ++i)
        load(makePackage(i, "", eWriteType));
    load(makePackage(54));
    ASSERT_TRUE(splits(2));  // the parse thread stands at the gate too, all before is with the pop thread
    gate.open();
    ASSERT_TRUE(splits(55));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Received Parsed Tcp Package List Size: 52\r\n"
                                                      "Received Parsed Tcp Package List Size: 51\r\n");
    endCalls();
}

TEST_F(tPackageBuilderAndSplitterTest, printsDamageWithItsIdentity)
{
    m_object.SetID(-4);
    testing::internal::CaptureStdout();
    load("check!" + makePackage(3) + makePackage(9));
    ASSERT_TRUE(splits(2));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "... Client ID:-4 HeartBeat!\r\n"
                                                      "\t *** discontinuous data, cnt 4 rec 9 ***\r\n");
    EXPECT_EQ(m_seen.splitted()[0].id, -4);
}

TEST_F(tPackageBuilderAndSplitterTest, forgetsOnClearWhatWaits)
{
    tGate gate;
    m_seen.m_onCall = [&] { gate.pass(); };
    build("built");
    load(makePackage(5, "", eReadType) + makePackage(6, "", eReadType) + makePackage(7));
    ASSERT_TRUE(waitUntil([&] { return m_seen.count() == 3; }));  // all three threads stand at the gate
    load(makePackage(8, "forgotten"));
    build("kept");
    testing::internal::CaptureStdout();
    m_object.Clear();
    EXPECT_EQ(m_object.GetSplittedPackageCnt(), 0U);
    EXPECT_EQ(m_object.GetBuildedPackageCnt(), 0U);
    gate.open();
    load(makePackage(500));
    ASSERT_TRUE(splits(3));
    ASSERT_TRUE(m_object.WaitBuildIdle(5000));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(m_seen.splitted()[2].bytes, makePackage(500));
    EXPECT_EQ(m_seen.builded().size(), 2U);
    endCalls();
}

TEST_F(tPackageBuilderAndSplitterTest, waitsForIdleNoLongerThanAsked)
{
    tGate gate;
    std::atomic<int> inside{-1};
    m_seen.m_onCall = [&] {
        inside = m_object.WaitBuildIdle(60'000);
        gate.pass();
    };
    EXPECT_TRUE(m_object.WaitBuildIdle(0));
    build("x");
    EXPECT_FALSE(m_object.WaitBuildIdle(20));
    gate.open();
    EXPECT_TRUE(m_object.WaitBuildIdle(5000));
    EXPECT_EQ(inside, 0);
    endCalls();
}

TEST_F(tPackageBuilderAndSplitterTest, callsObserversInTheOrderOfRegistration)
{
    std::string order;
    tPackageRecorder a, b;
    a.m_onCall = [&] { order += 'a'; };
    b.m_onCall = [&] { order += 'b'; };
    for (tPackageRecorder* observer : {&b, &a, &b})
        m_object.AddPackageObserer(observer);
    m_object.AddPackageObserer(nullptr);
    build("x");
    ASSERT_TRUE(m_object.WaitBuildIdle(5000));
    EXPECT_EQ(order, "bab");
    m_object.RemovePackageObserer(&b);
    build("x");
    ASSERT_TRUE(m_object.WaitBuildIdle(5000));
    EXPECT_EQ(order, "baba");
    m_object.RemovePackageObserer(&a);
}

TEST_F(tPackageBuilderAndSplitterTest, removesAnObserverOnlyWhenNoCallToItIsUnderWay)
{
    std::size_t expected = 0;
    for (const tMsgType kind : {eIdentify, eReadType})
    {
        tGate gate;
        std::atomic<bool> inside{false}, removed{false};
        auto observer = std::make_unique<tPackageRecorder>();
        observer->m_onCall = [&] {
            inside = true;
            gate.pass();
            EXPECT_FALSE(removed);
            inside = false;
        };
        m_object.AddPackageObserer(observer.get());
        load(makePackage(0, "", kind));
        ASSERT_TRUE(waitUntil([&] { return inside.load(); }));
        std::thread remover([&] {
            m_object.RemovePackageObserer(observer.get());
            removed = true;
            EXPECT_FALSE(inside);
        });
        EXPECT_FALSE(waitUntil([&] { return removed.load(); }, 30ms));
        gate.open();
        remover.join();
        observer.reset();
        load(makePackage(1, "", kind));
        expected += 2;
        ASSERT_TRUE(splits(expected));
    }
}

TEST_F(tPackageBuilderAndSplitterTest, doesNotCallAnObserverThatTheOneBeforeItRemoved)
{
    auto second = std::make_unique<tPackageRecorder>();
    m_seen.m_onCall = [&] {
        m_object.RemovePackageObserer(second.get());
        second.reset();
    };
    m_object.AddPackageObserer(second.get());
    load(makePackage(0));
    load(makePackage(1));
    EXPECT_TRUE(splits(2));
    endCalls();
}

TEST_F(tPackageBuilderAndSplitterTest, letsObserversCallEveryOperation)
{
    const tSilence silence;
    std::atomic<int> rounds{0};
    tPackageRecorder other;
    m_seen.m_onCall = [&] {
        if (++rounds > 60)
            return;
        m_object.AddPackageObserer(&other);
        m_object.SetID(rounds);
        build("again");
        load(makePackage(0, "", rounds % 2 == 0 ? eIdentify : eReadType));
        m_object.RemovePackageObserer(&other);
        m_object.RemovePackageObserer(&m_seen);
        m_object.AddPackageObserer(&m_seen);
        if (rounds % 7 == 0)
            m_object.Clear();
    };
    build("start");
    load(makePackage(0) + makePackage(1, "", eReadType));
    build("start");
    EXPECT_TRUE(waitUntil([&] {
        load(makePackage(0));  // another thread may have removed the observer just when the last one came
        return rounds > 60;
    }));
    endCalls();
}

}  // namespace
