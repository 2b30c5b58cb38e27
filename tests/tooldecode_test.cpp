// What messages mean, on the command line: dump --decode, layout --guess, and what was missing on the wire.
#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/missingmessages.h"
#include "support/sheetedrecording.h"
#include "support/toolfixture.h"

namespace
{
using namespace recordings;

// A radar that packs its numbers: big-endian, a 12-bit azimuth in the high bits of a word, 2,048 spokes a turn, cells
// of 4 bits.
constexpr char cForeign[] = R"({"spoke": {"match": {"0": "4652"},
    "azimuth": {"at": 2, "width": 2, "mask": 65520, "shift": 4, "per_turn": 2048}, "sequence": {"at": 4, "width": 2},
    "range": 1000, "cells": {"at": 6, "count": "rest", "bits": 4}, "order": "big", "reference": "north"}})";

class tToolDecodeTest : public tToolFixture
{
protected:
    static std::string image(std::uint32_t number, const std::string& message)
    {
        std::string package = makePackage(number, message);
        package[11] = eImageStream;
        return package;
    }
    static std::string foreign(unsigned azimuth, unsigned number)
    {
        const unsigned word = azimuth << 4 | 0xF;
        return {'F',
                'R',
                static_cast<char>(word >> 8),
                static_cast<char>(word),
                static_cast<char>(number >> 8),
                static_cast<char>(number),
                '\x1f',
                '\x0a'};
    }
    std::string layoutFile(const std::string& text) const
    {
        putBytes(dir.file("layout.json"), 0, text);
        return dir.file("layout.json");
    }
    std::vector<tJson> decoded(const std::string& file, const std::string& layout, tArguments more = {}) const
    {
        tArguments arguments{"dump", file, "--decode", "--json", "--layout", layoutFile(layout)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        std::vector<tJson> lines;
        const std::string output = said(arguments);
        for (std::size_t from = 0, end = 0; (end = output.find('\n', from)) != std::string::npos; from = end + 1)
            lines.push_back(parsed(output.substr(from, end - from)));
        return lines;
    }
    static std::string video(std::uint16_t azimuth, std::uint32_t sequence, std::uint32_t startCell,
                             const std::string& cells, bool compressed = false)
    {
        tCat240Video video;
        video.startAzimuth = azimuth;
        video.endAzimuth = static_cast<std::uint16_t>(azimuth + 16);
        video.sequence = sequence;
        video.startCell = startCell;
        video.cellM = 10;
        video.cells = {reinterpret_cast<const unsigned char*>(cells.data()), static_cast<std::uint32_t>(cells.size()),
                       8, true};
        std::string datagram;
        EXPECT_TRUE(appendCat240(video, datagram));
        if (compressed)
            datagram[24] = static_cast<char>(datagram[24] | 0x80);
        return datagram;
    }
};
}  // namespace

TEST_F(tToolDecodeTest, showsAForeignRadarByItsLayoutAlone)
{
    const std::string file = fileOf({image(0, foreign(0x123, 7)), image(1, foreign(2047, 8)), image(2, "FR")}, 10);
    const std::vector<tJson> lines = decoded(file, cForeign);
    ASSERT_EQ(lines.size(), 3u);
    const tJson spoke = lines[0].at("spokes").at(0);
    EXPECT_EQ(spoke, (tJson{{"bearing_from", 0x123 / 2048.0},
                            {"bearing_to", 0x124 / 2048.0},
                            {"reference", "north"},
                            {"first_cell_m", 0.0},
                            {"cell_m", 250.0},
                            {"bits", 4},
                            {"cells", "010f000a"},
                            {"sequence", 7}}));
    EXPECT_EQ(lines[1].at("spokes").at(0).at("bearing_to"), 0);
    EXPECT_EQ(lines[2].at("spokes"), tJson::array());
    EXPECT_EQ(lines[0].at("sentences"), tJson::array());
}

