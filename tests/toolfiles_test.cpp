// Files made of files: kestova compress and expand. A recording becomes its Huffman form, and that becomes the
// recording again.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "KestovaRecordings/activity.h"
#include "KestovaRecordings/recordingcounts.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datastorageio.h"
#include "support/recordedsegments.h"
#include "support/toolfixture.h"

namespace
{
class tToolConvertTest : public tToolFixture
{
protected:
    // A finished file of so many megabytes that compresses.
    tSegments make(const char* name, std::size_t megabytes)
    {
        tSegments segments;
        for (std::uint64_t i = 0; i < megabytes * 2; ++i)
            segments.push_back({1000 + i, numberedSegment(i, 250'000) + std::string(250'000, '\0')});
        recordByHand(dir.file(name), segments);
        return segments;
    }
    bool isTidy() const
    {
        return std::ranges::all_of(std::filesystem::directory_iterator(dir.string()),
                                   [](const auto& entry) { return entry.path().extension() == ".data"; });
    }
};
using tToolCountTest = tToolFixture;
}  // namespace

TEST_F(tToolConvertTest, compressesAFolderAndExpandsItAgain)
{
    const tSegments segments = make("a.data", 2);
    make("b.data", 1);
    recordByHand(dir.file("u.data"), {{1, "unfinished"}}, false);
    const tJson compressed = result({"compress", dir.string()}, 3);
    EXPECT_EQ(compressed.at("schema"), "kestova/compress/2");
    EXPECT_EQ(compressed.at("files").size(), 2u);
    EXPECT_NE(compressed.at("failed").at(0).get<std::string>().find("unfinished"), std::string::npos);
    EXPECT_LT(compressed.at("after_bytes"), compressed.at("before_bytes").get<std::uint64_t>() * 2 / 3);
    EXPECT_EQ(segmentsOf(dir.file("a.tar.data")), segments);
    tChildProcess again(tool({"compress", dir.string(), "--json"}));
    EXPECT_EQ(again.wait(), 1);
    EXPECT_EQ(parsed(again.out()).at("already"), 2);
    EXPECT_EQ(result({"info", dir.file("a.tar.data")}).at("total").at("records"), segments.size());
    tChildProcess expanding(tool({"expand", dir.file("none"), dir.string(), "--json"}));
    EXPECT_EQ(expanding.wait(), 1) << "the worst of all paths";
    const tJson expanded = parsed(expanding.out());
    EXPECT_EQ(expanded.at("files").size(), 2u);
    EXPECT_EQ(expanded.at("skipped").at(0).at("path"), dir.file("none"));
    EXPECT_EQ(segmentsOf(dir.file("a.data")), segments);
    EXPECT_TRUE(isTidy());
}

TEST_F(tToolConvertTest, namesWhatItLeavesOutOfAFileThatAFullDiskCut)
{
    make("c.data", 1);
    putBytes(dir.file("c.data"), std::filesystem::file_size(dir.file("c.data")), "xyz");
    const tJson cut{{{"path", dir.file("c.data")}, {"records", 0}, {"bytes", 3}}};
    EXPECT_EQ(result({"compress", dir.string()}).at("left_out"), cut);
    make("d.data", 1);
    std::filesystem::resize_file(dir.file("d.data"), std::filesystem::file_size(dir.file("d.data")) - 1);
    EXPECT_NE(said({"compress", dir.string()}).find("left out, cut by a full disk: 1 records, 499999 bytes"),
              std::string::npos);
}

TEST_F(tToolConvertTest, endsAtCtrlCWithTheOriginal)
{
    const tSegments segments = make("c.data", 60);
    tChildProcess child(tool({"compress", dir.string(), "--json"}));
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(dir.file("c.data.part")); }));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 1);
    EXPECT_NE(child.err().find("interrupted"), std::string::npos) << child.err();
    EXPECT_FALSE(parsed(child.out()).at("complete"));
    EXPECT_TRUE(segmentsOf(dir.file("c.data")) == segments);
    EXPECT_TRUE(isTidy());
}

