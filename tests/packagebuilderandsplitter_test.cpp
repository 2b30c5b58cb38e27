#include "KestovaStorage/packagebuilderandsplitter.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <thread>

#include "support/collector.h"
#include "support/gate.h"
#include "support/radarpackages.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;

namespace
{
const tUdpMsgInfo cInfo{1, 2, eRadarClientType, 3, 4};

struct tPackageCall
{
    std::string bytes;
    int id;
    unsigned long timestamp;
    std::thread::id thread;
};

// An observer that keeps every call.
class tPackageCollector : public iPackageObserver
{
public:
    void UpdateSplittedPackage(const tRadarMsgPackage* package, unsigned size, int id) override
    {
        keep(m_splitted, {{reinterpret_cast<const char*>(package), size}, id, 0, std::this_thread::get_id()});
    }
    void UpdateBuildedPackage(const char* package, unsigned size, int id, unsigned long timestamp) override
    {
        keep(m_builded, {{package, size}, id, timestamp, std::this_thread::get_id()});
    }
    std::vector<tPackageCall> splitted() const { return m_splitted.all(); }
    std::vector<tPackageCall> builded() const { return m_builded.all(); }
    std::size_t count() const { return m_splitted.count() + m_builded.count(); }

    std::function<void()> m_onCall;  // set before packages flow; called without a lock

private:
    void keep(tCollector<tPackageCall>& calls, tPackageCall call)
    {
        calls.add(std::move(call));
        if (m_onCall)
            m_onCall();
    }

