// What a conversion does when the disk does not hold what was written.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datafileformat.h"
#include "support/pwritehook.h"
#include "support/recordedsegments.h"
#include "support/recording.h"
#include "support/tempdir.h"

namespace
{
using storage::tDataFileConverter;

// A write that covers byte `place` of a file writes another one there; nothing else is changed.
tPwriteHook::tHandler spoiling(std::uint64_t place)
{
    return [place](int file, const void* data, std::size_t len, off_t pos) {
        const auto begin = static_cast<std::uint64_t>(pos);
        if (place < begin || place >= begin + len)
            return tPwriteHook::write(file, data, len, pos);
        std::vector<unsigned char> bytes(static_cast<const unsigned char*>(data),
                                         static_cast<const unsigned char*>(data) + len);
        bytes[place - begin] ^= 1;
        return tPwriteHook::write(file, bytes.data(), len, pos);
    };
}

// Three MiB, so that much of the result is compared while the rest is being made.
tSegments someSegments()
{
    tSegments segments;
    for (std::uint64_t i = 0; i < 3001; ++i)
        segments.push_back({1000 + i, std::string(700, 'a') + numberedSegment(i, 300)});
    return segments;
}
}  // namespace

TEST(tConversionCheckTest, keepsTheOriginalWhereverTheResultIsSpoilt)
{
    const tTempDir dir;
    const tSegments segments = someSegments();
    std::string path = dir.file("s.data");
    recordByHand(path, segments);
    for (const bool compresses : {true, false})
    {
        const auto convert = compresses ? tDataFileConverter::Compress : tDataFileConverter::Expand;
        const std::uint64_t lastRecord = storage::cIndexPos + (segments.size() - 1) * storage::cIndexSlotSize;
        for (const std::uint64_t place : {storage::cPayloadPos, storage::cPayloadPos + 1'000'000, storage::cIndexPos,
                                          lastRecord + 8, storage::cIndexHeadPos})
        {
            SCOPED_TRACE(std::to_string(place));
            const tPwriteHook hook(spoiling(place));
            std::string error;
            EXPECT_FALSE(convert(path, ".data", nullptr, nullptr, &error));
            EXPECT_NE(error.find("the result"), std::string::npos) << error;
            EXPECT_TRUE(segmentsOf(path) == segments);
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.string()), {}), 1);
        }
        std::string error, result;
        EXPECT_TRUE(convert(path, ".data", nullptr, &result, &error)) << error;
        path = result;
    }
    EXPECT_TRUE(segmentsOf(path) == segments);
}