TEST_F(tToolCountTest, countsARecordingUntilItIsCancelled)
{
    fileOf(std::vector<std::string>(3000, "no package"), 1, "r.data");
    const auto count = [&](std::size_t limit) {
        return recordings::countRecordings({dir.file("r.data")}, {}, [&](const recordings::tCountProgress& at) {
            return at.files == 1 && at.records == 3000 && at.record < limit;
        });
    };
    EXPECT_TRUE(count(3000).complete);
    const recordings::tRecordingCounts counts = count(1025);
    EXPECT_FALSE(counts.complete);
    EXPECT_EQ(counts.files.at(0).streams.at(recordings::tStreamKey::raw()).messages(), 2048u);
}

TEST_F(tToolCountTest, findsNoDamageInARecordingThatIsBeingWritten)
{
    constexpr int cReadings = 20;
    storage::tDataStorageIO recorder("", ".data");
    ASSERT_TRUE(recorder.CreateNewWritingFile(dir.file("live") + "/", "live", false));
    std::atomic<bool> recording{true};
    std::thread writer([&] {
        for (std::uint32_t i = 0; recording; ++i)
        {
            const std::string package = makePackage(i, numberedSegment(i, 40), eReadType);
            recorder.WriteData(package.data(), package.size(), cTime + i);
            if (i % 4 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::uint64_t seen = 0;
    for (int i = 0; i < cReadings; ++i)
    {
        const tJson total = result({"info", dir.file("live")}).at("total");  // status 0: nothing is skipped
        expectIn(total, {{"damaged", 0}});
        EXPECT_GE(total.at("records"), seen);
        seen = total.at("records");
        const std::string capture = dir.file(std::to_string(i));
        const tJson exported = result({"export", dir.file("live"), "--pcap", capture});
        expectIn(exported, {{"damaged", 0}, {"no_datagrams", 0}});
        EXPECT_GE(exported.at("datagrams"), seen);
        std::filesystem::remove(capture);
    }
    recording = false;
    writer.join();
    EXPECT_GT(seen, 100u);
}

TEST_F(tToolCountTest, countsAFileThatIsCompressedMeanwhileAndLeavesOutOneThatIsDeleted)
{
    for (const char* name : {"a.data", "b.data", "c.data"})
        fileOf({makePackage(1, "x", eReadType)}, 1, name);
    const auto counts = recordings::countRecordings({dir.string()}, {}, [&](const recordings::tCountProgress& at) {
        if (at.file == 1)
        {
            std::filesystem::rename(dir.file("b.data"), dir.file("b.tar.data"));
            std::filesystem::remove(dir.file("c.data"));
        }
        return true;
    });
    EXPECT_TRUE(counts.leftOut.empty());
    ASSERT_EQ(counts.files.size(), 2u);
    EXPECT_EQ(counts.files[1].path, dir.file("b.tar.data"));
    EXPECT_EQ(counts.files[1].records, 1u);
}

// A recorder died when the compressed form had its name and the plain one was not yet removed.
TEST_F(tToolCountTest, readsTheCompressedFormOfWhatIsThereInBothForms)
{
    const std::string plain = fileOf({makePackage(1, "one"), makePackage(2, "two")}, 1, "a.data");
    std::filesystem::copy_file(plain, dir.file("kept"));
    std::string compressed;
    ASSERT_TRUE(storage::tDataFileConverter::Compress(plain, ".data", nullptr, &compressed, nullptr));
    std::filesystem::copy_file(dir.file("kept"), plain);
    const tJson shown = result({"info", dir.string()}, 3);
    EXPECT_EQ(shown.at("files").at(0).at("path"), compressed);
    EXPECT_EQ(shown.at("total").at("records"), 2);
    EXPECT_EQ(shown.at("skipped").at(0).at("path"), plain);
    EXPECT_EQ(result({"replay", dir.string()}, 3).at("records"), 2);
    EXPECT_EQ(result({"export", dir.string(), "--pcap", dir.file("capture")}, 3).at("datagrams"), 2);
    EXPECT_EQ(result({"info", plain}).at("files").at(0).at("path"), plain) << "what is asked for alone is read";

    std::thread recorder([&] {  // one that lives
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        std::filesystem::remove(plain);
    });
    const recordings::tFoundFiles found = recordings::findAllRecordings({dir.string()}, ".data");
    recorder.join();
    EXPECT_EQ(found.files, std::vector<std::string>{compressed});
    EXPECT_TRUE(found.leftOut.empty());
    fileOf({makePackage(1, "one"), makePackage(2, "two")}, 2, "a.data");  // at other times
    EXPECT_EQ(result({"info", dir.string()}).at("total").at("records"), 4);
}

// Without a digest only the ends of long packages are read.
TEST_F(tToolCountTest, countsTheSameWhetherItReadsWholeRecordsOrNot)
{
    std::vector<std::string> segments = {"", "short", std::string(4'100, 'r'), makePackage(1),
                                         makePackage(2, "odd").substr(1)};
    for (const std::size_t len : {100u, 4'055u, 4'056u, 20'000u, 65'000u, 4'500u})
        segments.push_back(makePackage(3, std::string(len, 'p'), eReadType));
    segments.push_back(makePackage(4, std::string(5'000, 'p'), eReadType));
    segments.back().back() = 'X';
    segments.push_back(makePackage(5, std::string(5'000, 'p'), eReadType, 4'999));
    fileOf(segments, 1, "r.data");
    const auto counted = [&](bool withDigest) {
        return recordings::countRecordings({dir.file("r.data")}, {.withDigest = withDigest},
                                           [](const auto&) { return true; });
    };
    const auto whole = counted(true), ends = counted(false);
    for (const auto& counts : {std::cref(whole), std::cref(ends)})
    {
        const recordings::tTotalCounts& total = counts.get().total;
        EXPECT_EQ(total.damaged, 0u);
        ASSERT_EQ(total.streams.size(), 2u);
        const auto& raw = total.streams.at(recordings::tStreamKey::raw());
        EXPECT_EQ(raw.messages(), 6u);
        EXPECT_EQ(raw.bytes(), 5u + 4'100u + 43u + 2 * 5'041u);
        EXPECT_EQ(total.streams.begin()->second.messages() + total.streams.rbegin()->second.messages(),
                  segments.size());
        EXPECT_EQ(total.streams.rbegin()->second.bytes() + total.streams.begin()->second.bytes() - raw.bytes(),
                  100u + 4'055 + 4'056 + 20'000 + 65'000 + 4'500);
    }
    std::filesystem::resize_file(dir.file("r.data"), std::filesystem::file_size(dir.file("r.data")) - 1);
    EXPECT_EQ(counted(false).total.damaged, 1u);
}

TEST(tActivityTest, findsSilencesInFilesOfAnyOrder)
{
    recordings::tActivity activity(10);
    for (const std::uint64_t time : {200u, 100u, 105u, 140u, 131u, 122u, 113u, 211u})
        activity.add(time);
    const auto silences = activity.silences();
    ASSERT_EQ(silences.size(), 2u);
    EXPECT_EQ(silences[0].fromMs, 140u);
    EXPECT_EQ(silences[0].toMs, 200u);
    EXPECT_EQ(silences[1].length(), 11u);
}

TEST(tStreamHistoryTest, leavesSilencesOutOfItsRate)
{
    recordings::tStreamHistory always, inside;  // both ten a second, in two recordings of two seconds
    for (const std::uint64_t start : {100'000u, 200'000u})
        for (std::uint64_t i = 0; i <= 20; ++i)
        {
            always.add(start + i * 100, "", 2000, false);
            if (i < 20)
                inside.add(start + 50 + i * 100, "", 2000, false);
        }
    const std::vector<recordings::tGap> silences = {{102'000, 200'000}};
    EXPECT_DOUBLE_EQ(always.messagesPerSecond(silences), 10.0);
    EXPECT_DOUBLE_EQ(inside.messagesPerSecond(silences), 10.0);
    EXPECT_LT(always.messagesPerSecond(), 0.5);
}
