// An archive of recordings: listed, noted, kept and pruned, by kestova ls, note, keep and prune, and counted from
// sheets.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>

#include "KestovaRecordings/noteplace.h"
#include "KestovaRecordings/prune.h"
#include "KestovaRecordings/recordingcounts.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datastorageio.h"
#include "support/filebytes.h"
#include "support/ownnamespace.h"
#include "support/recordedsegments.h"
#include "support/sanitized.h"
#include "support/toolfixture.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace
{
namespace fs = std::filesystem;
using recordings::tSheet;
using testing::ElementsAre;
using testing::HasSubstr;

class tToolArchiveTest : public tToolFixture
{
protected:
    static constexpr std::uint64_t cDay = 86'400'000;

    tToolArchiveTest() { fs::create_directory(root); }

    // Segments of ten packages, one a second, on two streams.
    static tSegments packages(std::uint64_t firstMs, std::size_t count = 10)
    {
        tSegments made;
        for (std::uint32_t i = 0; i < count; ++i)
            made.push_back({firstMs + i * 1000, makePackage(i, "payload", i % 2 == 0 ? eReadType : eRadarClientType)});
        return made;
    }
    // A recording of one file, finished or not.
    std::string record(const std::string& name, std::uint64_t firstMs, const char* file = "0000_a.data",
                       bool finished = true) const
    {
        fs::create_directories(root + "/" + name);
        recordByHand(root + "/" + name + "/" + file, packages(firstMs), finished);
        return root + "/" + name;
    }
    static void makeSheet(
        const std::string& file, const std::function<void(tSheet&)>& change = [](tSheet&) {})
    {
        recordings::tSheetBuilder builder;
        storage::tDataFile data;
        ASSERT_TRUE(data.open(file));
        std::string segment;
        for (std::size_t i = 0; i < data.recordCount(); ++i)
        {
            ASSERT_TRUE(data.read(i, segment));
            builder.add(data.record(i).timeMs, storage::cNoFineTime, segment, data.record(i).pos);
        }
        tSheet sheet;
        sheet.id = recordings::newSheetId();
        builder.fill(sheet);
        recordings::sealSheet(sheet, file);
        change(sheet);
        recordings::writeSheet(file, sheet);
    }
    tJson listed(const tArguments& more = {}, int status = 0) const
    {
        tArguments arguments = {"ls", root};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return result(arguments, status).at("recordings");
    }
    static std::vector<std::string> namesOf(const tJson& rows)
    {
        std::vector<std::string> names;
        for (const tJson& row : rows)
            names.push_back(row.at("name"));
        return names;
    }
    std::vector<std::string> names(const tArguments& more = {}, int status = 0) const
    {
        return namesOf(listed(more, status));
    }
    tJson prune(const tArguments& more, int status = 0) const
    {
        tArguments arguments = {"prune", root};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return result(arguments, status);
    }

    const std::string root = dir.file("root");
};
}  // namespace

