// What an observer of a capture is told, and what the console shows.
#include <gmock/gmock.h>
#include <stdexcept>

#include "support/pcapreaderfixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{
const std::string cZero(1, '\0');
std::string spoke(std::size_t length, const std::string& start)
{
    return start + std::string(length - start.size(), '\x7F');
}
}  // namespace

TEST_F(tPcapReaderTest, tellsSelectedDatagramsInTheirOrder)
{
    capture.add(tFrame{}).add(to("239.9.9.9", 5000, "elsewhere")).add(to("239.1.1.1", 5000, "more"));
    EXPECT_EQ(read(), "Pcap: head A1B2C3D4 linktype 1\r\n\r\n"
                      "\r\nread over: lhctrl 0 lhttm 0 rattm 0 rhttm 0\n           ori 0 spoke 0\r\n"
                      "           lhins 0 ins 0\r\n           suberr 0 \r\n");
    const std::string first = std::to_string(cTime), third = std::to_string(cTime + 2);
    EXPECT_THAT(log.lines, ElementsAre("progress 0 " + first, "progress 40.8 " + first,
                                       "data " + first + " 0.408 239.1.1.1:5000 payload", "progress 71.5 1715934600001",
                                       "progress 100 " + third, "data " + third + " 1 239.1.1.1:5000 more",
                                       "data 0 -1 null:0 null", "progress 100 0"));
    EXPECT_THAT(log.datagrams, ElementsAre("1 1715934600000000 10.0.0.1:4000 239.1.1.1:5000 Unknow payload",
                                           "3 1715934600002000 10.0.0.1:4000 239.1.1.1:5000 Unknow more"));
}

TEST_F(tPcapReaderTest, tellsStatisticsWhereNothingIsSelected)
{
    capture.add(tFrame{}).add(to("239.9.9.9", 5001, "abc")).add(to("239.9.9.9", 5001, "abcd"));
    read({});
    EXPECT_THAT(log.lines, ElementsAre("progress 0 1715934600000", "rows 0", testing::_, "rows 1", testing::_, "rows 2",
                                       "progress 100 1715934600002", "progress 100 0", "rows 2"));
    EXPECT_THAT(log.reports.back(), ElementsAre("239.9.9.9:5001 2x 4*1,3*1 Unknow", "239.1.1.1:5000 1x 7*1 Unknow"));
    EXPECT_EQ(log.datagrams.size(), 3u);
    pcap::tPcapReader reader(write(), &log);
    reader.ReportAtEndOnly(true);
    log = {};
    read(reader, {});
    EXPECT_THAT(log.lines, ElementsAre(testing::_, testing::_, testing::_, testing::_, "progress 100 0", "rows 2"));
}

TEST_F(tPcapReaderTest, numbersButSkipsWhatIsNoUdpOverIpv4)
{
    capture.add(tFrame{.type = 0x0806}).add(tFrame{.protocol = 6});  // ARP, TCP
    capture.add(tFrame{}.bytes().substr(0, 33)).add("").add(tFrame{});
    read();
    EXPECT_EQ(log.lines.front().substr(0, 13), "progress 100 ");  // no 0.0: the first record was none of ours
    EXPECT_THAT(log.datagrams, ElementsAre(HasSubstr("5 1715934600004000 ")));
    EXPECT_EQ(result.skippedRecords, 4u);
}

