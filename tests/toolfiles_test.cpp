// Files made of files: kestova compress and expand, kestova export and pcap. A recording becomes its Huffman form or a
// capture, and that becomes the recording again.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "KestovaRecordings/activity.h"
#include "KestovaRecordings/frames.h"
#include "KestovaRecordings/recordingcounts.h"
#include "KestovaStorage/datastorageio.h"
#include "support/recordedpackages.h"
#include "support/toolfixture.h"

namespace
{
std::uint32_t word(const std::string& bytes, std::size_t at)
{
    return static_cast<unsigned char>(bytes.at(at)) * 256u + static_cast<unsigned char>(bytes.at(at + 1));
}

// Of bytes that hold their own checksum, and it is right.
bool hasRightChecksum(std::string bytes)
{
    bytes.resize((bytes.size() + 1) / 2 * 2);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 2)
        sum += word(bytes, i);
    return sum != 0 && sum % 0xFFFF == 0;  // ones' complement: carries come back in
}

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
using tToolPcapTest = tToolFixture;
}  // namespace

TEST_F(tToolConvertTest, compressesAFolderAndExpandsItAgain)
{
    const tSegments segments = make("a.data", 2);
    make("b.data", 1);
    recordByHand(dir.file("u.data"), {{1, "unfinished"}}, false);
    const tJson compressed = result({"compress", dir.string()}, 3);
    EXPECT_EQ(compressed.at("schema"), "kestova/compress/1");
    EXPECT_EQ(compressed.at("files").size(), 2u);
    EXPECT_NE(compressed.at("failed").at(0).get<std::string>().find("unfinished"), std::string::npos);
    EXPECT_LT(compressed.at("after_bytes"), compressed.at("before_bytes").get<std::uint64_t>() * 2 / 3);
    EXPECT_EQ(segmentsOf(dir.file("a.tar.data")), segments);
    tChildProcess again(tool({"compress", dir.string(), "--json"}));
    EXPECT_EQ(again.wait(), 1);
    EXPECT_EQ(parsed(again.out()).at("already"), 2);
    EXPECT_EQ(result({"info", dir.file("a.tar.data")}).at("total").at("records"), segments.size());
    EXPECT_EQ(result({"expand", dir.string()}).at("files").size(), 2u);
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

TEST_F(tToolPcapTest, makesACaptureOfARecordingAndTheRecordingOfTheCapture)
{
    const std::vector<std::string> payloads = {
        "", "a", std::string(1472, 'b'), std::string(1473, 'c'), std::string(65'000, 'd'), "\x5A\xA5\xE0\x01spoke"};
    std::vector<std::string> segments;
    for (const std::string& payload : payloads)
        segments.push_back(makePackage(1, payload, eReadType));
    segments.push_back("no package");
    fileOf(segments, 250, "r.data");
    expectIn(result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")}, 3),
             {{"datagrams", payloads.size()}, {"no_datagrams", 1}, {"frames", 4 + 2 + 44}});  // pieces of 1,480 bytes
    const tJson shown = result({"pcap", dir.file("r.pcap"), "--select", "all", "--to", dir.file("again")});
    expectIn(shown, {{"schema", "kestova/pcap/2"}, {"datagrams", payloads.size() - 1}, {"empty_beginnings", 0}});
    EXPECT_EQ(shown.at("recorded").at("datagrams"), payloads.size()) << "statistics leave the empty one out";
    EXPECT_GT(shown.at("streams").at(0).at("datagrams_per_second"), 3.0);
    EXPECT_EQ(shown.at("streams").at(0).at("address"), "239.17.0.1:6001");
    const std::vector<tRecordedPackage> again = recordedPackages(dir.file("again"));
    ASSERT_EQ(again.size(), payloads.size());
    for (std::size_t i = 0; i < payloads.size(); ++i)
    {
        EXPECT_EQ(again[i].payload, payloads[i]) << i;
        EXPECT_EQ(again[i].timeMs, cTime + i * 250);
        EXPECT_EQ(groupText(again[i]), "239.17.0.1:6001");
    }
}

TEST_F(tToolPcapTest, countsARecordingUntilItIsCancelled)
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

TEST_F(tToolPcapTest, findsNoDamageInARecordingThatIsBeingWritten)
{
    constexpr int cReadings = 60;
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

TEST_F(tToolPcapTest, countsAFileThatIsCompressedMeanwhileAndLeavesOutOneThatIsDeleted)
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

TEST_F(tToolPcapTest, recordsOnlyWhatIsSelected)
{
    fileOf({makePackage(1, "x", eReadType)}, 1, "r.data");
    result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")});
    const tJson none = result({"pcap", dir.file("r.pcap"), "--select", "239.17.0.2:6001", "--to", dir.file("none")}, 3);
    EXPECT_EQ(none.at("recorded").at("datagrams"), 0);
    EXPECT_TRUE(none.at("streams").empty());
    EXPECT_TRUE(recordedPackages(dir.file("none")).empty());
    said({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")}, 1);  // it exists
    std::ofstream(dir.file("x.part")) << "somebody's";
    said({"export", dir.file("r.data"), "--pcap", dir.file("x")}, 1);
    EXPECT_TRUE(std::ifstream(dir.file("x.part")).good());
    said({"pcap", dir.file("r.pcap"), "--select", "all", "--to", dir.file("r.data")}, 1);  // no folder
}

TEST_F(tToolPcapTest, namesWhatItCannotReadAndHowToConvertIt)
{
    const auto head = [](std::uint32_t magic, std::uint32_t linkType) {
        return littleEndian(magic, 4) + littleEndian(0x00040002, 4) + std::string(12, '\0') + littleEndian(linkType, 4);
    };
    const std::pair<std::string, const char*> cases[] = {
        {head(0xD4C3B2A1, 1), "other byte order: convert it with editcap -F pcap"},
        {head(0xA1B23C4D, 1), "nanosecond"},
        {head(0x0A0D0D0A, 1), "pcapng"},
        {head(0xA1B2C3D4, 113), "Linux cooked"},
        {"text, long enough for a head", "no capture"},
        {"short", "shorter"}};
    for (const auto& [bytes, reason] : cases)
    {
        std::ofstream(dir.file("other"), std::ios::binary) << bytes;
        const std::string why = said({"pcap", dir.file("other")}, 1);
        EXPECT_NE(why.find(reason), std::string::npos) << why;
    }
    said({"pcap", dir.file("missing")}, 1);
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

TEST(tFramesTest, carriesRightChecksumsAndFragmentsThatFit)
{
    const NetAddress from = {net::transAddr("192.0.2.1"), net::HtoNs(6000)};
    const NetAddress to = {net::transAddr("239.200.3.4"), net::HtoNs(6001)};
    for (const std::size_t len : {0u, 1u, 1472u, 1473u, 2953u, 65'507u})
    {
        SCOPED_TRACE(len);
        std::string message;
        const std::vector<std::string> frames = recordings::framesOf(from, to, std::string(len, '\xFF'), 77);
        for (const std::string& frame : frames)
        {
            EXPECT_LE(frame.size(), 1514u);
            EXPECT_EQ(frame.substr(0, 6), std::string("\x01\x00\x5E\x48\x03\x04", 6));
            EXPECT_TRUE(hasRightChecksum(frame.substr(14, 20)));
            EXPECT_EQ(word(frame, 16), frame.size() - 14);
            EXPECT_EQ((word(frame, 20) & 0x1FFF) * 8, message.size());
            EXPECT_EQ((word(frame, 20) & 0x2000) != 0, &frame != &frames.back());
            message += frame.substr(34);
        }
        ASSERT_EQ(message.size(), 8 + len);
        EXPECT_NE(word(message, 6), 0u);
        const std::string pseudo = frames[0].substr(26, 8) + std::string("\0\x11", 2) + message.substr(4, 2);
        EXPECT_TRUE(hasRightChecksum(pseudo + message));
    }
}
