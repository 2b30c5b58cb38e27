// ASTERIX category 240 as users of the tool meet it: simulated, exported, replayed, recorded, drawn; read by another
// implementation, tshark, where that is installed.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

#include "KestovaRecordings/capturewriter.h"
#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/frames.h"
#include "sessions/simulate/scene.h"
#include "sessions/simulate/spoke.h"
#include "support/installedprogram.h"
#include "support/radarreplay.h"
#include "support/recordedpackages.h"
#include "support/toolfixture.h"

using namespace recordings;
using testing::HasSubstr;

namespace
{
constexpr char cOwnLayout[] = R"({"spoke": {"match": {"0": "5aa5e000"}, "azimuth": {"at": 4, "width": 2,
    "per_turn": 4096}, "range": {"at": 8, "width": 4, "unit": "m"}, "sequence": {"at": 12, "width": 4}, "time": {"at": 16,
    "width": 8, "unit": "ms"}, "cells": {"at": 30, "count": 512, "bits": 8}, "order": "little", "reference": "bow"}})";
constexpr char cStandardLayout[] = R"({"spoke": {"source": "cat240", "reference": "bow"}})";
const NetAddress cGroup{net::transAddr("239.17.0.1"), net::HtoNs(6001)};

using tRow = std::vector<std::string>;

tRow split(const std::string& text, char separator)
{
    tRow parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

// Returns the values that tshark finds in a capture, a row for each datagram.
std::vector<tRow> dissected(const std::string& capture, const tRow& fields)
{
    tArguments arguments = {
        programNamed("tshark"), "-r", capture, "-d", "udp.port==8600,asterix", "-Y", "asterix", "-T", "fields", "-E",
        "separator=;"};
    for (const std::string& field : fields)
    {
        arguments.push_back("-e");
        arguments.push_back(field);
    }
    tChildProcess tshark(arguments);
    EXPECT_EQ(tshark.wait(), 0) << tshark.err();
    std::vector<tRow> rows;
    for (const std::string& line : split(tshark.out(), '\n'))
        rows.push_back(split(line, ';'));
    return rows;
}

class tToolCat240Test : public tToolFixture
{
protected:
    static std::string spoke(std::uint64_t number)
    {
        session::tEchoes echoes{};
        for (std::size_t i = 0; i < echoes.size(); ++i)
            echoes[i] = static_cast<std::uint8_t>(number * 7 + i);
        std::string bytes;
        session::encodeSpoke(number, cTime + number, echoes, bytes);
        return bytes;
    }
    static std::string record(const std::string& payload, tReadWriteType kind = eImageStream)
    {
        return radarRecord({0, 0, eReadType, kind, 0}, cGroup, payload);
    }
    std::string put(const char* name, const std::string& text) const
    {
        std::ofstream(dir.file(name), std::ios::binary) << text;
        return dir.file(name);
    }
    // A recording of spokes in the radar's own layout, without numbers 100 to 104, and of two sentences.
    std::string recording() const
    {
        std::vector<std::string> records = {record("$HEHDT,1.0,T*1F\r\n", eHeadingDev)};
        for (std::uint64_t number = 4000; number < 4300; ++number)
            if (number < 4100 || number > 4104)
                records.push_back(record(spoke(number)));
        records.push_back(record("$HEHDT,2.0,T*1C\r\n", eHeadingDev));
        return fileOf(records, 1);
    }
    std::string ownLayout() const { return put("own.json", cOwnLayout); }
    std::string standardLayout() const { return put("standard.json", cStandardLayout); }

    // A radar with a group of this call's own.
    tArguments radar(const std::string& more = "") const
    {
        const std::string directory =
            put("radars.json", R"({"radars": [{"serial": "A1:2", "id": 1, "streams": {"imageStream": ")" +
                                   addressText(testGroup()) + R"("})" + more + "}]}");
        return {"--radars", directory, "--radar", "A1:2", "--id", "1", "--local-ip", "127.0.0.1"};
    }
    // Simulates one turn.
    static void simulate(const tArguments& radar, const tArguments& more)
    {
        tArguments arguments = {"simulate", "--rate", "120", "--spokes", "4096", "--start-time", std::to_string(cTime)};
        arguments.insert(arguments.end(), radar.begin(), radar.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(result(arguments).at("spokes"), 4096);
    }
    // Returns the folder of a turn, recorded by the simulation itself.
    std::string simulated(tArguments more) const
    {
        const std::string folder = dir.file(more.empty() ? "own" : "standard");
        std::filesystem::create_directories(folder);
        more.insert(more.end(), {"--root", folder});
        simulate(radar(), more);
        return folder;
    }
    // Exports the spokes of a recording in the standard, and makes the capture a recording.
    std::string imported(const std::string& recording, const std::string& layout, const std::string& name) const
    {
        const std::string folder = dir.file("from " + name);
        said({"export", recording, "--cat240", dir.file(name), "--layout", layout});
        std::filesystem::create_directories(folder);
        said({"pcap", dir.file(name), "--select", "all", "--to", folder});
        return folder;
    }
    static std::vector<std::string> imageDatagrams(const std::string& folder)
    {
        std::vector<std::string> datagrams;
        for (const tRecordedPackage& package : recordedPackages(folder))
            if (package.payload.size() == 547)
                datagrams.push_back(package.payload);
        return datagrams;
    }
    // Returns the picture of the last turn.
    std::string picture(const std::string& recording, const std::string& layout) const
    {
        const std::string png = dir.file("picture.png");
        std::filesystem::remove(png);
        EXPECT_EQ(result({"picture", recording, "--layout", layout, "--size", "300", "-o", png}).at("spokes"), 4096);
        return contentsOf(png);
    }
};