TEST_F(tPcapReaderTest, roundsTimesToTheNearestMillisecond)
{
    const std::string frame = tFrame{}.bytes();
    for (const std::uint32_t microseconds : {0u, 499u, 500u, 1499u, 999'499u, 999'500u, 4'294'967'295u})
        capture.add(frame, 4'294'967'295, microseconds, static_cast<std::uint32_t>(frame.size()));
    read();
    tLines times;
    for (const std::string& line : log.lines)
        if (line.starts_with("data 4"))
            times.push_back(line.substr(5, 13));
    EXPECT_THAT(times, ElementsAre("4294967295000", "4294967295000", "4294967295001", "4294967295001", "4294967295999",
                                   "4294967296000", "4294971589967"));
}

TEST_F(tPcapReaderTest, saysWhatItCannotOpen)
{
    for (const std::string& path : {dir.file("missing"), dir.string()})
    {
        log = {};
        pcap::tPcapReader reader(path, &log);
        EXPECT_EQ(read(reader, {}), "Read Pcap File: " + path + ", open failed!\r\n");
        EXPECT_THAT(log.lines, ElementsAre("rows 0"));
        pcap::tPcapFileHead head{};
        EXPECT_FALSE(result.opened || pcap::tPcapReader::GetFileHead(path, head));
        EXPECT_EQ(read(reader, cSelected), "Read Pcap File: " + path + ", open failed!\r\n");
        EXPECT_EQ(log.lines.size(), 1u);
    }
}

TEST_F(tPcapReaderTest, readsAnyMagic)
{
    capture.add(tFrame{}).bytes.replace(0, 4, "\x01\x02\x03\x0F").replace(20, 4, std::string(4, '\xFF'));
    EXPECT_THAT(read(), HasSubstr("Pcap: head 0F030201 linktype -1\r\n"));
    EXPECT_EQ(log.datagrams.size(), 1u);
    pcap::tPcapFileHead head{};
    EXPECT_TRUE(pcap::tPcapReader::GetFileHead(dir.file("a.pcap"), head));
    EXPECT_EQ(head.magic, 0x0F030201u);
}

TEST_F(tPcapReaderTest, takesAStartByItsFlags)
{
    for (unsigned flags = 0; flags < 8; ++flags)
    {
        tFrame frame{.payload = std::to_string(flags), .flags = flags, .id = flags};
        capture.add(frame);
        frame.offset = 1;
        capture.add(frame);
    }
    EXPECT_THAT(payloads(), ElementsAre("0", "2"));
    EXPECT_EQ(result.droppedRecords, 5u + 6u);  // flags 3 to 7, and 2 to 7 with an offset
    EXPECT_EQ(result.orphans, 1u);              // flags 0: nothing had begun; flags 1: appended, and pending still
    EXPECT_EQ(result.pending, 1u);
}

TEST_F(tPcapReaderTest, joinsFragmentsAsTheyCome)
{
    capture.add(fragment(0, true, "first ", 7)).add(fragment(0, true, "other ", 8));
    capture.add(fragment(2, true, "second ", 7));
    capture.add(fragment(1, false, "end", 8)).add(fragment(1, false, "third", 7)).add(fragment(1, false, "alone", 7));
    EXPECT_THAT(payloads(), ElementsAre("other end", "first second third"));
    EXPECT_THAT(rows, ElementsAre("239.1.1.1:5000 2x 18*1,9*1 Unknow", ":5000 1x 5*1 Unknow"));
    capture.add(fragment(0, true, "lost ", 7)).add(fragment(0, true, "8", 8)).add(fragment(1, false, "8", 8));
    capture.add(fragment(0, true, "new ", 7)).add(fragment(1, false, "end", 7));
    EXPECT_THAT(payloads(), ElementsAre("other end", "first second third", "88", "new end"));
}

TEST_F(tPcapReaderTest, givesOrphansThePortOfTheDatagramBefore)
{
    capture.add(fragment(3, true, "early")).add(to("239.1.1.1", 77, "x")).add(fragment(3, false, "late"));
    capture.add(tFrame{.payload = "begun", .port = 88, .flags = 1, .id = 9}).add(fragment(3, false, "later still"));
    EXPECT_THAT(payloads({{"", 0}, {"", 77}, {"", 88}, {"0.0.0.0", 77}}), IsEmpty());
    EXPECT_THAT(
        rows, ElementsAre(":88 1x 11*1 Unknow", ":77 1x 4*1 Unknow", "239.1.1.1:77 1x 1*1 Unknow", ":0 1x 5*1 Unknow"));
}

TEST_F(tPcapReaderTest, countsBeginningsWithoutAByte)
{
    for (const int totalLen : {0, 20, 21, 27, 28})  // the IP header fits in 20, with the UDP header in 28
    {
        SCOPED_TRACE(totalLen);
        capture = {};
        capture.add(tFrame{.payload = "", .flags = 1, .totalLen = totalLen});
        capture.add(fragment(1, false, "end, and long enough"));
        EXPECT_THAT(read(), HasSubstr(totalLen <= 20 ? "suberr 1 " : "suberr 0 "));
        EXPECT_EQ(log.payloads.front(), totalLen == 28 ? "end, and long enough" : "null");
        EXPECT_EQ(log.datagrams.size(), totalLen == 28 ? 1u : 0u);
        EXPECT_EQ(result.pending, 0u);
    }
}

TEST_F(tPcapReaderTest, deliversWhatTheIpHeaderClaims)
{
    const std::pair<int, std::string> cases[] = {
        {28 + 3, "abc"}, {28 + 8, "abcdef" + cZero + cZero}, {28, ""}, {27, ""}, {0, ""}};
    for (const auto& [totalLen, payload] : cases)
        capture.add(tFrame{.payload = "abcdef", .totalLen = totalLen});
    EXPECT_THAT(payloads(), ElementsAre("abc", "abcdef" + cZero + cZero));
    EXPECT_EQ(log.datagrams.size(), 3u);  // the empty one too; the others are none
    EXPECT_THAT(rows, ElementsAre("239.1.1.1:5000 2x 8*1,3*1 Unknow"));
}

TEST_F(tPcapReaderTest, tellsKindsByAddressAndBeginning)
{
    const std::string mark = "ab\xE0", radar = "\xA0\x04";
    const std::tuple<std::string, unsigned, std::string, std::string> cases[] = {
        {"239.1.1.1", 1, spoke(542, mark + cZero), "Spoke"},
        {"239.1.1.1", 1, spoke(542, mark), "Unknow"},
        {"239.1.1.1", 1, spoke(2078, mark + "\x01"), "OriSpoke"},
        {"239.1.1.1", 1, spoke(2078, mark + cZero), "Unknow"},
        {"239.1.1.1", 1, spoke(2620, mark + cZero), "Spoke OriSpoke"},
        {"239.1.1.1", 1, spoke(541, mark + cZero), "Unknow"},
        {"239.1.1.1", 1, spoke(542, "ab" + cZero), "Unknow"},
        {"234.5.8.24", 35096, "x", "RadarCtrl"},
        {"234.5.8.24", 35097, "x", "Unknow"},
        {"234.5.8.25", 35097, radar + "$RATTM", "RadarState"},
        {"234.5.8.24", 35096, spoke(542, mark + cZero), "Spoke"},
        {"239.1.1.1", 1, radar + "$RATTM,1", "RATTM"},
        {"239.1.1.1", 1, radar + "$RHTTM", "RHTTM"},
        {"239.1.1.1", 1, radar + "$RHTT", "Unknow"},
        {"239.1.1.1", 1, "$HEHD", "Unknow"},
        {"239.1.1.1", 1, "$GPGGA,1", "Unknow"},
        {"239.1.1.1", 1, "$HEROT,", "INS"},
        {"239.1.1.1", 1, "$SNATT", "INS"},
        {"239.1.1.1", 1, "$GNZDA,", "INS"},
        {"239.1.1.1", 1, "$GNGLL,", "INS"},
        {"239.1.1.1", 1, "$GNVTG,", "INS"},
        {"239.1.1.1", 1, "$HEHDT", "INS"}};
    for (const auto& [address, port, payload, kind] : cases)
        capture.add(to(address, port, payload));
    read({});
    ASSERT_EQ(log.datagrams.size(), std::size(cases));
    auto datagram = log.datagrams.begin();
    for (const auto& [address, port, payload, kind] : cases)
        EXPECT_THAT(*datagram++, HasSubstr(':' + std::to_string(port) + ' ' + kind + ' ' + payload));
}

TEST_F(tPcapReaderTest, endsAtASpokeThatBeginsWithZero)
{
    for (const std::size_t length : {542u, 2078u, 2620u})
        for (const std::string& start : {cZero, "a" + cZero})
        {
            capture = {};
            capture.add(tFrame{}).add(to("239.1.1.1", 5000, spoke(length, start))).add(tFrame{});
            EXPECT_THROW(read(), std::out_of_range);
            EXPECT_EQ(log.payloads, tLines{"payload"}) << "no end mark after it either";
            pcap::tPcapReader reader(write(), &log);
            reader.KeepReading(true);
            read(reader, cSelected);
            EXPECT_THAT(rows, ElementsAre("239.1.1.1:5000 3x 7*2," + std::to_string(length) + "*1 Unknow"));
        }
}

TEST_F(tPcapReaderTest, countsMessagesByDestination)
{
    const std::string ttm = "\xA0\x04$RATTM";
    capture.add(to("234.5.8.29", 35101, ttm))
        .add(to("234.5.8.29", 35102, ttm + ",1"))
        .add(to("234.5.8.29", 35103, ttm));
    capture.add(to("234.5.8.29", 35101, "\xA0\x04$RHTTM")).add(to("234.5.8.29", 35101, "\xA0\x04$R"));
    capture.add(to("224.0.1.60", 6000, ttm)).add(to("224.0.1.60", 6001, ttm)).add(to("224.0.1.60", 6000, "x"));
    for (const unsigned port : {12345u, 12346u, 10063u, 35096u, 35097u})
        capture.add(to("192.168.0.87", port, "x"));
    for (const std::size_t length : {542u, 542u, 542u, 2078u, 2620u, 543u})
        capture.add(to("234.5.8.23", 35095, spoke(length, "abc")));
    capture.add(to("224.0.2.10", 10101, "x")).add(to("224.0.2.10", 10101, "y")).add(to("235.0.0.1", 20481, "z"));
    EXPECT_THAT(read({{"234.5.8.23", 35095}}),
                HasSubstr("\r\nread over: lhctrl 4 lhttm 1 rattm 2 rhttm 2\n           ori 2 spoke 4\r\n"
                          "           lhins 2 ins 1\r\n           suberr 0 \r\n"));
    EXPECT_EQ(log.payloads.size(), 5u);   // of 542 and 543 bytes, and the end mark
    EXPECT_EQ(log.datagrams.size(), 6u);  // everything, for those who ask for everything
    EXPECT_THAT(rows, testing::Contains("234.5.8.23:35095 6x 542*3,543*1,2620*1,2078*1 Unknow"));
}

TEST_F(tPcapReaderTest, stampsSentencesOfSensors)
{
    const tSelection sensors = {{"192.168.0.33", 20844},  {"192.168.20.109", 12800},  {"234.1.2.3", 34123},
                                {"192.168.1.255", 12005}, {"224.100.100.10", 20840},  {"224.100.100.30", 20842},
                                {"235.0.0.1", 20481},     {"255.255.255.255", 12800}, {"255.255.255.255", 34123},
                                {"255.255.255.255", 8080}};
    for (const auto& [address, port] : sensors)
        capture.add(to(address, static_cast<unsigned>(port), "$A\r\n"));
    capture.add(to("235.0.0.1", 20481, "\r\n")).add(to("235.0.0.1", 20481, "$B\n"));
    const tLines told = payloads(sensors);
    ASSERT_EQ(told.size(), 12u);
    tTimes_ms time = cTime;
    for (const std::string& payload : told)
    {
        const std::string begun = time == cTime + 10 ? "" : time == cTime + 11 ? "$B\n" : "$A";
        EXPECT_EQ(payload, begun + "$PCKTIM$" + utils::time::tTimeParser::Time_ms2String(time++) + "$\r\n");
    }
    EXPECT_THAT(log.datagrams.front(), testing::EndsWith("$A\r\n"));
    EXPECT_THAT(rows.back(), HasSubstr(" 4*1 "));  // statistics show the length as sent
}

TEST_F(tPcapReaderTest, startsEveryReadAnewAlsoAfterAnObserverThrew)
{
    capture.add(tFrame{}).add(fragment(0, true, "pending")).add(fragment(0, true, "pending", 2));
    pcap::tPcapReader reader(write(), &log);
    read(reader, cSelected);
    const tLines first = log.lines, firstRows = rows;
    log.onLine = [](const std::string& line) {
        if (line.starts_with("data "))
            throw std::runtime_error("enough");
    };
    EXPECT_THROW(read(reader, cSelected), std::runtime_error);
    log = {};
    read(reader, cSelected);
    EXPECT_EQ(log.lines, first);
    EXPECT_EQ(rows, firstRows);
    EXPECT_EQ(result.pending, 2u);
}

TEST_F(tPcapReaderTest, stopsWhereItIsTold)
{
    for (int i = 0; i < 10; ++i)
        capture.add(tFrame{});
    pcap::tPcapReader reader(write(), &log);
    reader.StopRead();  // nothing runs: no effect
    log.onLine = [&](const std::string& line) {
        if (line.starts_with("data 1"))
            reader.StopRead();
        reader.Read({});  // from inside a call: nothing happens
    };
    read(reader, cSelected);
    EXPECT_THAT(log.payloads, ElementsAre("payload", "null"));
    EXPECT_EQ(log.lines.back(), "progress 100 0");
    EXPECT_TRUE(result.stopped && !result.finished && result.records == 1);
}
