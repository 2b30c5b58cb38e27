// kestova export in the formats that people open: tables, tracks, MCAP, polar pictures. Other implementations read them
// where they are installed: ogrinfo of gdal-bin, Python's csv.
#include <fstream>
#include <gmock/gmock.h>
#include <map>

#include "support/installedprogram.h"
#include "support/radarreplay.h"
#include "support/toolfixture.h"

using testing::HasSubstr;
using testing::Not;

namespace
{
const NetAddress cGroup{net::transAddr("239.17.0.9"), net::HtoNs(6009)};

std::string sentence(const std::string& body)
{
    constexpr char cDigits[] = "0123456789ABCDEF";
    unsigned sum = 0;
    for (const char c : body.substr(1))
        sum ^= static_cast<unsigned char>(c);
    return body + "*" + cDigits[sum >> 4 & 15] + cDigits[sum & 15] + "\r\n";
}

std::string position(const std::string& longitude)
{
    return sentence("$GPGLL,5406.0000,N," + longitude + ",120000.00,A");
}

class tToolExportTest : public tToolFixture
{
protected:
    static std::string record(const std::string& payload, tReadWriteType kind = eGpsDev)
    {
        return radarRecord({0, 0, eReadType, kind, 0}, cGroup, payload);
    }
    // Sentences in the order of their records, `stepMs` apart.
    std::string recording(const std::vector<std::string>& payloads, std::uint64_t stepMs) const
    {
        std::vector<std::string> records;
        for (const std::string& payload : payloads)
            records.push_back(record(payload));
        return fileOf(records, stepMs);
    }
    // Two turns and a quarter of a radar with 200 spokes of 16 cells a turn, without 100 to 104; between them own ship
    // and a station.
    std::string radarRecording() const
    {
        std::vector<std::string> records = {record(position("01048.0000,E")), record(sentence("$HEHDT,90.0,T")),
                                            record(sentence("!AIVDM,1,1,,A,139W9R002JPi?>LNuKSh:08t0000,0"), eAisDev)};
        for (unsigned number = 0; number < 450; ++number)
        {
            std::string spoke = "SP" + littleEndian(number % 200, 2) + littleEndian(number, 4);
            for (unsigned cell = 0; cell < 16; ++cell)
                spoke += static_cast<char>(number % 200 + 5 * cell);
            if (number < 100 || number > 104)
                records.push_back(record(spoke, eImageStream));
        }
        std::ofstream(dir.file("layout.json"))
            << R"({"spoke": {"match": {"0": "5350"}, "azimuth": {"at": 2, "width": 2, "per_turn": 200},
                   "range": 1600, "sequence": {"at": 4, "width": 4}, "cells": {"at": 8, "count": 16, "bits": 8},
                   "order": "little", "reference": "bow"}})";
        return fileOf(records, 5);
    }
    static std::string printed(const tArguments& program)
    {
        tChildProcess child(program);
        EXPECT_EQ(child.wait(), 0) << child.err();
        return child.out();
    }
    void expectNothingLeft(const std::string& name) const
    {
        EXPECT_FALSE(std::filesystem::exists(dir.file(name))) << name;
        EXPECT_FALSE(std::filesystem::exists(dir.file(name + ".part"))) << name;
    }
};

// A reader of MCAP that knows as much as the test needs.
struct tMcapFile
{
    explicit tMcapFile(const std::string& path) : bytes(contentsOf(path)) { read(8, bytes.size() - 8); }

    std::uint64_t number(std::size_t at, std::size_t size) const
    {
        std::uint64_t value = 0;
        for (std::size_t i = size; i-- > 0;)
            value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
        return value;
    }
    void read(std::size_t at, std::size_t end)
    {
        while (at < end)
        {
            const std::uint64_t opcode = number(at, 1), size = number(at + 1, 8), body = at + 9;
            if (opcode == 0x05 && body + size <= end)
                messages[number(body, 2)].push_back(bytes.substr(body + 22, size - 22));
            if (opcode == 0x06)  // an uncompressed chunk: the name of its compression is empty
                read(body + 40, body + size);
            if (opcode == 0x0B)
                counted = number(body, 8);
            if (opcode == 0x02)
                footer = body;
            at = body + size;
        }
    }
    std::string summary() const { return bytes.substr(number(footer, 8), footer + 16 - number(footer, 8)); }

    const std::string bytes;
    std::map<std::uint64_t, std::vector<std::string>> messages;  // by channel
    std::uint64_t counted = 0, footer = 0;
};

std::uint64_t crc32Of(const std::string& bytes)
{
    std::uint32_t crc = ~0u;
    for (const char c : bytes)
    {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (0xEDB88320u & -(crc & 1));
    }
    return static_cast<std::uint32_t>(~crc);
}
}  // namespace

