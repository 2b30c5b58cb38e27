// tSegment: what is recorded, and what a data file is found to hold. Numbered segments carry their number and have
// contents that no other segment has, so that what was shifted, mixed or cut shows.
#ifndef KESTOVA_TESTS_RECORDEDSEGMENTS_H
#define KESTOVA_TESTS_RECORDEDSEGMENTS_H

#include <atomic>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"

struct tSegment
{
    std::uint64_t time;
    std::string bytes;
    bool operator==(const tSegment&) const = default;
};
using tSegments = std::vector<tSegment>;

// Noise, the same in every process.
inline const std::string& noise()
{
    static const std::string s_noise = [] {
        std::string bytes(std::size_t{1} << 20, '\0');
        std::uint32_t state = 1;
        for (char& byte : bytes)
            byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        return bytes;
    }();
    return s_noise;
}

// Of `len` bytes: the number, then noise from a place that depends on it. From 8 bytes to a MiB less 64 KiB.
inline std::string numberedSegment(std::uint64_t number, std::size_t len)
{
    std::string bytes(len, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    std::memcpy(&bytes[sizeof number], &noise()[number * 31 % 65'536], len - sizeof number);
    return bytes;
}
inline std::uint64_t numberOf(const std::string& segment)
{
    std::uint64_t number = ~std::uint64_t{0};
    if (segment.size() >= sizeof number)
        std::memcpy(&number, segment.data(), sizeof number);
    return number;
}

// Every record of a file, read back; one that is damaged or cannot be read fails the test.
inline tSegments segmentsOf(const std::string& path)
{
    tSegments segments;
    storage::tDataFile file;
    std::string error;
    EXPECT_TRUE(file.open(path, &error)) << error;
    EXPECT_EQ(file.damagedCount(), 0u) << path;
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        segments.push_back({file.record(i).timeMs, ""});
        EXPECT_TRUE(file.read(i, segments.back().bytes)) << path << " record " << i;
    }
    return segments;
}

// Whether old recordings are deleted while the disk is low: not those of other tests on this machine.
inline void setReclaiming(bool enable)
{
    std::atomic_ref<bool>(storage::tDataStorageIO::DiskCheckThreadEnable).store(enable);
}

inline std::set<std::string> dataFilesIn(const std::string& folder, const std::string& suffix = ".data")
{
    std::set<std::string> files;
    storage::tDataStorageIO::GetFileFolderInDir(folder, files, true, suffix);
    return files;
}

// The records of all files below a folder, file by file.
inline tSegments segmentsBelow(const std::string& folder, const std::string& suffix = ".data")
{
    tSegments all;
    for (const std::string& path : dataFilesIn(folder, suffix))
        for (tSegment& segment : segmentsOf(path))
            all.push_back(std::move(segment));
    return all;
}

#endif
