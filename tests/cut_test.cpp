// Recordings made of recordings: what a cut and a merge hold, and what is left of one that was killed or had no room.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/wait.h>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/cut.h"
#include "KestovaRecordings/merge.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafileconverter.h"
#include "UdpSocket/udpsocket.h"
#include "support/filebytes.h"
#include "support/pwritehook.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/tempdir.h"

namespace
{
using namespace recordings;

constexpr std::uint64_t cStart = 1'715'934'600'000;

const auto cGoOn = [](double) { return true; };

// A whole package of a stream on 239.17.0.GROUP:6000.
std::string package(eReadWriteType kind, char group, const std::string& payload)
{
    return "Quorvale" + std::string{1, 2, 4, static_cast<char>(kind), 0} + littleEndian(7, 4) + "\xEF\x11" +
           std::string{0, group} + littleEndian(6000, 2) + littleEndian(cStart, 8) + littleEndian(payload.size(), 2) +
           payload + "ZQ_Radar";
}

// Microseconds beside a file, by hand.
void fineTimesByHand(const std::string& path, const tSegments& segments)
{
    std::string bytes = "KestovaT" + littleEndian(1, 4) + littleEndian(0, 4) + "0123456789abcdef" +
                        littleEndian(segments.front().time, 8) + littleEndian(10'000'000, 8) + std::string(16, '\0');
    for (std::size_t i = 0; i < segments.size(); ++i)
        bytes += littleEndian(i * 7 % 1000, 2);
    putBytes(path, 0, bytes);
}

std::vector<int> fineTimesBelow(const std::string& folder)
{
    std::vector<int> times;
    for (const std::string& path : dataFilesIn(folder))
    {
        storage::tDataFile file;
        EXPECT_TRUE(file.open(path));
        for (std::size_t i = 0; i < file.recordCount(); ++i)
            times.push_back(file.fineTime(i));
    }
    return times;
}

class tCutTest : public testing::Test
{
protected:
    // Three files of one recording with long and short segments, about 6 MB, and microseconds.
    tSegments record(const std::string& folder)
    {
        std::filesystem::create_directory(dir.file(folder));
        tSegments all;
        std::mt19937 random(1);
        for (int file = 0; file < 3; ++file)
        {
            tSegments segments;
            for (std::uint64_t i = 0; i < 400; ++i)
            {
                const std::size_t len = random() % 10 == 0 ? 60'000 : 8 + random() % 400;
                segments.push_back({cStart + (all.size() + i) * 10 / 4, numberedSegment(all.size() + i, len)});
            }
            const std::string name = folder + "/000" + std::to_string(file) + "_2024-05-17_08-30-00_A1_2_B";
            recordByHand(dir.file(name + ".data"), segments);
            fineTimesByHand(dir.file(name + ".fine"), segments);
            all.insert(all.end(), segments.begin(), segments.end());
        }
        return all;
    }
    tCutOptions options(const std::string& to, double fromMs = -1, double toMs = -1) const
    {
        tCutOptions wanted;
        wanted.paths = {dir.file("rec")};
        wanted.folder = dir.file(to);
        wanted.withState = false;
        if (fromMs >= 0)
            wanted.start = tMoment{tMoment::eOffset, fromMs};
        if (toMs >= 0)
            wanted.end = tMoment{tMoment::eOffset, toMs};
        return wanted;
    }
    tSegments cut(const tCutOptions& wanted) const
    {
        const tCutResult result = cutRecordings(wanted, cGoOn);
        EXPECT_TRUE(result.complete);
        const tSegments made = segmentsBelow(wanted.folder);
        EXPECT_EQ(result.records, made.size());
        EXPECT_TRUE(isTidy());
        return made;
    }
    // A hand-made file of one recording.
    std::string file(const std::string& name, const tSegments& segments, bool finished = true) const
    {
        std::filesystem::create_directory(dir.file("rec"));
        recordByHand(dir.file("rec/" + name), segments, finished);
        return dir.file("rec/" + name);
    }
    bool isTidy() const
    {
        return std::ranges::none_of(std::filesystem::directory_iterator(dir.path()), [](const auto& entry) {
            return entry.path().filename().string().find(".part-") != std::string::npos;
        });
    }
    std::string failureOf(const tCutOptions& wanted) const
    {
        try
        {
            cutRecordings(wanted, cGoOn);
        }
        catch (const tFailure& failure)
        {
            return failure.what();
        }
        return "none";
    }

    tTempDir dir;
};
using tMergeTest = tCutTest;

// Writes as the hook lets it in a process of its own; that dies with write number `last`. Returns false once it lives.
bool diesWhileCutting(const tCutOptions& wanted, int last)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        int writes = 0;
        const tPwriteHook hook([&](int file, const void* data, std::size_t len, off_t pos) {
            if (++writes == last)
                ::kill(::getpid(), SIGKILL);
            return tPwriteHook::write(file, data, len, pos);
        });
        cutRecordings(wanted, cGoOn);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status);
}
}  // namespace

