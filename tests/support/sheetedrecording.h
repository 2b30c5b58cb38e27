// A small recording of packages with its sheet, made by hand.
#ifndef KESTOVA_TESTS_SHEETEDRECORDING_H
#define KESTOVA_TESTS_SHEETEDRECORDING_H

#include <algorithm>
#include <string>

#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/finetimesformat.h"
#include "support/filebytes.h"
#include "support/recordedsegments.h"
#include "support/recording.h"

// So many packages, four a second, numbered from 0, and one raw segment.
inline tSegments packagesOf(std::size_t count, std::uint64_t timeMs = 1'715'940'000'250)
{
    tSegments segments;
    for (std::size_t i = 0; i < count; ++i)
        segments.push_back(
            {timeMs + 250 * i, makePackage(static_cast<std::uint32_t>(i), numberedSegment(i, 20 + i % 3), eReadType)});
    segments.push_back({timeMs + 250 * count, "no package"});
    return segments;
}

// Writes a sheet for the first `covered` records of a plain file, as its recorder would.
inline void writeSheetOf(const std::string& path, std::size_t covered, bool finished, bool cut = false)
{
    recordings::tSheetBuilder builder;
    storage::tDataFile file;
    ASSERT_TRUE(file.open(path));
    std::string bytes;
    for (std::size_t i = 0; i < covered && file.read(i, bytes); ++i)
        builder.add(file.record(i).timeMs, storage::cNoFineTime, bytes, file.record(i).pos);
    recordings::tSheet sheet;
    sheet.id = recordings::newSheetId();
    sheet.cut = cut;
    builder.fill(sheet);
    if (finished)
        recordings::sealSheet(sheet, path);
    recordings::writeSheet(path, sheet);
}

// With an index head that names the longest record, as recorders write it.
inline void recordWithSheet(const std::string& path, const tSegments& segments, bool cut = false)
{
    std::size_t longest = 0;
    for (const tSegment& segment : segments)
        longest = std::max(longest, segment.bytes.size());
    recordByHand(path, segments);
    putBytes(path, 2000, indexHead(static_cast<std::uint32_t>(segments.size()), static_cast<std::uint32_t>(longest)));
    writeSheetOf(path, segments.size(), true, cut);
}

// Compresses a file and renews its sheet; returns the new path.
inline std::string compressWithSheet(const std::string& path)
{
    std::string result, error;
    EXPECT_TRUE(storage::tDataFileConverter::Compress(path, ".data", nullptr, &result, &error)) << error;
    recordings::refreshSheet(result);
    return result;
}

inline void flipBit(const std::string& path, std::uint64_t byte, unsigned bit)
{
    const std::string was = bytesOf(path, byte, 1);
    putBytes(path, byte, std::string(1, static_cast<char>(was[0] ^ 1 << bit)));
}

#endif
