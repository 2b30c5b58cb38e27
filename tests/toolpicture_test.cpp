// kestova picture: what it writes, and what it refuses.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "support/ownnamespace.h"
#include "support/toolfixture.h"

namespace
{
constexpr unsigned cSpokesPerTurn = 64;

// Spokes of 16 cells, one every 10 ms.
class tToolPictureTest : public tToolFixture
{
protected:
    tToolPictureTest()
    {
        std::ofstream(layout) << R"({"spoke": {"match": {"0": "7370"}, "azimuth": {"at": 2, "width": 1, "per_turn": 64},
            "range": 1852, "sequence": {"at": 3, "width": 1}, "cells": {"at": 4, "count": "rest", "bits": 8},
            "order": "little", "reference": "bow"}})";
    }

    std::string recording(unsigned spokes, const char* name = "made.data") const
    {
        std::vector<std::string> segments;
        for (unsigned i = 0; i < spokes; ++i)
            segments.push_back(makePackage(i, std::string("sp") + static_cast<char>(i % cSpokesPerTurn) +
                                                  static_cast<char>(i) + std::string(16, static_cast<char>(200))));
        return fileOf(segments, 10, name);
    }
    tArguments picture(tArguments more) const
    {
        more.insert(more.begin(), {"picture", "--layout", layout});
        return more;
    }

    const std::string layout = dir.file("layout.json");
};

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}
}  // namespace

TEST_F(tToolPictureTest, drawsAMoment)
{
    const std::string made = recording(150), png = dir.file("radar.png");
    const tJson drawn = result(picture({made, "-o", png, "--at", "50%", "--size", "128", "--rings", "--targets"}));
    expectIn(drawn, {{"spokes", 64}, {"pictures", 1}, {"missing_on_wire", 0}, {"range_m", 1852.0}});
    EXPECT_EQ(drawn.at("last_ms"), cTime + 740);
    const std::string bytes = contentsOf(png);
    EXPECT_EQ(bytes.substr(1, 3), "PNG");
    EXPECT_EQ(bytes.substr(16, 8), std::string("\0\0\0\x80\0\0\0\x80", 8));
    EXPECT_EQ(namesIn(dir.string()), (std::vector<std::string>{"layout.json", "made.data", "radar.png"}));
}

TEST_F(tToolPictureTest, drawsEveryFinishedRevolution)
{
    const std::string made = recording(3 * cSpokesPerTurn + 10), folder = dir.file("turns");
    const tJson drawn = result(picture({made, "--every", "revolution", "--to", folder, "--size", "64"}));
    expectIn(drawn, {{"spokes", 3 * cSpokesPerTurn}, {"pictures", 3}, {"complete", true}});
    const auto names = namesIn(folder);
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0].substr(0, 20), "00000000_2024-05-17_");
    EXPECT_NE(said(picture({made, "--every", "revolution", "--to", folder}), 1).find("not empty"), std::string::npos);
}

TEST_F(tToolPictureTest, streamsRevolutionsAsAVideo)
{
    const std::string made = recording(3 * cSpokesPerTurn);
    const std::string video = said(picture({made, "--y4m", "-", "--size", "64"}));
    const std::size_t head = video.find('\n') + 1;
    EXPECT_EQ(video.substr(0, head), "YUV4MPEG2 W64 H64 F1000:640 Ip A1:1 C444 XCOLORRANGE=LIMITED\n");
    EXPECT_EQ(video.size() - head, 3 * (6 + 3 * 64 * 64));
    EXPECT_EQ(video.substr(head, 6), "FRAME\n");
}

// The recording begins amid a turn, whose spokes were further apart.
TEST_F(tToolPictureTest, streamsAtThePaceOfTheFirstWholeTurn)
{
    std::vector<std::string> segments;
    for (unsigned i = 0; i < 3 * cSpokesPerTurn; ++i)
        segments.push_back(makePackage(i, std::string("sp") + static_cast<char>((i + 32) % cSpokesPerTurn) +
                                              static_cast<char>(i) + std::string(16, static_cast<char>(200))));
    const std::string slow = fileOf({segments.begin(), segments.begin() + 32}, 100, "a.data");
    const std::string made = fileOf({segments.begin() + 32, segments.end()}, 10, "b.data", cTime + 3200);
    const std::string video = said(picture({slow, made, "--y4m", "-", "--size", "64"}));
    EXPECT_EQ(video.substr(0, video.find('\n')), "YUV4MPEG2 W64 H64 F1000:640 Ip A1:1 C444 XCOLORRANGE=LIMITED");
    EXPECT_EQ(video.size() - video.find('\n') - 1, 3 * (6 + 3 * 64 * 64));
}

TEST_F(tToolPictureTest, endsAtSigtermWhileTheReaderHangs)
{
    const std::string made = recording(20 * cSpokesPerTurn);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    tChildProcess child(tool(picture({made, "--y4m", "-"})), ends[1]);
    ::close(ends[1]);
    pollfd output{ends[0], POLLIN, 0};
    ASSERT_EQ(::poll(&output, 1, 60'000), 1);
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(), 0);
    ::close(ends[0]);
}

TEST_F(tToolPictureTest, endsInSilenceWhenNobodyReadsTheVideo)
{
    const std::string made = recording(20 * cSpokesPerTurn);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    tChildProcess child(tool(picture({made, "--y4m", "-"})), ends[1]);
    ::close(ends[1]);
    char some[4096];
    EXPECT_GT(::read(ends[0], some, sizeof some), 0);
    ::close(ends[0]);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.err(), "");
}

TEST_F(tToolPictureTest, refusesWhatCannotBeDrawn)
{
    const std::string made = recording(100), other = fileOf({makePackage(1, "nothing that turns")}, 10, "other.data");
    const std::string png = dir.file("radar.png");
    const struct
    {
        tArguments arguments;
        int status;
        const char* says;
    } cases[] = {
        {{other, "-o", png}, 1, "no spokes"},
        {{made, "-o", png, "--at", "+90s"}, 1, "is outside the recording"},
        {{made, "-o", dir.file("none/radar.png")}, 1, "No such file or directory"},
        {{dir.file("none.data"), "-o", png}, 1, "none.data"},
        {{made}, 2, "-o FILE"},
        {{made, "-o", png, "--every", "revolution"}, 2, "--to DIR"},
        {{made, "-o", png, "--palette", "pink"}, 2, "day, dusk, night, grey"},
        {{made, "-o", png, "--size", "10"}, 2, "--size"},
        {{made, "--every", "turn", "--to", png}, 2, "--every"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.says);
        EXPECT_NE(said(picture(c.arguments), c.status).find(c.says), std::string::npos);
    }
    EXPECT_FALSE(std::filesystem::exists(png));
}

TEST_F(tToolPictureTest, leavesNothingOnAFullDisk)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    const std::string made = recording(100), folder = dir.file("disk");
    std::filesystem::create_directory(folder);
    const tTinyDisk disk(folder, 1);
    std::ofstream(folder + "/filler") << std::string(1 << 20, 'x');
    EXPECT_NE(said(picture({made, "-o", folder + "/radar.png"}), 1).find("No space left"), std::string::npos);
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"filler"});
}