TEST_F(tCutTest, neighboursGiveTheWholeInEitherForm)
{
    const tSegments all = record("rec");
    const std::vector<int> fine = fineTimesBelow(dir.file("rec"));
    for (const bool compressed : {false, true})
    {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        for (const std::string& path : compressed ? dataFilesIn(dir.file("rec")) : std::set<std::string>())
            ASSERT_TRUE(storage::tDataFileConverter::Compress(path, ".data", nullptr, nullptr, nullptr));
        tSegments cuts;
        std::vector<int> cutFine;
        for (const auto& [from, to] : {std::pair(0, 5), {5, 997}, {997, 2500}, {2500, -1}})
        {
            const std::string name = "cut" + std::to_string(from) + (compressed ? "c" : "p");
            const tSegments made = cut(options(name, from, to));
            cuts.insert(cuts.end(), made.begin(), made.end());
            const std::vector<int> times = fineTimesBelow(dir.file(name));
            cutFine.insert(cutFine.end(), times.begin(), times.end());
        }
        EXPECT_TRUE(cuts == all);
        EXPECT_EQ(cutFine, fine);
    }
}

TEST_F(tCutTest, givesEachFileItsSheet)
{
    const tSegments all = record("rec");
    tSheet sheet;
    sheet.records = 400;
    sheet.finished = true;
    sheet.kept = true;
    sheet.first = tSheetFirst{cStart, 10'000'000, static_cast<std::uint32_t>(all[0].bytes.size())};
    sheet.radarSerial = "A1:2";
    sheet.spokeLayout = "\"cat240\"";
    sheet.losses.kernelDropped = 5;
    sheet.notes = {{cStart + 1, "before"}, {cStart + 200, "within"}, {cStart + 900, "behind"}};
    writeSheet(*dataFilesIn(dir.file("rec")).begin(), sheet);
    tCutOptions wanted = options("part", 100, 900);
    wanted.shiftMs = -50;
    wanted.everyMs = 500;
    cut(wanted);
    const std::set<std::string> files = dataFilesIn(wanted.folder);
    ASSERT_EQ(files.size(), 2u);
    const tFoundSheet first = readSheet(*files.begin()), second = readSheet(*files.rbegin());
    ASSERT_TRUE(first && second) << first.reason << second.reason;
    EXPECT_TRUE(first.sheet.cut && first.sheet.finished && !first.sheet.kept);
    EXPECT_EQ(first.sheet.records, segmentsOf(*files.begin()).size());
    EXPECT_EQ(first.sheet.firstMs, cStart + 50);
    EXPECT_EQ(first.sheet.radarSerial, "A1:2");
    EXPECT_EQ(first.sheet.spokeLayout, "\"cat240\"");
    EXPECT_EQ(first.sheet.losses.kernelDropped, 0u) << "nobody knows where in the file";
    ASSERT_EQ(first.sheet.notes.size(), 1u);
    EXPECT_EQ(first.sheet.notes[0].timeMs, cStart + 150);
    EXPECT_TRUE(second.sheet.notes.empty());
}

TEST_F(tCutTest, carriesTheLastRecordOfEachStreamButImages)
{
    const tSegments before{{cStart, package(eArpaState, 6, "old")},
                           {cStart + 1, package(eGpsDev, 9, "gps")},
                           {cStart + 2, package(eArpaState, 6, "state")},
                           {cStart + 3, package(eArpaState, 7, std::string(5000, 's'))},
                           {cStart + 4, package(eImageStream, 1, "spoke")},
                           {cStart + 5, package(eOriginalImage, 2, "image")},
                           {cStart + 6, "no package"}};
    const tSegments after{{cStart + 1000, package(eGpsDev, 9, "first")}, {cStart + 2000, package(eAisDev, 8, "ais")}};
    file("0000_2024-05-17_08-30-00_x.data", before);
    file("0001_2024-05-17_08-30-00_x.data", after);
    tCutOptions wanted = options("part", 1000);
    wanted.withState = true;
    tSegments expected{
        {cStart + 1000, before[1].bytes}, {cStart + 1000, before[2].bytes}, {cStart + 1000, before[3].bytes}};
    expected.insert(expected.end(), after.begin(), after.end());
    EXPECT_EQ(cut(wanted), expected);
    EXPECT_EQ(readSheet(*dataFilesIn(wanted.folder).begin()).sheet.carried, 3u);
    tCutOptions chosen = options("gps", 1001);
    chosen.withState = true;
    chosen.streams.choose(eGpsDev);
    chosen.streams.choose(eAisDev);
    chosen.groups = {{net::transAddr("239.17.0.8"), net::HtoNs(6000)}};
    EXPECT_EQ(cut(chosen), tSegments{after[1]}) << "GPS is on another group";
    tCutOptions again = options("again");
    again.paths = {wanted.folder};
    EXPECT_EQ(cutRecordings(again, cGoOn).carried, 3u) << "what was carried stays so";
}

