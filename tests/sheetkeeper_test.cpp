// The sheets that a recorder writes while it records: with the records of its files, what was lost, the clock, and what
// users add meanwhile.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/packagerecorder.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/record/clockwatch.h"
#include "sessions/record/gpstime.h"
#include "sessions/record/lostjoins.h"
#include "sessions/record/sheetkeeper.h"
#include "support/recordedsegments.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

namespace
{
using namespace recordings;
using namespace session;
using namespace std::chrono_literals;

const tStreamKey cKey = tStreamKey::of(eGpsDev, net::transAddr("239.17.0.9"), 6009);

class tSheetKeeperTest : public testing::Test
{
protected:
    tSheetKeeperTest() { setReclaiming(false); }
    void begin(std::chrono::milliseconds period = 1ms, bool compress = false)
    {
        tSheet facts;
        facts.radarSerial = "A1:2";
        facts.spokeLayout = R"({"azimuth": {"at": 0, "width": 1, "per_turn": 256}, "sequence": {"at": 1, "width": 1},
                                "cells": {"at": 2, "count": 1, "bits": 8}})";
        keeper = std::make_unique<tSheetKeeper>(facts, period);
        storage = std::make_unique<storage::tDataStorageIO>(dir.string(), ".data");
        storage->SetFineTimes(true);
        storage->SetWriteObserver(keeper.get());
        recorder = std::make_unique<Kestova::tPackageRecorder>(*storage);
        next(compress);
        keeper->start();
    }
    void next(bool compress = false)
    {
        ASSERT_TRUE(storage->CreateNewWritingFile(0ul, "a", compress));
        file = storage->GetCurrentWriteDataFileName();
    }
    void record(std::uint64_t timeMs, const std::string& message)
    {
        recorder->RecordFine({1, 2, eReadType, eGpsDev, 0}, {net::transAddr("239.17.0.9"), net::HtoNs(6009)},
                             message.data(), static_cast<int>(message.size()), timeMs * 1000 + 7);
    }
    void recordSpoke(char number)
    {
        const char message[] = {0, number, 0};
        recorder->RecordFine({1, 2, eReadType, eImageStream, 0}, {net::transAddr("239.17.0.1"), net::HtoNs(6001)},
                             message, sizeof message, 1'000'000'000);
    }
    void end()
    {
        storage->WaitWriteIdle(5000);
        storage->FinishWrite();
        ASSERT_TRUE(waitUntil([&] { return storage->GetCompressingCnt() == 0; }));
        keeper->finish();
    }
    static tSheet sheetOf(const std::string& path)
    {
        const tFoundSheet found = readSheet(path);
        EXPECT_TRUE(found) << found.reason;
        return found.sheet;
    }
    // The sheet says of the file what its records say.
    static void expectTrue(const std::string& path)
    {
        tSheet rebuilt = sheetOf(path), written = rebuilt;
        rebuilt.streams.clear();
        tSheetBuilder builder;
        storage::tDataFile data;
        ASSERT_TRUE(data.open(path));
        std::string bytes;
        for (std::size_t i = 0; i < data.recordCount(); ++i)
        {
            ASSERT_TRUE(data.read(i, bytes));
            builder.add(data.record(i).timeMs, static_cast<std::uint16_t>(data.fineTime(i)), bytes, data.record(i).pos);
        }
        builder.fill(rebuilt);
        sealSheet(rebuilt, path);
        EXPECT_EQ(sheetText(rebuilt), sheetText(written));
    }

    tTempDir dir;
    std::string file;
    std::unique_ptr<tSheetKeeper> keeper;  // outlives the storage
    std::unique_ptr<storage::tDataStorageIO> storage;
    std::unique_ptr<Kestova::tPackageRecorder> recorder;
};

tRecorderState stateWith(std::uint64_t dropped, std::uint64_t lost)
{
    tRecorderState state;
    state.streams[cKey] = {};
    state.discarded[cKey] = dropped;
    state.lost = lost;
    return state;
}
}  // namespace

TEST_F(tSheetKeeperTest, writesASheetBeforeAnythingComesAndOneOfEveryFile)
{
    begin(10s);
    const tSheet first = sheetOf(file);
    EXPECT_EQ(first.records, 0u);
    EXPECT_FALSE(first.finished);
    EXPECT_EQ(first.radarSerial, "A1:2");
    for (std::uint64_t i = 0; i < 1000; ++i)
        record(1'000'000 + i * 10, "message " + std::to_string(i));
    storage->WaitWriteIdle(5000);
    EXPECT_TRUE(readSheet(file)) << "records that it does not know yet make it no foreign one";
    const std::string before = file;
    next();
    record(2'000'000, "another file");
    end();
    expectTrue(before);
    expectTrue(file);
    EXPECT_EQ(sheetOf(before).records, 1000u);
    EXPECT_EQ(sheetOf(before).blocks.records.size(), 10u);
    EXPECT_TRUE(sheetOf(before).fineCrc32c.has_value());
    EXPECT_EQ(sheetOf(before).id, first.id);
    EXPECT_NE(sheetOf(file).id, first.id);
}

