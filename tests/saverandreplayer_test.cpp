// The facade: its states, what it saves and what it replays.
#include <gmock/gmock.h>

#include "KestovaStorage/radarsaverandreplayer.h"
#include "support/radarreplay.h"
#include "support/recordedpackages.h"
#include "support/recording.h"
#include "support/tempdir.h"

using namespace Kestova;

class tSaverAndReplayerTest : public testing::Test, public iSaveReplayObserver
{
protected:
    void UpdateState(eSaveReplayState state) override { log.UpdateReplayStatus(static_cast<std::uint8_t>(state)); }
    void UpdateReplayData(double progress, int dataType, const char* data, int len) override
    {
        log.UpdateReplayData(0, progress, data, static_cast<unsigned int>(len), std::to_string(dataType));
    }
    bool startSaving() { return facade->StartSaving(dir.string() + "/"); }
    bool startReplaying() { return facade->StartReplaying(dir.string()); }
    void save(const std::string& text, int type = 1)
    {
        facade->SaveData(type, text.data(), static_cast<int>(text.size()));
    }
    std::vector<tRecordedPackage> saved() const { return recordedPackages(dir.string(), ".qvdata"); }

    tTempDir dir;
    tReplayLog log;
    std::unique_ptr<tRadarSaverAndReplayer> facade = std::make_unique<tRadarSaverAndReplayer>(this);
};

TEST_F(tSaverAndReplayerTest, allowsEachCallInItsStateOnlyAndReportsEveryState)
{
    const auto steers = [&] {
        return facade->Pause() || facade->Resume() || facade->Jump(0.5) || facade->SetExactSpeed(2);
    };
    save("not saved"), facade->EndSave(), facade->EndReplay();
    EXPECT_FALSE(steers() || facade->StartSaving("/proc/nowhere/"));
    ASSERT_TRUE(startSaving());
    EXPECT_FALSE(steers() || startSaving() || startReplaying());
    save("a"), save("b"), facade->EndReplay();
    EXPECT_EQ(facade->State(), eSaving);
    facade->EndSave();
    ASSERT_TRUE(startReplaying());
    EXPECT_FALSE(startSaving() || startReplaying());
    facade->EndSave();
    ASSERT_TRUE(log.waitFor("b"));
    EXPECT_TRUE(facade->Pause() && facade->Resume() && facade->Jump(1.0) && log.waitFor("b", 2));
    EXPECT_TRUE(facade->SetExactSpeed(1.5) && !facade->SetExactSpeed(0));
    facade->EndReplay();
    EXPECT_EQ(log.text(), "0 1 1 0 2 a b b 0");
}

TEST_F(tSaverAndReplayerTest, keepsTheLowSixteenBitsOfATypeAndRefusesLengthsThatNoRecordHas)
{
    ASSERT_TRUE(startSaving());
    testing::internal::CaptureStderr();
    save(std::string(65'495, 'l')), facade->SaveData(1, "x", -1), facade->SaveData(1, nullptr, 3);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 3) << printed;
    save("m", 0x70102), save("n", -1), facade->EndSave();
    ASSERT_EQ(saved().size(), 2u);
    EXPECT_EQ(asText(saved()[0].msgInfo) + std::to_string(saved()[0].group.ip + saved()[0].group.port), "1,2,1,2,150");
    ASSERT_TRUE(startReplaying() && log.waitFor("n"));
    EXPECT_EQ(log.segments()[0].file + " " + log.segments()[1].file, "258 65535");
    EXPECT_EQ(log.segments()[1].progress, 1.0);
}

TEST_F(tSaverAndReplayerTest, leavesOutForeignAndDamagedRecords)
{
    const tUdpMsgInfo own{1, 2, 0, 5, 15}, radar{1, 2, 0, 5, 14};
    const std::string good = radarRecord(own, {}, "good"), damaged = std::string(good).replace(31, 1, "z");
    const std::string addressed = radarRecord(own, {1, 0}, "r"), withPort = radarRecord(own, {0, 256}, "r");
    recordByHand(dir.file("a.qvdata"), {{1, radarRecord(radar, {}, "r")},
                                        {1, addressed},
                                        {1, withPort},
                                        {1, damaged},
                                        {1, good.substr(0, 20)},
                                        {1, good}});
    ASSERT_TRUE(startReplaying());
    EXPECT_TRUE(log.waitForText("0 2 good")) << log.text();
}

TEST_F(tSaverAndReplayerTest, losesNothingWhenSavingEndsOrItIsDestroyed)
{
    const std::string message(65'000, 'p');
    for (const int round : {0, 1})
    {
        ASSERT_TRUE(startSaving());
        for (int i = 0; i < 2'000; ++i)
            save(message);
        round == 0 ? facade->EndSave() : facade.reset();
    }
    EXPECT_EQ(saved().size(), 4'000u);
}

TEST_F(tSaverAndReplayerTest, endsFromInsideItsCallbacksAndWorksWithoutAnObserver)
{
    recordByHand(dir.file("a.qvdata"), tSegments(99, {1, radarRecord({1, 2, 0, 1, 15}, {}, "a")}));
    std::atomic<char> at{'2'};
    log.react = [&](const std::string& word) {
        if (word[0] == at)
            facade->EndReplay();
    };
    EXPECT_TRUE(startReplaying() && log.waitForText("0 2 0"));
    at = 'a';
    EXPECT_TRUE(startReplaying() && log.waitForText("0 2 0 2 a 0")) << log.text();
    facade = std::make_unique<tRadarSaverAndReplayer>(nullptr);
    EXPECT_TRUE(startReplaying() && facade->State() == eReplaying);  // and is destroyed while it replays
}

TEST_F(tSaverAndReplayerTest, replaysAndJumpsWhileUpdateStateLasts)
{
    recordByHand(dir.file("a.qvdata"),
                 {{1, radarRecord({1, 2, 0, 1, 15}, {}, "a")}, {60'000, radarRecord({1, 2, 0, 1, 15}, {}, "b")}});
    bool jumped = false;
    log.react = [&](const std::string& word) {
        if (word == "2")  // the state is known before the first message, and playing goes on while this call lasts
            jumped = waitUntil([&] { return log.count("a") != 0; }) && waitUntil([&] { return facade->Jump(1.0); }) &&
                     waitUntil([&] { return log.count("b") != 0; });
    };
    ASSERT_TRUE(startReplaying());
    EXPECT_TRUE(jumped);
    EXPECT_EQ(log.text(), "0 2 a b");
}

TEST(tSaverAndReplayerOwnerTest, mayUseTheFacadeFromInsideItsFirstState)
{
    struct tOwner : iSaveReplayObserver
    {
        void UpdateState(eSaveReplayState state) override
        {
            if (state == eIdle && !m_started)
                m_started = facade.StartSaving(dir.string() + "/") && !facade.Pause();
        }
        void UpdateReplayData(double, int, const char*, int) override {}
        tTempDir dir;
        bool m_started = false;
        tRadarSaverAndReplayer facade{this};
    } owner;
    EXPECT_TRUE(owner.m_started);
    EXPECT_EQ(owner.facade.State(), eSaving);
}
