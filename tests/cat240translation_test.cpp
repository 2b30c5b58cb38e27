// Spokes of recorded radars as ASTERIX category 240: azimuths, numbers, cells, and what passes as it is.
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/cat240translator.h"

using namespace recordings;
using testing::ElementsAre;

namespace
{
// A spoke of four bytes of cells: u16 azimuth of 4,096, u8 number.
constexpr char cLayout[] = R"({"azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "range": 1000,
    "sequence": {"at": 2, "width": 1}, "cells": {"at": 3, "count": "rest", "bits": 8}, "order": "big"})";

std::vector<utils::tSpokeLayout> layoutsOf(const std::string& text)
{
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    EXPECT_TRUE(utils::parseSpokeLayouts(text, layouts, error)) << error;
    return layouts;
}

std::string spoke(unsigned azimuth, unsigned number, const std::string& cells = "abcd")
{
    return std::string{static_cast<char>(azimuth >> 8), static_cast<char>(azimuth), static_cast<char>(number)} + cells;
}

class tCat240TranslatorTest : public testing::Test, private iCat240Sink
{
protected:
    void use(const std::string& layout) { m_translator.emplace(layoutsOf(layout)); }
    bool take(const std::string& message, tReadWriteType kind = eImageStream, std::uint16_t port = 1)
    {
        return m_translator->take({{0, 0, eReadType, kind, 0}, 0, 1, port, 0, message}, {m_timeMs++, 0}, m_send);
    }
    void finish() { m_translator->finish(m_send); }
    std::vector<unsigned> starts() const
    {
        return all([](const tCat240Video& video) { return video.startAzimuth; });
    }
    std::vector<unsigned> ends() const
    {
        return all([](const tCat240Video& video) { return video.endAzimuth; });
    }
    std::vector<unsigned> numbers() const
    {
        return all([](const tCat240Video& video) { return video.sequence; });
    }

    std::vector<tCat240Video> sent;
    std::vector<std::string> datagrams;
    std::vector<std::vector<std::uint32_t>> cells;
    std::optional<tCat240Translator> m_translator{layoutsOf(cLayout)};

private:
    template <typename tField>
    std::vector<unsigned> all(tField field) const
    {
        std::vector<unsigned> values;
        for (const tCat240Video& video : sent)
            values.push_back(field(video));
        return values;
    }
    void onVideo(const tCat240Video& video) override
    {
        sent.push_back(video);
        cells.emplace_back();
        for (std::size_t i = 0; i < video.cells.count; ++i)
            cells.back().push_back(video.cells.at(i));
    }
    void onSummary(const tCat240Summary&) override {}

    std::uint64_t m_timeMs = 86'399'999;  // one ms before midnight
    const tCat240Translator::tSend m_send = [this](std::string_view datagram, const tMessagePlace&) {
        datagrams.emplace_back(datagram);
        EXPECT_TRUE(readCat240(datagrams.back(), *this));
    };
};
}  // namespace

TEST_F(tCat240TranslatorTest, EndsASpokeWhereTheNextOneBeginsAndKeepsALoss)
{
    // Every second azimuth; number 12 never came, and the antenna jumps before the last one.
    for (const auto& [azimuth, number] : {std::pair{4090, 9}, {4092, 10}, {4094, 11}, {2, 13}, {4, 14}, {2048, 15}})
        EXPECT_TRUE(take(spoke(static_cast<unsigned>(azimuth), static_cast<unsigned>(number))));
    ASSERT_EQ(sent.size(), 5u) << "the last one waits";
    finish();
    EXPECT_THAT(starts(), ElementsAre(4090 * 16, 4092 * 16, 4094 * 16, 2 * 16, 4 * 16, 2048 * 16));
    EXPECT_THAT(ends(), ElementsAre(4092 * 16, 4094 * 16, 0, 4 * 16, 6 * 16, 2050 * 16));
    EXPECT_THAT(numbers(), ElementsAre(9, 10, 11, 13, 14, 15));
    EXPECT_EQ(sent[0].timeOfDay, 0u) << "1 ms before midnight is nearer to it than to the last 1/128 s";
    EXPECT_EQ(sent[0].sic, 1);
    EXPECT_DOUBLE_EQ(std::round(sent[0].cellM * 4 * 100) / 100, 1000);
    finish();
    EXPECT_EQ(sent.size(), 6u);
}

TEST_F(tCat240TranslatorTest, RoundsAzimuthsToTheNearestStep)
{
    use(R"({"azimuth": {"at": 0, "width": 2, "per_turn": 3600}, "range": 1000, "cells": {"at": 3, "count": 4, "bits": 8},
        "order": "big"})");
    for (unsigned azimuth = 0; azimuth < 3600; ++azimuth)
        take(spoke(azimuth, 0));
    finish();
    ASSERT_EQ(sent.size(), 3600u);
    for (unsigned azimuth = 0; azimuth < 3600; ++azimuth)
    {
        ASSERT_NEAR(sent[azimuth].startAzimuth, azimuth * 65'536 / 3600.0, 0.5);
        ASSERT_EQ(sent[azimuth].endAzimuth, sent[(azimuth + 1) % 3600].startAzimuth) << "no gap, nor at 0";
    }
}

