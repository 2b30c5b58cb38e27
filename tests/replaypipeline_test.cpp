// What a replay does with each record, and two rooms of its network side.
#include <gmock/gmock.h>

#include "KestovaStorage/internal/replay/replaypipeline.h"
#include "KestovaStorage/internal/replay/senderpool.h"
#include "KestovaStorage/internal/replay/servicerepeater.h"
#include "support/radarreplay.h"

using namespace Kestova;
using namespace std::chrono_literals;

class tReplayPipelineTest : public testing::Test
{
protected:
    void play(const std::string& bytes, double progress = 0.5, const std::string& file = "f")
    {
        records.replay(1000, progress, bytes.data(), static_cast<std::uint32_t>(bytes.size()), file, observer);
    }
    static std::string record(const tUdpMsgInfo& info, const std::string& payload = "p", const char* ip = "239.17.0.1")
    {
        return radarRecord(info, {net::transAddr(ip), net::HtoNs(6001)}, payload);
    }
    static std::string counters(int user, int service) { return counterText("f", user, service); }

    static constexpr tUdpMsgInfo cArpa{1, 1, eReadType, eArpaStream, 1}, cUser{2, 1, eMultiRadarService, 3, 1},
        cService{1, 1, eMultiRadarService, eArpaStream, 1};
    tReplayPipeline records{tReplayPipeline::tTypes().set(eArpaStream), nullptr};
    tRadarReplayLog log;
    iRadarDataReplayObserver* observer = &log;
    tReplayEditor editor;
};

TEST_F(tReplayPipelineTest, reportsTheFileWhenItChangesAndOnlyCountsUserCommands)
{
    records.setModifyObserver(&editor);
    play(record(cUser, "p", "236.6.7.5"), 1.0);
    EXPECT_EQ(editor.log.text(), "");
    for (const char* file : {"f", "g", "f"})
        play(record(cArpa), 0.5, file);
    EXPECT_EQ(log.text(),
              counters(0, 0) + " " + counters(1, 0) + " p " + counterText("g", 1, 0) + " p " + counters(1, 0) + " p");
}

TEST_F(tReplayPipelineTest, passesTheKindsAskedForAndThoseThatAlwaysPass)
{
    const auto passes = [&](tMsgType type, tReadWriteType rwType, double progress = 0.5) {
        log.clear();
        play(record({1, 1, type, rwType, 1}), progress);
        return log.count("p") == 1;
    };
    EXPECT_TRUE(passes(eReadType, eArpaStream) && passes(eReadType, eImageStream, 1.0));
    EXPECT_TRUE(passes(eMultiRadarNegotiate, eImageStream) && passes(eReadType, eRadarCheck));
    EXPECT_TRUE(passes(eWriteType, eTotalReadWriteTypes));
    EXPECT_FALSE(passes(eReadType, eImageStream) || passes(eReadType, eImageStream, 0.9999999));
    EXPECT_FALSE(passes(eWriteType, eRadarCheck) || passes(eMultiRadarService, eOtherType));
    EXPECT_FALSE(passes(eReadType, eRadarClientState) || passes(eReadType, eOtherType));
}

TEST_F(tReplayPipelineTest, letsTheEditorChangeDataAndGroupBeforeItReports)
{
    editor.edit = [](char* data, int) { *data = 'q'; };
    editor.redirect = [](std::uint32_t* ip, std::uint16_t* port) { *ip = net::transAddr("239.9.9.9"), ++*port; };
    records.setModifyObserver(&editor);
    const std::string bytes = record(cArpa), before = bytes;
    play(bytes);
    EXPECT_EQ(bytes, before);
    EXPECT_EQ(editor.log.text() + " " + log.text(), "p q " + counters(0, 0) + " q");
    EXPECT_EQ(editor.log.segments()[0].file, "1000 1700000000123 4 3 0.500000 239.17.0.1:6001");
    EXPECT_EQ(editor.log.segments()[1].file, "0 0 4 3 -2.000000 239.17.0.1:6001");  // loop number and azimuth are -1
    EXPECT_EQ(log.segments()[0].file, "1000 1700000000123 4 3 0.500000 239.9.9.9:6002");
}

TEST_F(tReplayPipelineTest, givesImageStateMessagesTheTimeOfReplayBeforeTheyAreEdited)
{
    const std::string state = "\x03\xC4" + std::string(127, 's');
    const std::string stamped = std::string(state).replace(114, 8, littleEndian(1000, 8));
    records.setModifyObserver(&editor);
    for (const std::string& message : {state, state + "s", state.substr(0, 128), "\x03\xC5" + state.substr(2)})
    {
        play(record(cArpa, message));
        EXPECT_EQ(editor.log.segments().back().bytes, message == state ? stamped : message);
    }
}

TEST_F(tReplayPipelineTest, countsServiceMessagesForTheirKindAndForTheirGroup)
{
    play(record(cService, "m", "236.6.7.5"));
    play(record({1, 1, eMultiRadarService, eImageCtrl, 1}, "m", "236.6.7.5"));  // does not pass
    play(record(cService, "m"));
    play(record(cArpa, "p", "236.6.7.5"));
    EXPECT_EQ(log.text(), counters(0, 0) + " m " + counters(0, 1) + " " + counters(0, 2) + " " + counters(0, 3) +
                              " m " + counters(0, 4) + " p " + counters(0, 5));
}

TEST_F(tReplayPipelineTest, skipsAndCountsWhatDoesNotHoldItsMessage)
{
    const std::string good = record(cArpa, "payload");
    const auto claiming = [&](unsigned len) { return std::string(good).replace(31, 2, littleEndian(len, 2)); };
    for (const std::string& damaged : {good.substr(0, 32), good.substr(0, 39), claiming(65535)})
        play(damaged);
    EXPECT_EQ(records.damagedCnt(), 3U);
    observer = nullptr;
    play(good);
    observer = &log;
    // Neither marks nor what stands behind the message are looked at.
    for (const std::string& whole : {good, good.substr(0, 40), "q" + good.substr(1), good + "q", claiming(6)})
        play(whole);
    EXPECT_EQ(log.text(), "payload payload payload payload payloa");
}

TEST(tServiceMessagesTest, keepsAMessageNineSecondsFromItsFirstTaking)
{
    tServiceMessages messages;
    messages.take("b", 100s);
    messages.take("a", 105s);
    messages.take("b", 109s);  // keeps its time
    EXPECT_THAT(messages.alive(109s), testing::ElementsAre("a", "b"));
    EXPECT_THAT(messages.alive(110s), testing::ElementsAre("a"));
}

TEST(tSenderPoolTest, holdsOneSocketADestinationAndNoMoreThanItsLimit)
{
    tSenderPool senders(net::transAddr("127.0.0.1"));
    testing::internal::CaptureStderr();
    for (std::uint16_t port = 1; port <= 600; ++port)
    {
        EXPECT_TRUE(senders.send({net::transAddr("127.0.0.1"), port}, "p", 1));
        EXPECT_TRUE(senders.send({net::transAddr("127.0.0.1"), port}, "p", 1));
        EXPECT_EQ(senders.size(), std::min<std::size_t>(port, tSenderPool::cMaxSenders));
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}