TEST_F(tToolExportTest, writesATableForEachKindOfSubject)
{
    const std::string file =
        recording({position("01048.0000,E"), sentence("$HEHDT,90.5,T"),
                   sentence("$RATTM,07,1.5,45.0,R,10.0,90.0,T,0.1,5.0,N,\"A\",T,,,A"),
                   sentence("!AIVDM,1,1,,A,139W9R002JPi?>LNuKSh:08t0000,0") + "$HEHDT,1.0,T*00\r\n"},
                  100);
    const std::string folder = dir.file("tables");
    const tJson json = result({"export", file, "--csv", folder});
    EXPECT_EQ(json.at("written"), tJson::parse(R"([{"name": "own.csv", "count": 2}, {"name": "ais.csv", "count": 1},
        {"name": "arpa.csv", "count": 1}, {"name": "sentences.csv", "count": 5}])"));
    EXPECT_EQ(contentsOf(folder + "/own.csv"),
              "time_ms,talker,type,latitude_deg,longitude_deg,speed_kn,course_deg,heading_deg,depth_m,utc_ms\r\n"
              "1715940000250,GP,GLL,54.1,10.8,,,,,1715947200000\r\n"
              "1715940000350,HE,HDT,,,,,90.5,,\r\n");
    EXPECT_THAT(contentsOf(folder + "/arpa.csv"), HasSubstr("\r\n1715940000450,RA,TTM,7,T,1.5,45,bow,,,10,90,\r\n"));
    EXPECT_THAT(contentsOf(folder + "/ais.csv"),
                HasSubstr("\r\n1715940000550,VDM,211405192,1,54.106265,10.756183333333333,"
                          "15.4,4,4,\r\n"));
    EXPECT_THAT(
        contentsOf(folder + "/sentences.csv"),
        HasSubstr("1715940000450,gpsDev,239.17.0.9:6009,true,\"$RATTM,07,1.5,45.0,R,10.0,90.0,T,0.1,5.0,N,\"\"A\"\","));
    EXPECT_THAT(contentsOf(folder + "/sentences.csv"), HasSubstr("false,\"$HEHDT,1.0,T*00\"\r\n"));
    EXPECT_THAT(said({"export", file, "--csv", folder}, 1), HasSubstr("exists already"));
}