TEST_F(tCat240TranslatorTest, NumbersGoOnBeyondTheirWrap)
{
    // Over the wrap of 8 bits with 255 missing, 1 late and 2 twice; then a restart.
    for (const unsigned number : {254u, 0u, 2u, 1u, 2u, 3u, 100u, 0u})
        take(spoke(number, number));
    finish();
    EXPECT_THAT(numbers(), ElementsAre(254, 256, 258, 257, 258, 259, 356, 0));
    sent.clear();
    use(R"({"azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "cells": {"at": 3, "count": 4, "bits": 8}})");
    for (unsigned i = 0; i < 3; ++i)
        take(spoke(0, 0));
    finish();
    EXPECT_THAT(numbers(), ElementsAre(0, 1, 2)) << "a radar without numbers";
    EXPECT_EQ(m_translator->tally().lengthless, 3u);
}

TEST_F(tCat240TranslatorTest, WidensCellsAndSplitsWhatOneMessageCannotHold)
{
    use(R"({"azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "range": 1000, "sequence": {"at": 2, "width": 1},
        "cells": {"at": 3, "count": "rest", "bits": 12}, "order": "big"})");
    take(spoke(0, 4, std::string(60'000, '\xFF')));
    take(spoke(1, 5, "\x12\x34\x56"));
    take(spoke(2, 7, "\x12\x34\x56"));
    finish();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[0].cells.count + sent[1].cells.count, 40'000u);
    EXPECT_EQ(sent[1].startCell, sent[0].cells.count);
    EXPECT_EQ(cells[1].back(), 0xFFFFu);
    EXPECT_EQ(sent[1].endAzimuth, 16);
    EXPECT_THAT(cells[2], ElementsAre(0x1231, 0x4564));
    EXPECT_THAT(numbers(), ElementsAre(4, 5, 6, 8));
}

TEST_F(tCat240TranslatorTest, KeepsTheRangeToACentimetreAndTakesNanosecondsForLongCells)
{
    use(R"({"azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "range": {"at": 3, "width": 4},
        "cells": {"at": 7, "count": "rest", "bits": 1}, "order": "big"})");
    const auto at24Miles = [](std::size_t bytes) {
        return spoke(0, 0, std::string("\0\0\xAD\xA0", 4) + std::string(bytes, 'x'));
    };
    take(at24Miles(9));                      // 72 cells of 617 m
    take(at24Miles(8));                      // 64 cells of 695 m
    take(at24Miles(4096));                   // 32,768 cells
    take(spoke(0, 0, "\xFF\xFF\xFF\xFFx"));  // to the moon and beyond: cells of 537,000 km
    finish();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_NEAR(sent[0].cellM * 72, 44'448, 0.01);
    EXPECT_NEAR(sent[2].cellM * 32'768, 44'448, 0.01);
    const auto header = [this](std::size_t i) { return static_cast<unsigned char>(datagrams[i][3]); };
    EXPECT_EQ(header(0), 0xE7) << "item 041";
    EXPECT_EQ(header(1), 0xEB) << "item 040";
    EXPECT_NEAR(sent[1].cellM, 44'448 / 64.0, 0.08) << "half a nanosecond";
    use(R"({"azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "range": 1e10,
        "cells": {"at": 3, "count": 4, "bits": 8}})");
    EXPECT_TRUE(take(spoke(0, 0)));
    finish();
    EXPECT_EQ(m_translator->tally().refused, 1u) << "cells of 2.5 million km";
    EXPECT_EQ(sent.size(), 4u);
}

TEST_F(tCat240TranslatorTest, PassesTheStandardAsItIsAndNothingThatIsNoSpoke)
{
    use(R"([{"match": {"3": "61"}, "azimuth": {"at": 0, "width": 2, "per_turn": 4096}, "range": 1000,
        "cells": {"at": 3, "count": "rest", "bits": 8}, "order": "big"}, "cat240"])");
    take(spoke(7, 0));
    finish();
    const std::string made = datagrams.at(0);
    EXPECT_TRUE(take(made, eOtherType));
    EXPECT_EQ(datagrams.at(1), made);
    EXPECT_FALSE(take(spoke(7, 0), eGpsDev)) << "a sensor";
    EXPECT_FALSE(take(spoke(7, 0, "bcd"))) << "no layout matches";
    EXPECT_FALSE(take(spoke(5000, 0))) << "beyond the turn";
    EXPECT_TRUE(take(spoke(9, 0), eImageStream, 2)) << "another radar";
    finish();
    EXPECT_EQ(sent.back().sic, 2);
    EXPECT_EQ(datagrams.size(), 3u);
}
