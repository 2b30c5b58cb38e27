// What a data file, or the files below a folder, are found to hold.
#ifndef KESTOVA_TESTS_RECORDEDSEGMENTS_H
#define KESTOVA_TESTS_RECORDEDSEGMENTS_H

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <string>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "support/segments.h"

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