// Every video of datagrams, in their order.
struct tVideos final : iCat240Sink
{
    void onVideo(const tCat240Video& video) override { videos.push_back(video); }
    void onSummary(const tCat240Summary& summary) override { text += summary.text; }
    std::vector<tCat240Video> videos;
    std::string text;
};

class tTsharkTest : public tToolCat240Test
{
protected:
    static std::string video(std::uint8_t bits, std::size_t size, double cellM, std::uint32_t sequence)
    {
        std::string cells(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            cells[i] = static_cast<char>(i * 7 + bits);
        tCat240Video video;
        video.sequence = sequence;
        video.startAzimuth = static_cast<std::uint16_t>(sequence * 1777);
        video.endAzimuth = static_cast<std::uint16_t>(video.startAzimuth + 16);
        video.startCell = sequence % 3 * 70'000;
        video.cellM = cellM;
        video.cells = {reinterpret_cast<const unsigned char*>(cells.data()),
                       static_cast<std::uint32_t>(size * 8 / bits), bits, true};
        video.timeOfDay = 1'234'567;
        std::string datagram;
        EXPECT_TRUE(appendCat240(video, datagram));
        return datagram;
    }
    std::string captureOf(const std::vector<std::string>& datagrams) const
    {
        const NetAddress from{net::transAddr("192.0.2.1"), net::HtoNs(6000)};
        const NetAddress to{net::transAddr("239.99.0.5"), net::HtoNs(8600)};
        tCaptureWriter writer(dir.file("forms.pcap"));
        std::uint16_t id = 0;
        for (const std::string& datagram : datagrams)
        {
            for (const std::string& frame : framesOf(from, to, datagram, ++id))
                writer.add(cTime * 1000 + id, frame);
        }
        writer.finish();
        return dir.file("forms.pcap");
    }
    // Numbers as both can write them: of each video, then the cells of small ones and the summary.
    static std::string valuesOf(const tVideos& found)
    {
        std::string numbers, cells;
        for (const tCat240Video& video : found.videos)
        {
            const bool isNano = video.cellM > 643;
            const double duration = video.cellM / (299'792'458.0 / 2) * (isNano ? 1e9 : 1e15);
            numbers += std::to_string(video.sequence) + " " + std::to_string(video.startAzimuth) + " " +
                       std::to_string(video.endAzimuth) + " " + std::to_string(video.startCell) + " " +
                       std::to_string(std::llround(duration)) + " " + std::to_string(video.cells.bits) + " " +
                       std::to_string(video.octets) + " " + std::to_string(video.cells.count) + "\n";
            for (std::size_t i = 0; video.octets <= 1020 && i < video.octets; ++i)
                cells += std::to_string(video.cells.bytes[i]) + " ";
        }
        return numbers + cells + found.text;
    }
    // Of a row of the fields that the test asks for; several records are behind commas.
    static std::string valuesIn(const tRow& row)
    {
        const auto field = [&](std::size_t i) { return i < row.size() ? row[i] : ""; };
        const auto either = [&](std::size_t i) { return split(field(i).empty() ? field(i + 1) : field(i), ','); };
        const auto azimuth = [](const std::string& degrees) { return std::llround(std::stod(degrees) / 360 * 65'536); };
        std::string numbers, cells;
        const tRow sequences = split(field(0), ',');
        for (std::size_t i = 0; i < sequences.size(); ++i)
            numbers += sequences[i] + " " + std::to_string(azimuth(either(1).at(i))) + " " +
                       std::to_string(azimuth(either(3).at(i))) + " " + either(5).at(i) + " " +
                       std::to_string(std::llround(std::stod(either(7).at(i)))) + " " +
                       std::to_string(1 << (std::stoi(split(field(9), ',').at(i)) - 1)) + " " +
                       split(field(10), ',').at(i) + " " + split(field(11), ',').at(i) + "\n";
        for (const std::string& word : split(field(12), ','))
            for (std::size_t digit = 2; digit < word.size(); digit += 2)
                cells += std::to_string(std::stoi(word.substr(digit, 2), nullptr, 16)) + " ";
        std::string text;
        for (const std::string& letter : split(field(13), ','))
            text += letter;
        return numbers + cells + text + field(14);
    }
    void SetUp() override
    {
        if (programNamed("tshark").empty())
            GTEST_SKIP() << "tshark is not installed: scripts/setup --bench installs it";
    }
};

}  // namespace

TEST_F(tToolCat240Test, SendsAnyRadarAsTheStandardAndTheRestAsItWas)
{
    const tGroupListener standard, plain;
    const std::string to = addressText(standard.group);
    const tJson json =
        result({"replay", recording(), "--net", "--local-ip", "127.0.0.1", "--speed", "10", "--map",
                "239.17.0.1:6001=" + addressText(plain.group), "--layout", ownLayout(), "--as", "cat240", to});
    ASSERT_TRUE(standard.heard(295));
    EXPECT_TRUE(plain.heard(2));
    expectIn(json, {{"records", 297}, {"sent", 297}, {"refused", 0}});
    expectIn(json.at("streams").at(0), {{"address", to}, {"datagrams", 295}, {"bytes", 295 * 547}});
    const auto received = standard.all();
    tVideos found;
    for (const auto& datagram : received)
        EXPECT_TRUE(readCat240(datagram.payload, found));
    ASSERT_EQ(found.videos.size(), 295u);
    for (std::size_t i = 0; i < 295; ++i)
    {
        const std::uint64_t number = i < 100 ? 4000 + i : 4005 + i;
        ASSERT_EQ(found.videos[i].sequence, number);
        ASSERT_EQ(found.videos[i].startAzimuth, number % 4096 * 16);
        ASSERT_EQ(found.videos[i].endAzimuth, (number + 1) % 4096 * 16);
        ASSERT_EQ(std::string_view(received[i].payload).substr(32, 512), std::string_view(spoke(number)).substr(30));
    }
    EXPECT_THAT(plain.all().at(0).payload, HasSubstr("$HEHDT"));
}

TEST_F(tToolCat240Test, ExportsSpokesAloneOrNothing)
{
    const std::string capture = dir.file("radar.pcap");
    const tJson json = result({"export", recording(), "--cat240", capture, "--layout", ownLayout()});
    expectIn(json, {{"datagrams", 295}, {"frames", 295}, {"damaged", 0}});
    expectIn(json.at("streams").at(0), {{"address", "239.99.0.5:8600"}, {"datagrams", 295}});
    EXPECT_THAT(said({"export", recording(), "--cat240", capture, "--layout", ownLayout()}, 1),
                HasSubstr("exists already"));
    EXPECT_THAT(said({"export", recording(), "--cat240", dir.file("no.pcap"), "--layout", standardLayout()}, 1),
                HasSubstr("no message is a spoke"));
    EXPECT_FALSE(std::filesystem::exists(dir.file("no.pcap")));
    EXPECT_THAT(said({"export", recording()}, 2), HasSubstr("is required"));
    EXPECT_THAT(said({"replay", recording(), "--net", "--as", "cat048", "239.99.0.5:8600"}, 2), HasSubstr("no format"));
    EXPECT_THAT(said({"replay", recording(), "--net", "--as", "cat240", "239.99.0.5"}, 2), HasSubstr("no group"));
}

TEST_F(tToolCat240Test, SimulatesTheSameWatersAndDrawsThemFromEveryForm)
{
    const std::string own = simulated({}), standard = simulated({"--cat240"});
    EXPECT_EQ(imageDatagrams(imported(own, ownLayout(), "own.pcap")), imageDatagrams(standard));
    EXPECT_EQ(imageDatagrams(standard).size(), 4096u);
    const std::string wanted = picture(standard, standardLayout());
    EXPECT_TRUE(picture(imported(standard, standardLayout(), "a.pcap"), standardLayout()) == wanted)
        << "from a capture";
    said({"compress", standard});
    EXPECT_TRUE(picture(standard, standardLayout()) == wanted) << "from the compressed recording";
    EXPECT_TRUE(picture(own, ownLayout()) == picture(imported(own, ownLayout(), "b.pcap"), standardLayout()))
        << "in the radar's own layout";
}

TEST_F(tToolCat240Test, RecordsARadarThatTheDirectorySaysSpeaksIt)
{
    const std::string folder = dir.file("recorded");
    std::filesystem::create_directories(folder);
    const tArguments addressed = radar(R"(, "spoke": {"source": "cat240", "reference": "bow"})");
    tArguments recording = {"record", "--root", folder};
    recording.insert(recording.end(), addressed.begin(), addressed.end());
    tChildProcess recorder(tool(recording));
    ASSERT_TRUE(recorder.says("recording to ")) << recorder.err();
    simulate(addressed, {"--cat240"});
    recorder.signal(SIGINT);
    ASSERT_EQ(recorder.wait(), 0) << recorder.err();
    const tJson drawn = result({"picture", folder, "-o", dir.file("radar.png")});
    expectIn(drawn, {{"spokes", 4096}, {"missing_on_wire", 0}, {"north_up", false}});
    EXPECT_EQ(imageDatagrams(folder).size(), 4096u);
}

TEST_F(tTsharkTest, ReadsEveryFieldAsItWasPutIn)
{
    const std::string capture = dir.file("radar.pcap");
    said({"export", recording(), "--cat240", capture, "--layout", ownLayout()});
    const auto rows = dissected(capture, {"asterix.240_000_VALUE", "asterix.240_010_SAC", "asterix.240_010_SIC",
                                          "asterix.240_020_VALUE", "asterix.240_041_STARTAZ", "asterix.240_041_ENDAZ",
                                          "asterix.240_041_STARTRG", "asterix.240_041_CELLDUR", "asterix.240_048_C",
                                          "asterix.240_048_RES", "asterix.240_049_NBVB", "asterix.240_049_NBCELLS",
                                          "asterix.240_140_VALUE", "udp.payload"});
    ASSERT_EQ(rows.size(), 295u);
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        const std::uint64_t number = i < 100 ? 4000 + i : 4005 + i;
        ASSERT_EQ(rows[i].size(), 14u);
        const auto is = [&](std::size_t field, double wanted, double within) {
            return std::abs(std::stod(rows[i][field]) - wanted) <= within;
        };
        EXPECT_EQ(tRow(rows[i].begin(), rows[i].begin() + 4), (tRow{"2", "0x00", "0x01", std::to_string(number)}));
        EXPECT_TRUE(is(4, static_cast<double>(number % 4096) * 360 / 4096, 1e-6)) << rows[i][4];
        EXPECT_TRUE(is(5, static_cast<double>((number + 1) % 4096) * 360 / 4096, 1e-6)) << rows[i][5];
        EXPECT_EQ(rows[i][6], "0");
        EXPECT_TRUE(is(7, 11'112.0 / 512 * 2 / 299'792'458 * 1e15, 1)) << rows[i][7];
        EXPECT_EQ(tRow(rows[i].begin() + 8, rows[i].begin() + 12), (tRow{"0", "4", "512", "512"}));
        EXPECT_TRUE(is(12, static_cast<double>((cTime + number) % 86'400'000) / 1000, 1.0 / 256)) << rows[i][12];
    }
}

// Every width of cells in blocks of every size, with both headers; and what nobody of ours writes: several records in a
// block, several blocks in a datagram, fields to skip.
TEST_F(tTsharkTest, AgreesWithTheReaderOnEveryForm)
{
    std::vector<std::string> datagrams;
    for (const std::uint8_t bits : std::initializer_list<std::uint8_t>{1, 2, 4, 8, 16, 32})
        for (const std::size_t size : {12u, 3000u, 48'000u})
            for (const double cellM : {21.7, 5000.0})
                datagrams.push_back(video(bits, size, cellM, static_cast<std::uint32_t>(datagrams.size())));
    std::string record = video(8, 12, 7, 1000).substr(3);
    record[1] = static_cast<char>(record[1] | 0x06);  // RE and SP follow, of 2 and 1 bytes
    const std::string summary("\xD0\x07\x08\x01\x03"
                              "abc",
                              8);
    std::string block = summary + record + "\x02?\x01" + video(16, 3000, 8, 1001).substr(3);
    block =
        std::string("\xF0") + static_cast<char>((block.size() + 3) >> 8) + static_cast<char>(block.size() + 3) + block;
    datagrams.push_back(block + video(4, 12, 9, 1002));

    const auto rows = dissected(captureOf(datagrams),
                                {"asterix.240_020_VALUE", "asterix.240_040_STARTAZ", "asterix.240_041_STARTAZ",
                                 "asterix.240_040_ENDAZ", "asterix.240_041_ENDAZ", "asterix.240_040_STARTRG",
                                 "asterix.240_041_STARTRG", "asterix.240_040_CELLDUR", "asterix.240_041_CELLDUR",
                                 "asterix.240_048_RES", "asterix.240_049_NBVB", "asterix.240_049_NBCELLS",
                                 "asterix.240_050_VALUE", "asterix.240_030_VALUE", "_ws.malformed"});
    ASSERT_EQ(rows.size(), datagrams.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        tVideos ours;
        EXPECT_TRUE(readCat240(datagrams[i], ours));
        EXPECT_EQ(valuesOf(ours), valuesIn(rows[i])) << "datagram " << i;
    }
}