TEST_F(tSheetKeeperTest, countsWhatIsMissingOnTheWireFromFileToFile)
{
    begin();
    for (const char number : {'\1', '\2', '\4'})
        recordSpoke(number);
    record(1'000'000, "no spoke");
    storage->WaitWriteIdle(5000);
    const std::string before = file;
    next();
    for (const char number : {'\7', '\b', '\n'})
        recordSpoke(number);
    end();
    EXPECT_EQ(sheetOf(before).losses.missingOnWire, 1u);
    EXPECT_EQ(sheetOf(before).losses.sum(), 0u);
    const tSheet second = sheetOf(file);
    EXPECT_EQ(second.losses.missingOnWire, 3u);
    ASSERT_EQ(second.streams.size(), 1u);
    EXPECT_EQ(second.streams[0].missingOnWire, 3u);
    EXPECT_FALSE(sheetOf(before).streams[1].missingOnWire) << "its messages have no numbers";
    EXPECT_EQ(total(keeper->missingOnWire()), 4u);
}

TEST_F(tSheetKeeperTest, losesNoNoteThatAnotherProcessAddsWhileItWrites)
{
    begin();
    const pid_t child = ::fork();
    if (child == 0)
    {
        for (std::uint64_t i = 0; i < 100; ++i)
            addNote(file, {i, "note"});
        setKept(file, true);
        ::_exit(0);
    }
    for (std::uint64_t i = 0; ::waitpid(child, nullptr, WNOHANG) == 0; ++i)
    {
        record(1'000'000 + i, "message");
        std::this_thread::sleep_for(100us);
    }
    const std::string before = file;
    next();
    ASSERT_TRUE(waitUntil([&] { return readSheet(file).sheet.kept; })) << "a recording is kept file after file";
    setKept(file, false);
    end();
    EXPECT_EQ(sheetOf(before).notes.size(), 100u);
    EXPECT_TRUE(storage::isKept(before));
    EXPECT_FALSE(storage::isKept(file));
    EXPECT_EQ(sheetOf(file).notes.size(), 0u);
    expectTrue(before);
}

TEST_F(tSheetKeeperTest, accountsForWhatWasLostOncePerLayer)
{
    begin(10s);
    keeper->update(stateWith(5, 0));
    record(1'000'000, "message");
    storage->WaitWriteIdle(5000);
    keeper->SegmentsLost(2);
    keeper->update(stateWith(7, 3));
    const std::string before = file;
    next();
    keeper->update(stateWith(7, 3));
    keeper->update(stateWith(8, 3));
    end();
    const tSheetLosses first = sheetOf(before).losses, second = sheetOf(file).losses;
    EXPECT_EQ(first.kernelDropped, 7u);
    EXPECT_EQ(sheetOf(before).streams.at(0).kernelDropped, 7u);
    EXPECT_EQ(first.diskLost, 2u);
    EXPECT_EQ(first.queueLost, 1u);
    EXPECT_EQ(second.kernelDropped, 1u);
    EXPECT_EQ(second.diskLost + second.queueLost, 0u);
}

TEST_F(tSheetKeeperTest, countsWhatIsLostBehindTheLastFile)
{
    begin(10s, true);
    for (std::uint64_t i = 0; i < 100; ++i)
        record(1'000'000, "message message message");
    storage->WaitWriteIdle(5000);
    storage->FinishWrite();
    keeper->update(stateWith(0, 4));
    end();
    const std::string compressed = file.substr(0, file.size() - 5) + ".tar.data";
    EXPECT_EQ(sheetOf(compressed).losses.queueLost, 4u);
    EXPECT_EQ(sheetOf(compressed).form, storage::cHuffmanFileHead);
    EXPECT_EQ(sheetOf(compressed).blocks.records.size(), 1u);
}

TEST_F(tSheetKeeperTest, leavesNoSheetOfAFileThatIsGone)
{
    begin(10s);
    record(1'000'000, "message");
    storage->WaitWriteIdle(5000);
    ASSERT_TRUE(storage::removeDataFile(file));
    end();
    EXPECT_FALSE(std::filesystem::exists(storage::sheetName(file)));
}