TEST_F(tToolDecodeTest, showsASplitSpokeOnceWholeWhereItEnds)
{
    const std::string file = fileOf({image(0, video(16, 1, 0, "abcd")), image(1, makePackage(0, "no spoke")),
                                     image(2, video(16, 2, 4, "efgh")), image(3, video(32, 3, 0, "ijkl", true))},
                                    10);
    const std::vector<tJson> lines = decoded(file, R"({"spoke": "cat240"})");
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(lines[0].at("spokes").empty() && lines[1].at("spokes").empty() && lines[3].at("spokes").empty());
    ASSERT_EQ(lines[2].at("spokes").size(), 1u);
    EXPECT_EQ(lines[2].at("spokes")[0].at("cells"), "6162636465666768");
    EXPECT_EQ(lines[3].at("compressed"), true);
    EXPECT_FALSE(lines[2].contains("compressed"));
    const std::vector<tJson> first = decoded(file, R"({"spoke": "cat240"})", {"--limit", "1"});
    ASSERT_EQ(first.size(), 1u);
    EXPECT_TRUE(first[0].at("spokes").empty()) << "it ends on a line that is not shown";
    const std::vector<tJson> later = decoded(file, R"({"spoke": "cat240"})", {"--from", "+20ms", "--limit", "1"});
    ASSERT_EQ(later.size(), 1u);
    EXPECT_EQ(later[0].at("spokes")[0].at("cells"), "6162636465666768") << "it begins on a line that is not shown";
}

TEST_F(tToolDecodeTest, showsWhatSentencesSay)
{
    const std::string file = fileOf({makePackage(0, "$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n$HEHDT,90.5,T*13\r\n"),
                                     makePackage(1, "no sentence")},
                                    10);
    const std::vector<tJson> lines = decoded(file, cForeign);
    ASSERT_EQ(lines.size(), 2u);
    ASSERT_EQ(lines[0].at("sentences").size(), 2u);
    const tJson position = lines[0].at("sentences")[0];
    expectIn(position, {{"talker", "GP"}, {"type", "GLL"}, {"valid", true}});
    EXPECT_NEAR(position.at("latitude_deg").get<double>(), 49.2741666, 1e-6);
    EXPECT_NEAR(position.at("longitude_deg").get<double>(), -123.1853333, 1e-6);
    EXPECT_FALSE(position.contains("heading_deg"));
    expectIn(lines[0].at("sentences")[1], {{"type", "HDT"}, {"heading_deg", 90.5}});
    const std::string text = said({"dump", file, "--decode", "--layout", layoutFile(cForeign)});
    EXPECT_NE(text.find("\n    sentence: talker HE, type HDT, valid "), std::string::npos) << text;
}

TEST_F(tToolDecodeTest, reportsWhatWasMissingOnTheWire)
{
    std::vector<std::string> packages;
    for (const unsigned number : {5u, 6u, 8u, 9u, 7u, 12u})
        packages.push_back(image(static_cast<std::uint32_t>(packages.size()), foreign(number, number)));
    const std::string file = fileOf(packages, 10);
    const tJson counted = result({"info", file, "--layout", layoutFile(cForeign)});
    EXPECT_EQ(counted.at("total").at("missing_on_wire"), 2);
    EXPECT_EQ(counted.at("files")[0].at("streams")[0].at("missing_on_wire"), 2);
    EXPECT_FALSE(result({"info", file}).at("total").contains("missing_on_wire")) << "nobody knows";
    writeSheetOf(file, packages.size(), true);
    tSheet sheet = readSheet(file).sheet;
    setMissing(sheet, {{tStreamKey::of(eImageStream, 0x010011ef, 6001), 3}});
    writeSheet(file, sheet);
    const tJson known = result({"info", file});
    EXPECT_EQ(known.at("total").at("missing_on_wire"), 3);
    EXPECT_EQ(known.at("total").at("streams")[0].at("missing_on_wire"), 3);
    EXPECT_EQ(result({"verify", file}).at("files")[0].at("missing_on_wire"), 3);
    EXPECT_NE(said({"info", file}).find("missing on the wire 3"), std::string::npos);
}

TEST_F(tToolDecodeTest, takesTheLayoutFromTheSheetAndGuessesOne)
{
    std::vector<std::string> packages;
    for (unsigned i = 0; i < 4500; ++i)
        packages.push_back(image(i, foreign(i % 2048, i)));
    const std::string file = fileOf(packages, 1);
    const tJson guess = parsed(said({"layout", file, "--guess"}));
    expectIn(guess.at("spoke"),
             {{"match", {{"0", "4652"}}}, {"sequence", {{"at", 4}, {"width", 2}}}, {"order", "big"}});
    EXPECT_EQ(guess.at("why").at("sequence").get<std::string>().rfind("the 2 bytes at 4 go on by one", 0), 0u);
    writeSheetOf(file, packages.size(), true);
    tSheet sheet = readSheet(file).sheet;
    sheet.spokeLayout = guess.at("spoke").dump();
    writeSheet(file, sheet);
    const tJson line = parsed(said({"dump", file, "--decode", "--json", "--limit", "1", "--from", "+2s"}));
    EXPECT_NEAR(line.at("spokes").at(0).at("bearing_from").get<double>(), 2000 / 2048.0, 1e-3);
}
