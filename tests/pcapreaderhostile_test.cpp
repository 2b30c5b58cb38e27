// Captures that are large, damaged or made to do harm, and captures that other tools wrote.
#include <gmock/gmock.h>
#include <random>
#include <sys/resource.h>

#include "support/pcapreaderfixture.h"
#include "support/sanitized.h"

using testing::ElementsAre;

namespace
{
// Under a sanitizer with shadow memory and freed blocks that are kept.
constexpr std::size_t cMostMebibytes = cSanitized ? 2000 : 300;

using tPcapReaderHostileTest = tPcapReaderTest;

std::size_t peakMebibytes()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) / 1024;
}
}  // namespace

TEST_F(tPcapReaderHostileTest, keepsRowsUpToDateAsIfComposedAtTheEnd)
{
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i)
        capture.add(to("239.0.0." + std::to_string(random() % 40), static_cast<unsigned>(1 + random() % 3),
                       (random() % 4 == 0 ? "$HEHDT" : "abcdef") + std::string(random() % 5, 'x')));
    read({});
    const tLines stepByStep = log.reports.back();
    pcap::tPcapReader atOnce(write(), &log);
    atOnce.ReportAtEndOnly(true);
    read(atOnce, {});
    EXPECT_EQ(stepByStep, log.reports.back());
}

TEST_F(tPcapReaderHostileTest, showsTheLatestOfEqualsFirst)
{
    for (const unsigned port : {1u, 2u, 3u, 2u, 1u})
        capture.add(to("239.1.1.1", port, std::string(1 + port % 2, 'x')));
    for (const unsigned port : {1u, 2u, 3u})
        capture.add(to("239.1.1.1", port, "abc"));
    read({});
    EXPECT_THAT(rows, ElementsAre("239.1.1.1:2 3x 1*2,3*1 Unknow", "239.1.1.1:1 3x 2*2,3*1 Unknow",
                                  "239.1.1.1:3 2x 3*1,2*1 Unknow"));
}

TEST_F(tPcapReaderHostileTest, readsAFileCutAnywhere)
{
    capture.add(tFrame{}).add(fragment(0, true, "abc")).add(fragment(1, true, "def")).add(fragment(2, false, "ghi"));
    const std::string whole = capture.bytes;
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        SCOPED_TRACE(size);
        capture.bytes = whole.substr(0, size);
        tLines expected;
        if (size >= 82)  // headers are there; of the payload, what is held
            expected.push_back((capture.bytes.substr(82, 7) + std::string(7, '\0')).substr(0, 7));
        if (size >= 253)
            expected.push_back(("abcdef" + capture.bytes.substr(253) + std::string(3, '\0')).substr(0, 9));
        EXPECT_EQ(payloads(), expected);
        EXPECT_EQ(result.cut, size != 24 && size != 89 && size != 150 && size != 203 && size != whole.size());
    }
}

TEST_F(tPcapReaderHostileTest, followsARecordBeyondTheEndOfTheFile)
{
    const std::string frame = tFrame{}.bytes();
    capture.add(frame).add(frame + std::string(3'000'000, '\xAA')).add(frame, 1, 1, 0xFFFFFFFF).add(frame);
    EXPECT_THAT(payloads(), ElementsAre("payload", "payload", "payload"));
    EXPECT_TRUE(result.cut && result.finished);
    EXPECT_EQ(result.records, 3u);
}

TEST_F(tPcapReaderHostileTest, deliversWhatGrowsBeyond64KibAndForgetsWhatNeverEnds)
{
    const std::string piece(60'000, 'p');
    capture.add(fragment(0, true, "")).add(fragment(1, true, piece)).add(fragment(1, false, piece));
    for (unsigned i = 0; i < 20; ++i)
        capture.add(fragment(i, true, piece, 2));
    capture.add(fragment(1, false, "end", 2)).add(fragment(1, false, "orphan", 2));
    EXPECT_THAT(payloads(), ElementsAre(piece + piece));
    EXPECT_EQ(result.pending, 0u);
    EXPECT_EQ(result.orphans, 1u);
}

TEST_F(tPcapReaderHostileTest, keepsMemoryBoundedWhateverIsClaimed)
{
    std::string small, greedy;
    for (unsigned id = 0; id < 65'536; ++id)
    {
        const int claimed = id % 8 == 0 ? 65'535 : -1;  // in all half a GiB that the file does not hold
        small += tCapture().add(fragment(0, true, "abc", id)).bytes.substr(24);
        greedy += tCapture().add(tFrame{.payload = "abc", .flags = 1, .id = id, .totalLen = claimed}).bytes.substr(24);
    }
    for (int i = 0; i < 16; ++i)
        capture.bytes += i == 1 ? greedy : small;
    const std::size_t before = peakMebibytes();
    read();
    EXPECT_LT(peakMebibytes() - before, cMostMebibytes);
    EXPECT_EQ(result.records, 1'048'576u);
    EXPECT_EQ(result.pending, 65'536u);
}

TEST_F(tPcapReaderHostileTest, agreesWithTsharkOnCapturesOfTools)
{
    const auto readTool = [this](const std::string& name) {
        log = {};
        pcap::tPcapReader reader(KESTOVA_TEST_DATA "/" + name, &log);
        reader.SetDatagramObserver(&log);
        read(reader, {});
    };
    const tLines radar = {":6001 12x 542*12 Spoke", ":6004 2x 4000*2 Unknow", ":6009 2x 808*1,8192*1 Unknow"};
    for (const auto& [name, net] :
         {std::pair{"loopback.pcap", "239.17.0."}, {"snapped.pcap", "239.17.0."}, {"rewritten.pcap", "239.27.0."}})
    {
        SCOPED_TRACE(name);
        readTool(name);
        EXPECT_THAT(rows, ElementsAre(net + ("1" + radar[0]), net + ("4" + radar[1]), net + ("9" + radar[2]),
                                      "224.100.100.10:20840 1x 16*1 INS"));
        EXPECT_EQ(result.records, 28u);
        EXPECT_EQ(result.skippedRecords, 2u);
        EXPECT_EQ(result.padded > 0, std::string(name) == "snapped.pcap");
    }
    readTool("gaps.pcap");
    EXPECT_THAT(rows, ElementsAre("239.27.0.1:6001 12x 542*12 Spoke", "239.27.0.9:6009 2x 808*1,6712*1 Unknow",
                                  ":6001 2x 1048*1,1480*1 Unknow", "224.100.100.10:20840 1x 16*1 INS"));
    EXPECT_EQ(log.datagrams.size(), 12u + 1 + 2) << "orphans are no datagrams";
    EXPECT_TRUE(result.orphans == 2 && result.pending == 1);
}