TEST_F(tToolExportTest, beginsASegmentOfTheTrackWhereAMinuteIsMissing)
{
    std::vector<std::string> payloads(5, position("01048.0000,E"));
    payloads[3] = sentence("$HEHDT,1.0,T");  // 80 s without a position
    const std::string file = recording(payloads, 40'000), track = dir.file("track.gpx");
    EXPECT_EQ(result({"export", file, "--gpx", track}).at("written"),
              tJson::parse(R"([{"name": "trkpt", "count": 4}, {"name": "trkseg", "count": 2}])"));
    EXPECT_THAT(contentsOf(track),
                HasSubstr("</trkpt>\n</trkseg>\n<trkseg>\n<trkpt lat=\"54.1\" lon=\"10.8\">"
                          "<time>2024-05-17T10:02:40.250Z</time></trkpt>\n</trkseg>\n</trk>\n</gpx>"));
    said({"export", file, "--gpx", dir.file("part.gpx"), "--start", "+40s", "--end", "+80s"});
    EXPECT_THAT(contentsOf(dir.file("part.gpx")), HasSubstr("10:00:40.250Z"));
    EXPECT_THAT(contentsOf(dir.file("part.gpx")), Not(HasSubstr("10:01:20.250Z")));
}

TEST_F(tToolExportTest, cutsATrackAt180Degrees)
{
    const std::string file = recording({position("17959.0000,E"), position("17958.0000,W")}, 3000);
    said({"export", file, "--geojson", dir.file("track.geojson")});
    const tJson ship = parsed(contentsOf(dir.file("track.geojson"))).at("features").at(0);
    EXPECT_EQ(ship.at("geometry").at("type"), "MultiLineString");
    const tJson lines = ship.at("geometry").at("coordinates");
    EXPECT_EQ(lines, tJson::parse("[[[179.9833333, 54.1], [180.0, 54.1]], [[-180.0, 54.1], [-179.9666667, 54.1]]]"));
    EXPECT_EQ(ship.at("properties"),
              (tJson{{"kind", "own"}, {"times_ms", {{cTime, cTime + 1000}, {cTime + 1000, cTime + 3000}}}}));
}

TEST_F(tToolExportTest, leavesNothingWhereThereIsNothingToWrite)
{
    const std::string file = recording({"no sentence"}, 1);
    for (const char* const format : {"--csv", "--gpx", "--geojson"})
    {
        EXPECT_THAT(said({"export", file, format, dir.file("out")}, 1), HasSubstr("was not written")) << format;
        expectNothingLeft("out");
    }
    EXPECT_THAT(said({"export", file, "--gpx", dir.file("a"), "--csv", dir.file("b")}, 2), HasSubstr("one format"));
    EXPECT_THAT(said({"export", file, "--gpx", dir.file("a"), "--end", "+0s"}, 1), HasSubstr("none of the records"));
}

TEST_F(tToolExportTest, isReadByOthers)
{
    const std::string ogrinfo = programNamed("ogrinfo"), python = programNamed("python3");
    if (ogrinfo.empty() || python.empty())
        GTEST_SKIP() << "ogrinfo or python3 is not installed: scripts/setup --bench installs them";
    const std::string file =
        recording({position("01048.0000,E"), position("01048.5000,E"), position("01049.0000,E")}, 500);
    said({"export", file, "--csv", dir.file("tables")});
    said({"export", file, "--gpx", dir.file("track.gpx")});
    said({"export", file, "--geojson", dir.file("track.geojson")});
    EXPECT_THAT(printed({ogrinfo, "-al", "-so", dir.file("tables"), "sentences"}), HasSubstr("Feature Count: 3"));
    EXPECT_THAT(printed({ogrinfo, "-al", dir.file("track.gpx"), "track_points"}),
                HasSubstr("time (DateTime) = 2024/05/17 10:00:00.750+00"));
    EXPECT_THAT(printed({ogrinfo, "-al", dir.file("track.geojson")}),
                HasSubstr("LINESTRING (10.8 54.1,10.8083333 54.1,10.8166667 54.1)"));
    EXPECT_EQ(printed({python, "-c",
                       "import csv, sys\n"
                       "for row in csv.DictReader(open(sys.argv[1], newline='')):\n"
                       "    print(row['time_ms'], row['sentence'])",
                       dir.file("tables/sentences.csv")})
                  .substr(0, 58),
              "1715940000250 $GPGLL,5406.0000,N,01048.0000,E,120000.00,A*");
}

TEST_F(tToolExportTest, writesDatagramsAndLinesAsMcap)
{
    const std::string line = position("01048.0000,E"), path = dir.file("radar.mcap");
    const std::string file = recording({line, line + "no sentence"}, 500);
    const tJson json = result({"export", file, "--mcap", path, "--topics", "raw,sentences", "--compression", "none"});
    EXPECT_EQ(json.at("written"), tJson::parse(R"([{"name": "/raw/gpsDev/g_239_17_0_9_6009", "count": 2},
                                                   {"name": "/sentences", "count": 2}])"));
    const tMcapFile mcap(path);
    EXPECT_EQ(mcap.counted, 4u);
    ASSERT_EQ(mcap.messages.at(0).size(), 2u);
    // Encapsulation, stamp, frame "", address, port, data.
    EXPECT_EQ(mcap.messages.at(0)[1], std::string("\0\1\0\0", 4) + littleEndian(cTime / 1000, 4) +
                                          littleEndian(750'000'000, 4) + littleEndian(1, 4) + std::string(4, '\0') +
                                          littleEndian(11, 4) + std::string("239.17.0.9\0\0", 12).substr(0, 12) +
                                          littleEndian(6009, 2) + std::string(2, '\0') +
                                          littleEndian(line.size() + 11, 4) + line + "no sentence");
    EXPECT_EQ(mcap.number(mcap.footer + 16, 4), crc32Of(mcap.summary()));
    EXPECT_EQ(mcap.bytes.substr(mcap.bytes.size() - 8), std::string("\x89MCAP0\r\n"));
    EXPECT_THAT(said({"export", file, "--mcap", path}, 1), HasSubstr("exists already"));
}

TEST_F(tToolExportTest, writesABagOfTheChosenTopics)
{
    const std::string file = recording({position("01048.0000,E")}, 500);
    said({"export", file, "--mcap", dir.file("bag") + "/", "--no-raw"});
    EXPECT_TRUE(std::filesystem::exists(dir.file("bag/bag_0.mcap")));
    EXPECT_THAT(contentsOf(dir.file("bag/metadata.yaml")), HasSubstr("name: /sentences\n"));
    EXPECT_THAT(contentsOf(dir.file("bag/metadata.yaml")), Not(HasSubstr("/raw/")));
    EXPECT_THAT(said({"export", file, "--mcap", dir.file("x"), "--topics", "raw", "--no-raw"}, 1),
                HasSubstr("nothing for its topics"));
    expectNothingLeft("x");
    EXPECT_THAT(said({"export", file, "--mcap", dir.file("x"), "--topics", "lidar"}, 2), HasSubstr("no topic"));
}

TEST_F(tToolExportTest, writesSectorsThatEndWhereSpokesAreMissingAndAtTheBow)
{
    const std::string path = dir.file("radar.mcap");
    const tJson json = result({"export", radarRecording(), "--layout", dir.file("layout.json"), "--mcap", path,
                               "--topics", "sector,picture,echoes", "--compression", "none"});
    EXPECT_EQ(json.at("written"), tJson::parse(R"([{"name": "/radar_239_17_0_9_6009/sector", "count": 9},
        {"name": "/radar_239_17_0_9_6009/picture/compressed", "count": 2},
        {"name": "/radar_239_17_0_9_6009/echoes", "count": 2}])"));
    const tMcapFile mcap(path);
    std::vector<std::size_t> spokes;
    for (const std::string& sector : mcap.messages.at(0))
        spokes.push_back((sector.size() - 4 - 20 - 36) / (4 + 4 * 16));  // behind encapsulation, header and numbers
    EXPECT_EQ(spokes, (std::vector<std::size_t>{64, 36, 64, 31, 64, 64, 64, 8, 50}));
    // Encapsulation, stamp, frame "radar"; then -2 pi x 64 / 200, -2 pi / 200; the first cell's middle, the last one's.
    const std::string& second = mcap.messages.at(0)[1];
    const auto number = [&](std::size_t at) {
        float value = 0;
        std::memcpy(&value, &second.at(24 + at), sizeof value);
        return value;
    };
    EXPECT_FLOAT_EQ(number(0), -2.01061930F);
    EXPECT_FLOAT_EQ(number(4), -0.0314159265F);
    EXPECT_FLOAT_EQ(number(24), 50);
    EXPECT_FLOAT_EQ(number(28), 1550);
    EXPECT_FLOAT_EQ(number(44), 69);  // of spoke 64: cell 1
}

TEST_F(tToolExportTest, writesAPolarPictureOfEachWholeTurn)
{
    const std::string folder = dir.file("polar"), python = programNamed("python3");
    const tJson json = result({"export", radarRecording(), "--layout", dir.file("layout.json"), "--polar", folder});
    EXPECT_EQ(json.at("written").at(0), (tJson{{"name", "radar"}, {"count", 2}}));
    const std::string first = std::to_string((cTime + 15) * 1000),
                      second = std::to_string((cTime + 15 + 195 * 5) * 1000);
    EXPECT_EQ(contentsOf(folder + "/radar.timestamps"), first + " 1\n" + second + " 1\n");
    const tJson label = tJson::parse(contentsOf(folder + "/labels/" + first + ".json")).at(0);
    expectIn(label, {{"mmsi", 211405192}, {"reference", "bow"}});
    EXPECT_NEAR(label.at("bearing"), 0.537, 0.01);  // some 283 degrees, seen from the bow at 90
    if (python.empty())
        GTEST_SKIP() << "python3 is not installed: scripts/setup --bench installs it";
    const char* const reader = R"(import struct, sys, zlib
data = open(sys.argv[1], 'rb').read()
width, height = struct.unpack('>II', data[16:24])
length, = struct.unpack('>I', data[33:37])
assert zlib.crc32(data[37:41 + length]) == struct.unpack('>I', data[41 + length:45 + length])[0]
raw = zlib.decompress(data[41:41 + length])
rows = [raw[i * (width + 1) + 1:(i + 1) * (width + 1)] for i in range(height)]
print(data[24:26], width, height, struct.unpack('<qH', rows[0][:10]), sum(row[10] == 255 for row in rows))
print(struct.unpack('<qHB', rows[102][:11]), rows[102][11], list(rows[199][11:14])))";
    EXPECT_EQ(printed({python, "-c", reader, folder + "/radar/" + first + ".png"}),
              "b'\\x08\\x00' 27 200 (" + first + ", 0) 195\n(" + std::to_string((cTime + 15 + 497) * 1000 + 500) +
                  ", 2856, 0) 0 [199, 204, 209]\n");
}

TEST_F(tToolExportTest, isReadByTheMakersOfMcap)
{
    const std::string node = programNamed("node"), peers = KESTOVA_SOURCE "/tests/peers";
    if (node.empty() || !std::filesystem::exists(peers + "/node_modules"))
        GTEST_SKIP() << "the readers of MCAP are not installed: npm ci --prefix tests/peers installs them";
    const std::string file = radarRecording(), path = dir.file("radar.mcap"), layout = dir.file("layout.json");
    said({"export", file, "--mcap", path, "--layout", layout});
    EXPECT_THAT(printed({node, peers + "/mcap.mjs", KESTOVA_TOOL, path, file, layout}),
                HasSubstr("10 topics, 467 messages, 448 datagrams and 7120 cells equal"));
}