TEST_F(tSheetKeeperTest, knowsHowFarTheClockIsFromGpsTime)
{
    begin(10s);
    for (int i = 0; i < 5; ++i)  // 12:30:00.50 on 1 July 2026
        record(1'782'909'000'500 + 40 + static_cast<std::uint64_t>(i), "$GPZDA,123000.50,01,07,2026,00,00\r\n");
    end();
    EXPECT_NEAR(sheetOf(file).clock.offsetMs.value(), 42.007, 0.001);
    EXPECT_FALSE(sheetOf(file).clock.driftPpm) << "it takes a minute at least";
}

TEST(tGpsTimeTest, takesValidTimesWithADateAlone)
{
    constexpr std::uint64_t cThen = 1'782'909'000'500;
    const struct
    {
        const char* message;
        std::uint64_t time;
    } cases[] = {{"$GPZDA,123000.50,01,07,2026,00,00*63\r\n", cThen},
                 {"$GNRMC,123000.5,A,5400.0,N,01000.0,E,0.0,0.0,010726,,", cThen},
                 {"$HEHDT,0.0,T*2F\r\n$GPZDA,123000.50,01,07,2026,,\r\n", cThen},
                 {"$GPZDA,123000.50,01,07,2026,00,00*64\r\n", 0},
                 {"$GNRMC,123000.5,V,5400.0,N,01000.0,E,0.0,0.0,010726,,", 0},
                 {"$GPZDA,123000.50,31,02,2026,00,00", 0},
                 {"$GPZDA,,,,,,", 0},
                 {"$GPZDA", 0},
                 {"$GPZDA,2460nan,01,07,2026", 0},
                 {"$GPGLL,123000.50", 0}};
    for (const auto& c : cases)
        EXPECT_EQ(gpsTimeIn(c.message).value_or(0), c.time) << c.message;
}

TEST(tClockStepsTest, findsStepsOfTheClockAndNoSlewing)
{
    constexpr std::int64_t cSecond = 1'000'000'000;
    tClockSteps steps({1000 * cSecond, 10 * cSecond});
    EXPECT_FALSE(steps.update({1001 * cSecond + 1'900'000, 11 * cSecond}));
    const auto forward = steps.update({4602 * cSecond, 12 * cSecond});
    ASSERT_TRUE(forward);
    EXPECT_EQ(forward->stepMs, 3'600'000);
    EXPECT_EQ(forward->atMs, 4'602'000u);
    EXPECT_FALSE(steps.update({4603 * cSecond, 13 * cSecond}));
    EXPECT_EQ(steps.update({1004 * cSecond, 14 * cSecond})->stepMs, -3'600'000);
    EXPECT_FALSE(tClockSteps(tClocks::now()).update(tClocks::now()));
}

TEST(tClockOffsetTest, knowsTheDriftInSpiteOfLateSentencesAndASetClock)
{
    tClockOffset offset;
    for (int i = 0; i < 20'000; ++i)
    {
        const double gps = 1e12 + i * 1000.0, late = i % 50 == 0 ? 300.0 : (i * 7919 % 100) / 20.0;
        if (i == 10'000)
            offset.stepped(-5000);
        offset.add(gps + 100.0 + i * 0.03 + late - (i >= 10'000 ? 5000.0 : 0.0), static_cast<std::uint64_t>(gps));
        EXPECT_TRUE(i != 30 || !offset.driftPpm());
    }
    EXPECT_NEAR(offset.driftPpm().value(), 30.0, 1.0);
    EXPECT_NEAR(offset.offsetMs().value(), 100.0 + 300.0 + 2.5 - 5000.0, 20.0);
}

TEST(tLostJoinsTest, listsGroupsFromTheLastTimeThatTheyWereJoined)
{
    const std::string group = cKey.address();
    tLostJoins joins;
    tRecorderState state = stateWith(0, 0);
    joins.update(state, 1000);
    state.unjoined = {group};
    joins.update(state, 1200);
    joins.update(state, 1400);
    EXPECT_EQ(joins.ofFile(1500).at(0).fromMs, 1000u);
    EXPECT_EQ(joins.ofFile(1500).at(0).toMs, 1500u);
    joins.nextFile(1600);
    state.unjoined.clear();
    joins.update(state, 1800);
    const auto second = joins.ofFile(2000);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0].address, group);
    EXPECT_EQ(second[0].fromMs, 1600u);
    EXPECT_EQ(second[0].toMs, 1800u);
    state.addressReports = 1;  // joined anew between two states
    joins.update(state, 2000);
    EXPECT_EQ(joins.ofFile(3000).size(), 2u);
    EXPECT_EQ(joins.ofFile(3000)[1].fromMs, 1800u);
}