TEST_F(tCutTest, keepsTheOrderOfAClockThatWentBack)
{
    const tSegments all{
        {cStart + 9000, "a"}, {cStart + 9001, "b"}, {cStart, "c"}, {cStart + 9002, "d"}, {cStart + 5, "e"}};
    file("0000_2024-05-17_08-30-00_x.data", all);
    EXPECT_EQ(cut(options("all")), all);
    EXPECT_EQ(cut(options("late", 1000)), (tSegments{all[0], all[1], all[3]}));
}

TEST_F(tCutTest, takesTheEndOfARecordingUnderWay)
{
    const tSegments all{{cStart, "a"}, {cStart + 60'000, "b"}, {cStart + 61'000, "c"}};
    file("0000_2024-05-17_08-30-00_x.data", all, false);
    tCutOptions wanted = options("last");
    wanted.start = tMoment{tMoment::eFromEnd, 1000.0};
    EXPECT_EQ(cut(wanted), (tSegments{all[1], all[2]}));
    wanted = options("more");
    wanted.start = tMoment{tMoment::eFromEnd, 600'000.0};
    EXPECT_EQ(cut(wanted), all);
}

TEST_F(tCutTest, leavesOutWhatCannotBeRead)
{
    tSegments all;
    for (std::uint64_t i = 0; i < 400; ++i)
        all.push_back({cStart + i, numberedSegment(i, 10'000)});
    const std::string path = file("0000_2024-05-17_08-30-00_x.data", all);
    storage::tDataFile opened;
    ASSERT_TRUE(opened.open(path));
    std::filesystem::resize_file(path, 10'000'000 + 300 * 10'000 + 1);
    tCutOptions cutShort = options("short");
    EXPECT_EQ(cutRecordings(cutShort, cGoOn).damaged, 100u);
    tRecordingOutput output(dir.file("copy"));
    EXPECT_EQ(output.copy(opened, 0, 400, 0), 100u) << "they were there when the file was opened";
    output.commit();
    all.resize(300);
    EXPECT_TRUE(segmentsBelow(cutShort.folder) == all);
    EXPECT_TRUE(segmentsBelow(dir.file("copy")) == all);
}

TEST_F(tCutTest, refusesAnEmptySpanAndATakenName)
{
    file("0000_2024-05-17_08-30-00_x.data", {{cStart, package(eGpsDev, 9, "gps")}, {cStart + 100, "b"}});
    EXPECT_NE(failureOf(options("none", 101)).find("in the span"), std::string::npos);
    EXPECT_NE(failureOf(options("none", 50, 50)).find("in the span"), std::string::npos);
    tCutOptions other = options("none");
    other.streams.choose(eAisDev);
    EXPECT_NE(failureOf(other).find("the recording has gpsDev"), std::string::npos);
    for (const char* const taken : {"rec", "rec/", "nowhere/new", ""})
        EXPECT_NE(failureOf(options(taken)), "none") << taken;
    EXPECT_TRUE(isTidy());
}

TEST_F(tCutTest, takesNamesOfEveryByte)
{
    std::string name;
    for (int c = 1; c < 256; ++c)
        if (c != '/' && c != '\\')  // the engine's listing takes the latter for the former
            name += static_cast<char>(c);
    const tSegments all{{cStart, "a"}, {cStart + 1, "b"}};
    file(name.substr(0, 240) + ".data", all);
    EXPECT_EQ(cut(options(name)), all);
    EXPECT_EQ(findAllRecordings({dir.string()}, ".data").files.size(), 2u);
}

TEST_F(tCutTest, diesAtAnyWriteWithoutATrace)
{
    const tSegments all = record("rec");
    int died = 0;
    for (; diesWhileCutting(options("part", 100, 2900), died + 1); ++died)
    {
        ASSERT_FALSE(std::filesystem::exists(dir.file("part"))) << died;
        ASSERT_FALSE(isTidy());
        ASSERT_EQ(segmentsBelow(dir.string()).size(), all.size()) << "nobody takes what is left for a recording";
    }
    EXPECT_GT(died, 10);
    EXPECT_TRUE(isTidy()) << "the next one clears it";
    EXPECT_EQ(segmentsBelow(dir.file("part")).size(), (2900 - 100) * 4 / 10);
}

TEST_F(tCutTest, leavesNothingOnAFullDisk)
{
    record("rec");
    for (const std::uint64_t place : {0u, 2000u, 2048u, 10'000'000u})
    {
        const tPwriteHook full(tPwriteHook::noRoom(place, place + 1));
        const std::string failure = failureOf(options("part", 0, 10));
        EXPECT_NE(failure.find(dir.file("part")), std::string::npos) << failure;
        EXPECT_NE(failure.find("No space left"), std::string::npos) << failure;
        EXPECT_FALSE(std::filesystem::exists(dir.file("part")));
        EXPECT_TRUE(isTidy());
    }
}

TEST_F(tCutTest, doesNotClearWhatIsBeingMade)
{
    file("0000_2024-05-17_08-30-00_x.data", {{cStart, "a"}});
    tRecordingOutput slow(dir.file("slow"));
    slow.add({cStart, storage::cUnknownFineTime, "bytes"});
    std::filesystem::create_directory(dir.file(".kept.part-abcdef"));
    putBytes(dir.file(".kept.part-abcdef/mine"), 0, "x");
    cutRecordings(options("quick"), cGoOn);
    EXPECT_EQ(contentsOf(dir.file(".kept.part-abcdef/mine")), "x") << "no recording in the making has such a file";
    ASSERT_EQ(slow.commit().size(), 1u);
    EXPECT_EQ(segmentsBelow(dir.file("slow")), (tSegments{{cStart, "bytes"}}));
}

TEST_F(tMergeTest, isInOrderOfTime)
{
    file("a.data",
         {{cStart, "a0"}, {cStart + 10, "a1"}, {cStart + 10, "a2"}, {cStart + 5, "late"}, {cStart + 30, "a3"}});
    file("b.data", {{cStart + 110, "b1"}, {cStart + 120, "b2"}});
    tMergeOptions wanted;
    wanted.paths = {dir.file("rec/a.data"), dir.file("rec/b.data")};
    wanted.folder = dir.file("both");
    wanted.shifts = {0, -100};
    EXPECT_EQ(mergeRecordings(wanted, cGoOn).records, 7u);
    EXPECT_EQ(segmentsBelow(wanted.folder), (tSegments{{cStart, "a0"},
                                                       {cStart + 5, "late"},
                                                       {cStart + 10, "a1"},
                                                       {cStart + 10, "a2"},
                                                       {cStart + 10, "b1"},
                                                       {cStart + 20, "b2"},
                                                       {cStart + 30, "a3"}}));
    EXPECT_FALSE(
        mergeRecordings({{dir.file("rec")}, ".data", dir.file("never"), {}}, [](double) { return false; }).complete);
    EXPECT_FALSE(std::filesystem::exists(dir.file("never")));
}

// Two recorders of one radar whose clocks differ; each misses some of the messages.
TEST_F(tMergeTest, takesOnceWhatTwoRecordersHave)
{
    for (const bool sameText : {false, true})
    {
        SCOPED_TRACE(sameText ? "all messages are the same" : "every message is another");
        tSegments sent, a, b;
        for (std::uint64_t i = 0; i < 300; ++i)
        {
            const std::string text = sameText ? "heading" : "spoke " + std::to_string(i);
            sent.push_back({cStart + i * 100, package(eHeadingDev, 11, text)});
            if (i % 7 != 3)
                a.push_back(sent.back());
            if (i % 11 != 5)
                b.push_back({cStart + 240 + i * 100 + i % 3, sent.back().bytes});
        }
        file("a.data", a);
        file("b.data", b);
        tMergeOptions wanted;
        wanted.paths = {dir.file("rec")};
        wanted.folder = dir.file(sameText ? "same" : "other");
        wanted.unique = true;
        const tMergeResult result = mergeRecordings(wanted, cGoOn);
        EXPECT_EQ(result.records, sent.size() - 4) << "both missed 4 of them";
        EXPECT_EQ(result.repeated, a.size() + b.size() - result.records);
        std::filesystem::remove_all(dir.file("rec"));
    }
}

TEST_F(tMergeTest, keepsRepetitionsInsideOneRecording)
{
    const std::string text = package(eGpsDev, 9, "gps"), elsewhere = package(eGpsDev, 10, "gps");
    file("a.data", {{cStart, text}, {cStart + 1, text}, {cStart + 2, text}, {cStart + 3, elsewhere}});
    file("b.data", {{cStart + 4, text}, {cStart + 9, text}, {cStart + 1003, elsewhere}, {cStart + 5000, elsewhere}});
    tMergeOptions wanted;
    wanted.paths = {dir.file("rec")};
    wanted.folder = dir.file("both");
    wanted.unique = true;
    EXPECT_EQ(mergeRecordings(wanted, cGoOn).records, 5u);
    EXPECT_EQ(segmentsBelow(wanted.folder).back().time, cStart + 5000);
    wanted.folder = dir.file("strict");
    wanted.toleranceMs = 3;
    EXPECT_EQ(mergeRecordings(wanted, cGoOn).records, 7u);
}