    tCollector<tPackageCall> m_splitted, m_builded;
};

class tPackageBuilderAndSplitterTest : public testing::Test
{
protected:
    tPackageBuilderAndSplitterTest()
    {
        m_object->AddPackageObserer(nullptr);  // nobody
        m_object->AddPackageObserer(&m_seen);
    }
    void load(const std::string& bytes) { m_object->LoadRecBuff(bytes.data(), static_cast<int>(bytes.size())); }
    void build(const std::string& payload, unsigned long timestamp = 1)
    {
        m_object->BuildPackage(cInfo, "239.17.0.1", 6001, payload.data(), static_cast<int>(payload.size()), timestamp);
    }
    bool idle() const { return m_object->WaitBuildIdle(10'000); }
    bool splits(std::size_t number)
    {
        return waitUntil([&] { return m_seen.splitted().size() >= number; });
    }
    // Every call of m_seen is held until the gate opens.
    void holdCalls()
    {
        m_seen.m_onCall = [this] { m_gate.pass(); };
    }

    tGate m_gate;
    tPackageCollector m_seen;  // outlives the object
    std::unique_ptr<tPackageBuilderAndSplitter> m_object = std::make_unique<tPackageBuilderAndSplitter>();
};

TEST_F(tPackageBuilderAndSplitterTest, buildsPackagesByteForByteOfWhateverThereIs)
{
    m_object->SetID(9);
    m_object->BuildPackage(cInfo, "239.17.0.1", 6001, "payload", 7, 1'700'000'000'123);
    m_object->BuildPackage(cInfo, nullptr, 65536 + 258, "x", -1, 0);
    m_object->BuildPackage(cInfo, "no address", 1, nullptr, 5, 1);
    build(std::string(300'000, 'p'));
    ASSERT_TRUE(idle());
    const auto calls = m_seen.builded();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_EQ(calls[0].bytes,
              std::string("Quorvale\x01\x02\x08\x03\x04\0\0\0\0\xef\x11\0\x01\x71\x17\x7b\x68\xe5\xcf\x8b"
                          "\x01\0\0\x07\0payloadZQ_Radar",
                          48));
    EXPECT_EQ(calls[0].id, 9);
    EXPECT_EQ(calls[0].timestamp, 1'700'000'000'123UL);
    EXPECT_EQ(calls[1].bytes.substr(17, 6), std::string("\0\0\0\0\x02\x01", 6));
    EXPECT_EQ(calls[1].bytes.substr(31), std::string("\0\0ZQ_Radar", 10));
    EXPECT_GT(calls[1].timestamp, calls[0].timestamp) << "now";
    EXPECT_EQ(calls[2].bytes.size(), 41U);
    EXPECT_EQ(calls[3].bytes.substr(31, 2) + calls[3].bytes.substr(300'031), littleEndian(300'000, 2) + "ppZQ_Radar");
    EXPECT_EQ(m_object->GetBuildedPackageCnt(), 4U);
}

TEST_F(tPackageBuilderAndSplitterTest, stampsReadyPackagesInPlaceAndIgnoresShortOnes)
{
    std::string package = makePackage(77, "ready");
    build("first");
    m_object->BuildPackage(package.data(), 40);
    m_object->BuildPackage(package.data(), -5);
    m_object->BuildPackage(nullptr, 50);
    m_object->BuildPackage(package.data(), static_cast<int>(package.size()));
    ASSERT_TRUE(idle());
    EXPECT_EQ(package, makePackage(1, "ready"));
    const auto calls = m_seen.builded();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[1].bytes, package);
    EXPECT_EQ(calls[1].timestamp, 1'700'000'000'123UL);
}

TEST_F(tPackageBuilderAndSplitterTest, splitsSingleBytesPrintsDamageAndDeliversReadAndWriteKindsOnAnotherThread)
{
    testing::internal::CaptureStdout();
    m_object->SetID(-4);
    m_object->LoadRecBuff("x", 0);
    m_object->LoadRecBuff("x", -1);
    m_object->LoadRecBuff(nullptr, 10);
    load("check!");
    std::set<std::string> sent;
    for (unsigned kind = 0; kind < 256; ++kind)
    {
        const std::string payload(kind, 'p');
        for (const char& byte : *sent.insert(makePackage(kind, payload, static_cast<tMsgType>(kind))).first)
            m_object->LoadRecBuff(&byte, 1);
    }
    load(*sent.insert(makePackage(300)).first);
    const bool all = splits(257);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "... Client ID:-4 HeartBeat!\r\n"
                                                      "\t *** discontinuous data, cnt 256 rec 300 ***\r\n");
    ASSERT_TRUE(all);
    const auto calls = m_seen.splitted();
    const std::thread::id parse = calls.front().thread;
    for (const auto& call : calls)
    {
        EXPECT_EQ(call.thread != parse, call.bytes[10] == eReadType || call.bytes[10] == eWriteType) << call.bytes[10];
        EXPECT_TRUE(sent.contains(call.bytes) && call.id == -4);
    }
}

TEST_F(tPackageBuilderAndSplitterTest, deliversEverySinglePackageWithoutAnotherPush)
{
    for (std::uint32_t i = 0; i < 500; ++i)  // a lost wake-up would leave one behind
    {
        load(makePackage(3 * i));
        load(makePackage(3 * i + 1, "", eReadType));
        build("x");
        ASSERT_TRUE(splits(2 * i + 2));
        ASSERT_TRUE(idle());
        m_object->Clear();
    }
}

TEST_F(tPackageBuilderAndSplitterTest, reportsMoreThanFiftyWaitingPackages)
{
    holdCalls();
    testing::internal::CaptureStdout();
    load(makePackage(0, "", eReadType));
    ASSERT_TRUE(splits(1));
    for (std::uint32_t i = 1; i <= 53; ++i)
        load(makePackage(i, "", eWriteType));
    load(makePackage(54));
    ASSERT_TRUE(splits(2));  // the parse thread stands at the gate too, all before is with the pop thread
    m_gate.open();
    ASSERT_TRUE(splits(55));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Received Parsed Tcp Package List Size: 52\r\n"
                                                      "Received Parsed Tcp Package List Size: 51\r\n");
}

TEST_F(tPackageBuilderAndSplitterTest, forgetsOnClearWhatWaits)
{
    holdCalls();
    build("built");
    load(makePackage(5, "", eReadType) + makePackage(6, "", eReadType) + makePackage(7));
    ASSERT_TRUE(waitUntil([&] { return m_seen.count() == 3; }));  // all three threads stand at the gate
    load(makePackage(8, "forgotten"));
    build("kept");
    testing::internal::CaptureStdout();
    m_object->Clear();
    EXPECT_EQ(m_object->GetSplittedPackageCnt(), 0U);
    EXPECT_EQ(m_object->GetBuildedPackageCnt(), 0U);
    m_gate.open();
    load(makePackage(500));
    ASSERT_TRUE(splits(3));
    ASSERT_TRUE(idle());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(m_seen.splitted()[2].bytes, makePackage(500));
    EXPECT_EQ(m_seen.builded().size(), 2U);
}

TEST_F(tPackageBuilderAndSplitterTest, waitsForIdleNoLongerThanAsked)
{
    std::atomic<int> inside{-1};
    m_seen.m_onCall = [&] {
        inside = m_object->WaitBuildIdle(60'000);
        m_gate.pass();
    };
    EXPECT_TRUE(m_object->WaitBuildIdle(0));
    build("x");
    EXPECT_FALSE(m_object->WaitBuildIdle(20));
    m_gate.open();
    EXPECT_TRUE(idle());
    EXPECT_EQ(inside, 0);
    m_object->RemovePackageObserer(&m_seen);
    build("not observed");
    EXPECT_TRUE(idle() && m_seen.count() == 1);
}

TEST_F(tPackageBuilderAndSplitterTest, letsObserversCallEveryOperation)
{
    testing::internal::CaptureStdout();
    std::atomic<int> rounds{0};
    tPackageCollector other;
    m_seen.m_onCall = [&] {
        if (++rounds > 60)
            return;
        m_object->AddPackageObserer(&other);
        m_object->SetID(rounds);
        build("again");
        load(makePackage(0, "", rounds % 2 == 0 ? eIdentify : eReadType));
        m_object->RemovePackageObserer(&other);
        m_object->RemovePackageObserer(&m_seen);
        m_object->AddPackageObserer(&m_seen);
        if (rounds % 7 == 0)
            m_object->Clear();
    };
    build("start");
    load(makePackage(0) + makePackage(1, "", eReadType));
    build("start");
    EXPECT_TRUE(waitUntil([&] {
        load(makePackage(0));  // another thread may have removed the observer just when the last one came
        return rounds > 60;
    }));
    for (int i = 0; i < 2; ++i)
        m_object->RemovePackageObserer(&m_seen);  // twice: a call under way may have added it again
    testing::internal::GetCapturedStdout();
}

TEST_F(tPackageBuilderAndSplitterTest, discardsWhatWaitsWhenItIsDestroyed)
{
    holdCalls();
    std::string stream;
    for (std::uint32_t i = 0; i < 2'000; ++i)
    {
        build("x");
        stream += makePackage(2 * i, "", eReadType) + makePackage(2 * i + 1, std::string(100, 'p'));
    }
    load(stream);
    ASSERT_TRUE(waitUntil([&] { return m_seen.count() == 3; }));
    std::thread destroyer([&] { m_object.reset(); });
    EXPECT_FALSE(waitUntil([&] { return m_seen.count() > 3; }, 30ms));
    m_gate.open();
    destroyer.join();
    EXPECT_EQ(m_seen.count(), 3U);  // the calls under way, and no other
}
}  // namespace