TEST_F(tToolArchiveTest, listsRecordingsWithTheNewestFirst)
{
    const std::string old = record("Data_000009_x", cTime - 3 * cDay, "0000_2024-05-14_09-12-41_A1_2_B.data");
    record("Data_000001_x", cTime);
    recordByHand(root + "/Data_000001_x/0001_b.data", packages(cTime + 60'000), false);
    const std::string middle = record("Data_000005_x", cTime - cDay);
    makeSheet(middle + "/0000_a.data", [](tSheet& sheet) {
        sheet.losses.kernelDropped = 3;
        sheet.notes = {{cTime, "one"}, {cTime, "two"}};
        sheet.radarSerial = "S7";
    });
    const tJson rows = listed();
    ASSERT_THAT(namesOf(rows), ElementsAre("Data_000001_x", "Data_000005_x", "Data_000009_x"));
    struct stat data, sheet;
    ASSERT_EQ(::stat((middle + "/0000_a.data").c_str(), &data), 0);
    ASSERT_EQ(::stat((middle + "/0000_a.json").c_str(), &sheet), 0);
    expectIn(rows[0], {{"files", 2}, {"state", "unfinished"}, {"first_ms", cTime}, {"last_ms", cTime + 69'000}});
    expectIn(rows[1], {{"path", middle},
                       {"state", "finished"},
                       {"lost", 3},
                       {"kept", false},
                       {"notes", 2},
                       {"size_bytes", (data.st_blocks + sheet.st_blocks) * 512},
                       {"radar", "S7"}});
    EXPECT_THAT(names({"--radar", "A1:2"}), ElementsAre("Data_000009_x"));
    EXPECT_THAT(names({"--radar", "S7"}), ElementsAre("Data_000005_x"));
    EXPECT_EQ(said({"ls", old}).find("\nData"), std::string::npos);
}

TEST_F(tToolArchiveTest, listsWhatOverlapsATime)
{
    record("Data_000000_x", 1'000'000'000'000);  // to :09 of that minute
    record("Data_000001_x", 1'000'000'060'000);
    const auto since = [](std::uint64_t ms) { return std::to_string(ms); };
    EXPECT_THAT(names({"--since", since(1'000'000'009'000)}), ElementsAre("Data_000001_x", "Data_000000_x"));
    EXPECT_THAT(names({"--since", since(1'000'000'009'001)}), ElementsAre("Data_000001_x"));
    EXPECT_THAT(names({"--until", since(1'000'000'059'999)}), ElementsAre("Data_000000_x"));
    EXPECT_THAT(names({"--since", "2d"}), ElementsAre());
    EXPECT_THAT(said({"ls", root, "--since", "yesterday"}, 2), HasSubstr("'yesterday' is no time"));
}

TEST_F(tToolArchiveTest, namesTheStateOfARecording)
{
    const std::string cut = record("cut", cTime);
    fs::resize_file(cut + "/0000_a.data", fs::file_size(cut + "/0000_a.data") - 1);
    record("dead", cTime, "0000_a.data", false);
    record("other", cTime);
    std::ofstream(root + "/other/0001_b.data") << "no data file at all";
    storage::tDataStorageIO recorder("", ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(root + "/live/", "live", false));
    recorder.WriteData("segment", 7, cTime);
    ASSERT_TRUE(recorder.WaitWriteIdle(5000));
    std::map<std::string, std::string> states;
    for (const tJson& row : listed({}, 3))
        states[row.at("name")] = row.at("state");
    EXPECT_EQ(states, (std::map<std::string, std::string>{
                          {"cut", "damaged"}, {"dead", "unfinished"}, {"live", "recording"}, {"other", "finished"}}));
}

TEST_F(tToolArchiveTest, takesNamesOfEveryByteAndFollowsLinksOnce)
{
    const std::string name = "a\n\x1b[31m\\ \xff\"b";
    record(name, cTime);
    fs::create_directory_symlink(root, root + "/" + name + "/back");
    record(".hidden", cTime);
    EXPECT_EQ(listed().size(), 1u);
    const std::string text = said({"ls", root});
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_EQ(result({"info", root}).at("total").at("records"), 10);
    said({"note", root, "found"});
    EXPECT_EQ(listed().at(0).at("notes"), 1);
}

TEST_F(tToolArchiveTest, writesANoteWhereItBelongs)
{
    const std::string first = record("Data_000000_x", cTime);
    recordByHand(first + "/0001_b.data", packages(cTime + 10'000));
    expectIn(result({"note", first, "begins"}), {{"file", first + "/0000_a.data"}, {"time_ms", cTime}});
    expectIn(result({"note", first, "in the second", "--at", "+12"}),
             {{"file", first + "/0001_b.data"}, {"time_ms", cTime + 12'000}});
    EXPECT_THAT(said({"note", first, "too late", "--at", "+20"}, 1), HasSubstr("outside"));
    said({"note", first, "begins again", "--at", "0%"});
    const tJson notes = result({"info", first}).at("total").at("notes");
    ASSERT_EQ(notes.size(), 3u);
    expectIn(notes[1], {{"text", "begins again"}});
    record("Data_000001_x", cTime);
    EXPECT_THAT(said({"note", root, "which one"}, 1), HasSubstr("0 of its 2 recordings are under way"));
    EXPECT_THAT(said({"note", first, "\xff"}, 2), HasSubstr("UTF-8"));
}

TEST_F(tToolArchiveTest, notesTheRecordingUnderWayNow)
{
    record("Data_000000_x", cTime);
    storage::tDataStorageIO recorder("", ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(root + "/Data_000001_x/", "live", false));
    recorder.WriteData("segment", 7, cTime);
    ASSERT_TRUE(recorder.WaitWriteIdle(5000));
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    const tJson note = result({"note", root, "now"});
    EXPECT_EQ(note.at("file"), recorder.GetCurrentWriteDataFileName());
    EXPECT_GE(note.at("time_ms"), std::chrono::duration_cast<std::chrono::milliseconds>(before).count());
}

TEST_F(tToolArchiveTest, deletesTheOldestByTheirLastRecordAndPassesOverTheKept)
{
    const std::string kept = record("Data_000005_x", 1'000'000), oldest = record("Data_000009_x", 2'000'000);
    record("Data_000001_x", 3'000'000);
    record("Data_000002_x", cTime);
    makeSheet(oldest + "/0000_a.data");
    fs::last_write_time(oldest + "/0000_a.data", fs::file_time_type::clock::now() + std::chrono::hours(24));
    said({"keep", kept});
    EXPECT_THAT(names({"--kept"}), ElementsAre("Data_000005_x"));
    const std::uint64_t size = listed().at(0).at("size_bytes");
    const std::string limit = std::to_string(size * 3 + 4096);
    EXPECT_EQ(prune({"--max-size", limit, "--dry-run"}).at("deleted").size(), 1u);
    EXPECT_EQ(listed().size(), 4u);
    const tJson pruned = prune({"--max-size", limit});
    ASSERT_EQ(pruned.at("deleted").size(), 1u);
    expectIn(pruned.at("deleted").at(0), {{"path", oldest}, {"last_ms", 2'009'000}, {"cause", "max-size"}});
    EXPECT_FALSE(fs::exists(oldest));
    EXPECT_EQ(prune({"--max-age", "1w"}).at("deleted").size(), 2u);
    EXPECT_THAT(names(), ElementsAre("Data_000005_x"));
    said({"keep", kept, "--release"});
    EXPECT_EQ(prune({"--min-free", "1000T"}).at("deleted").size(), 1u);
    EXPECT_TRUE(fs::is_empty(root));
    EXPECT_THAT(said({"prune", root}, 2), HasSubstr("--max-age, --max-size or --min-free"));
}

TEST_F(tToolArchiveTest, deletesNothingButRecordings)
{
    record("other", 1'000'000);
    record("Data_00001_x", 1'000'000);
    record("Data_000001_", 1'000'000);
    const std::string linked = dir.file("elsewhere/");
    fs::create_directory(linked);
    fs::rename(record("Data_000002_x", 1'000'000), linked + "Data_000002_x");
    fs::create_directory_symlink(linked + "Data_000002_x", root + "/Data_000003_x");
    const std::string shared = record("Data_000004_x", 1'000'000);
    std::ofstream(shared + "/0000_a.json.bak") << "the user's own";
    makeSheet(shared + "/0000_a.data");
    fs::copy_file(shared + "/0000_a.json", shared + "/0001_gone.json");
    record(".pruned.0.Data_000006_x", 1'000'000);  // left behind
    EXPECT_EQ(prune({"--max-age", "1w"}).at("deleted").size(), 2u);
    std::set<std::string> left;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        left.insert(entry.path().lexically_relative(root).string());
    EXPECT_EQ(left, (std::set<std::string>{"other", "other/0000_a.data", "Data_00001_x", "Data_00001_x/0000_a.data",
                                           "Data_000003_x", "Data_000004_x", "Data_000004_x/0000_a.json.bak"}));
    EXPECT_TRUE(fs::exists(linked + "Data_000002_x/0000_a.data"));
}

TEST_F(tToolArchiveTest, leavesWhatIsRecordedOrPlayed)
{
    const std::string played = record("Data_000000_x", 1'000'000);
    storage::tDataStorageIO recorder("", ".data"), player("", ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(root + "/Data_000001_x/", "live", false));
    recorder.WriteData("segment", 7, 1'000'000);
    ASSERT_TRUE(recorder.WaitWriteIdle(5000));
    ASSERT_TRUE(player.OpenReadDataFileorFolder(played, nullptr));
    ASSERT_TRUE(waitUntil([&] { return storage::isBeingPlayed(played + "/0000_a.data"); }));
    EXPECT_EQ(listed().size(), 2u);
    const tJson passed = prune({"--max-age", "1w"}).at("passed_over");
    ASSERT_EQ(passed.size(), 2u);
    EXPECT_EQ(listed().size(), 2u);
    player.CloseReadingFile();
    recorder.FinishWrite();
    EXPECT_EQ(prune({"--max-age", "1w"}).at("deleted").size(), 2u);
}

// A ring deletes finished files of its own recording, and whole others.
TEST_F(tToolArchiveTest, keepsARingWithinItsLimits)
{
    const std::string own = record("Data_000001_x", 2'000'000);
    for (const char* name : {"/0001_b.data", "/0002_c.data"})
        recordByHand(own + name, packages(3'000'000));
    record("Data_000000_x", 1'000'000);
    record("Data_000002_x", 2'500'000);
    said({"keep", own + "/0001_b.data"});
    std::vector<std::string> deleted;
    recordings::tPruneOptions options;
    options.ownFolder = own;
    options.inHand = own + "/0002_c.data";
    recordings::tPruneLimits limits;
    limits.maxAgeMs = cDay;
    const auto result = recordings::pruneRoot(root, limits, options,
                                              [&](const recordings::tPruned& one) { deleted.push_back(one.path); });
    EXPECT_THAT(deleted, ElementsAre(root + "/Data_000000_x", own + "/0000_a.data", root + "/Data_000002_x"));
    EXPECT_EQ(dataFilesIn(root).size(), 2u);
    EXPECT_EQ(result.recordings, 1u);
    EXPECT_FALSE(result.reached);
}

TEST_F(tToolArchiveTest, deletesWhileItRecords)
{
    const std::string old = record("Data_000000_x", 1'000'000), kept = record("Data_000001_x", 1'000'000);
    said({"keep", kept});
    tChildProcess child(tool({"record", "--group", addressText(testGroup()), "--local-ip", "127.0.0.1", "--root", root,
                              "--max-age", "1d", "--json"}));
    EXPECT_TRUE(child.says("deleted " + old));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 3) << "nothing came";
    const tJson reclaimed = parsed(child.out()).at("reclaimed");
    ASSERT_EQ(reclaimed.size(), 1u);
    expectIn(reclaimed.at(0), {{"path", old}, {"cause", "max-age"}});
    EXPECT_TRUE(fs::exists(kept));
}

// Two recorders, and again and again a prune and a verify: nobody loses anything to another.
TEST_F(tToolArchiveTest, servesTwoRecordersAPruneAndAVerifyAtOnce)
{
    constexpr std::size_t cBatch = 10, cRounds = 8;
    std::vector<NetAddress> groups = {testGroup(), testGroup()};
    std::vector<std::unique_ptr<tChildProcess>> recorders;
    std::vector<std::unique_ptr<net::UdpSender>> senders;
    for (const NetAddress& group : groups)
    {
        recorders.push_back(std::make_unique<tChildProcess>(
            tool({"record", "--group", addressText(group), "--local-ip", "127.0.0.1", "--root", root, "--json"})));
        ASSERT_TRUE(recorders.back()->says("recording to ")) << recorders.back()->err();
        senders.push_back(std::make_unique<net::UdpSender>(group, loopbackIp(), 0));
    }
    std::size_t deleted = 0;
    for (std::size_t round = 0; round < cRounds; ++round)
    {
        makeSheet(record("Data_00010" + std::to_string(round) + "_x", 1'000'000) + "/0000_a.data");
        const std::vector<net::tUdpDatagram> datagrams(cBatch, {"datagram", 8});
        for (const auto& sender : senders)
            sender->sendBatch(datagrams.data(), static_cast<int>(cBatch));
        tChildProcess pruner(tool({"prune", root, "--max-age", "1w", "--json"}));
        tChildProcess verifier(tool({"verify", root, "--json"}));
        EXPECT_EQ(pruner.wait(), 0) << pruner.err();
        EXPECT_THAT(verifier.wait(), testing::AnyOf(0, 3)) << verifier.err();
        deleted += parsed(pruner.out()).at("deleted").size();
        expectIn(parsed(verifier.out()).at("total"), {{"damaged", 0}, {"unfinished", 0}, {"recording", 2}});
    }
    EXPECT_EQ(deleted, cRounds);
    for (const auto& recorder : recorders)
    {
        recorder->signal(SIGINT);
        EXPECT_EQ(recorder->wait(), 0) << recorder->err();
    }
    const tJson rows = listed();
    ASSERT_EQ(rows.size(), 2u);
    for (const tJson& row : rows)
        expectIn(row, {{"records", cRounds * cBatch}, {"lost", 0}, {"state", "finished"}});
    expectIn(result({"verify", root}).at("total"), {{"sound", 2}, {"damaged", 0}});
}

TEST_F(tToolArchiveTest, managesTenThousandRecordings)
{
    constexpr std::size_t cRecordings = cSanitized ? 1000 : 10'000;
    for (std::size_t i = 0; i < cRecordings; ++i)
    {
        const std::string folder = root + "/Data_" + std::to_string(100'000 + i) + "_x";
        fs::create_directory(folder);
        recordByHand(folder + "/0000_a.data", {{cTime + i * 1000, "segment"}});
    }
    const tJson rows = listed();
    ASSERT_EQ(rows.size(), cRecordings);
    EXPECT_EQ(rows.front().at("name"), "Data_" + std::to_string(99'999 + cRecordings) + "_x");
    EXPECT_EQ(rows.back().at("name"), "Data_100000_x");
    EXPECT_EQ(prune({"--max-size", cSanitized ? "4M" : "40M"}).at("deleted").at(0).at("path"), root + "/Data_100000_x");
    const std::size_t left = listed().size();
    EXPECT_EQ(prune({"--max-age", "1d"}).at("deleted").size(), left);
    EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(tToolArchiveTest, leavesWholeRecordingsWhenItIsKilled)
{
    constexpr int cRounds = cSanitized ? 6 : 30, cRecordings = 6;
    for (int round = 0; round < cRounds; ++round)
    {
        for (int i = 0; i < cRecordings; ++i)
            for (const char* file : {"0000_a.data", "0001_b.data", "0002_c.data"})
                makeSheet(record("Data_00000" + std::to_string(i) + "_x", 1'000'000 + static_cast<std::uint64_t>(round),
                                 file) +
                          "/" + file);
        tChildProcess child(tool({"prune", root, "--max-age", "1w"}));
        std::this_thread::sleep_for(std::chrono::microseconds(round * (cSanitized ? 2000 : 400)));
        child.signal(SIGKILL);
        child.wait();
        for (const tJson& row : listed())
            expectIn(row, {{"files", 3}, {"sheets", 3}, {"state", "finished"}});
    }
    prune({"--max-age", "1w"});
    EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(tToolArchiveTest, leavesASheetAsItWasOnAFullDisk)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    const tTinyDisk tiny(root, 1);
    const std::string file = record("Data_000000_x", cTime) + "/0000_a.data";
    makeSheet(file);
    const std::string before = contentsOf(root + "/Data_000000_x/0000_a.json");
    std::ofstream(root + "/full") << std::string(2'000'000, 'x');
    for (const tArguments& arguments : {tArguments{"note", file, "x"}, tArguments{"keep", file}})
    {
        const std::string why = said(arguments, 1);
        EXPECT_EQ(std::count(why.begin(), why.end(), '\n'), 1) << why;
        EXPECT_EQ(contentsOf(root + "/Data_000000_x/0000_a.json"), before);
    }
    EXPECT_EQ(prune({"--max-age", "1w"}).at("deleted").size(), 1u);
}

// What a sheet tells is what reading tells: sums, spans, silences, gaps and seconds, over several files.
TEST_F(tToolArchiveTest, countsFromSheetsAsFromRecords)
{
    const std::string folder = record("Data_000000_x", cTime);
    const std::uint64_t starts[] = {cTime + 13'000, cTime + 40'000, cTime + 60'250};
    tSegments second;
    for (const std::uint64_t start : starts)
        for (tSegment& segment : packages(start, 3))
            second.push_back(std::move(segment));
    second.push_back({cTime + 90'000, makePackage(9, "late", eReadType)});
    recordByHand(folder + "/0001_b.data", second);
    const auto total = [&] {
        tJson json = result({"info", folder, "--timeline"}).at("total");
        json.erase("sheets");
        return json;
    };
    const tJson read = total();
    for (const char* name : {"/0000_a.data", "/0001_b.data"})
        makeSheet(folder + name);
    EXPECT_EQ(total(), read);
    EXPECT_EQ(read.at("gaps").size(), 3u);
    const tJson seconds = read.at("streams").at(0).at("per_second");
    EXPECT_EQ(seconds.at("from_s"), cTime / 1000);
    EXPECT_EQ(result({"info", folder}).at("total").at("sheets"), 2);
    // Nothing is read of a file with a sheet; of others everything.
    putBytes(folder + "/0001_b.data", 10'000'000, std::string(40, 'x'));
    EXPECT_EQ(total(), read);
    fs::remove(folder + "/0001_b.json");
    EXPECT_EQ(total().at("streams").size(), read.at("streams").size() + 1);
}

TEST_F(tToolArchiveTest, showsWhatASheetSays)
{
    const std::string file = record("Data_000000_x", cTime) + "/0000_a.data";
    makeSheet(file, [](tSheet& sheet) {
        sheet.kept = true;
        sheet.losses = {1, 2, 3, {{"239.17.0.1:6001", 5, 6}}, std::nullopt};
        sheet.clock = {"system", -12.5, 1.5, {{cTime, -3'600'000}}};
        sheet.notes = {{cTime, "a \x1b note"}};
    });
    const tJson row = result({"info", root}).at("files").at(0);
    expectIn(row, {{"kept", true}, {"notes", {{{"time_ms", cTime}, {"text", "a \x1b note"}}}}});
    expectIn(row.at("losses"), {{"kernel_dropped", 1}, {"queue_lost", 2}, {"disk_lost", 3}});
    EXPECT_EQ(row.at("losses").at("joins_lost").at(0).at("address"), "239.17.0.1:6001");
    EXPECT_EQ(row.at("clock").at("steps").at(0).at("step_ms"), -3'600'000);
    const std::string text = said({"info", root});
    for (const char* part : {"kernel dropped 1, queue lost 2, disk lost 3, joins lost 1", "-12 ms against GPS",
                             "set by -3600000 ms", "a \\x1b note", ", kept\n"})
        EXPECT_THAT(text, HasSubstr(part));
    fs::copy_file(root + "/Data_000000_x/0000_a.json", record("Data_000001_x", cTime + 12'345) + "/0000_a.json");
    tChildProcess child(tool({"info", root, "--json"}));
    EXPECT_EQ(child.wait(), 0);
    EXPECT_THAT(child.err(), HasSubstr("belongs to another data file"));
    EXPECT_EQ(parsed(child.out()).at("ignored_sheets").size(), 1u);
}

TEST_F(tToolArchiveTest, countsLargeFilesOnSeveralThreadsAsOnOne)
{
    tSegments segments;
    for (std::uint32_t i = 0; i < 600; ++i)
        segments.push_back({cTime + i * 40, makePackage(i, numberedSegment(i, 50'000), eReadType)});
    for (const char* name : {"a.data", "b.data", "c.data"})
    {
        recordByHand(dir.file(name), segments);
        for (tSegment& segment : segments)
            segment.time += 30'000;
    }
    const auto count = [&](const std::vector<std::string>& names) {
        return recordings::countRecordings(names, {}, [](const auto&) { return true; });
    };
    const auto all = count({dir.file("a.data"), dir.file("b.data"), dir.file("c.data")});
    ASSERT_EQ(all.files.size(), 3u);
    const auto& stream = all.total.streams.begin()->second;
    EXPECT_EQ(stream.messages(), 1800u);
    ASSERT_EQ(stream.gaps().size(), 2u);
    EXPECT_EQ(stream.gaps()[0].length(), 30'000u - 599 * 40);
    EXPECT_EQ(all.files[1].firstMs, cTime + 30'000);
}

TEST(tUnitsTest, parsesSizesAndLongDurations)
{
    const struct
    {
        const char* text;
        std::uint64_t bytes;
    } cases[] = {{"500", 500},
                 {"1.5K", 1500},
                 {"2M", 2'000'000},
                 {"3GB", 3'000'000'000},
                 {"1T", 1'000'000'000'000},
                 {"64GiB", std::uint64_t(64) << 30},
                 {"2Ki", 2048},
                 {"7B", 7}};
    for (const auto& c : cases)
        EXPECT_EQ(tool::parseSize(c.text), c.bytes) << c.text;
    for (const char* text : {"", "G", "1X", "-1G", "1 G", "1iB", "1e30", "nan"})
        EXPECT_THROW(tool::parseSize(text), std::invalid_argument) << text;
    EXPECT_EQ(tool::parseDuration("3d"), 259'200'000u);
    EXPECT_EQ(tool::parseDuration("2w"), 1'209'600'000u);
    EXPECT_EQ(tool::parseWhen("1d", 100'000'000), 13'600'000u);
    EXPECT_EQ(tool::parseWhen("1970-01-02T00:00:00Z", 0), 86'400'000u);
    EXPECT_EQ(tool::parseWhen("2024-05-17 08:30:00", 0) - tool::parseWhen("2024-05-17", 0), 30'600'000u);
    EXPECT_THROW(tool::parseWhen("+1d", 0), std::invalid_argument);
}
