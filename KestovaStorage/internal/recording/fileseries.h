// tFileSeries: the data files of one storage object: names and creates one after the other.
//
// Shapes   with a storage root, all files lie in one new folder below it; without one, each request names its folder.
// Owner    the reclaimer outlives the object. The root is registered with it from construction to releaseRoot().
// Threads  starts none and locks nothing: one thread at a time.
// Errors   create() returns null for a file that cannot be created, and reports it through perror.
#ifndef KESTOVA_STORAGE_RECORDING_FILESERIES_H
#define KESTOVA_STORAGE_RECORDING_FILESERIES_H

#include <memory>
#include <string>

#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "KestovaStorage/internal/datafile/datafilewriter.h"
#include "KestovaStorage/internal/disk/diskreclaimer.h"
#include "KestovaUtils/timeparser.h"

namespace storage
{
struct tWritingFile
{
    std::string path;
    tFileId id;  // random
    tDiskReclaimer::tWritingMark mark;
    std::unique_ptr<tDataFileWriter> writer;
    std::unique_ptr<iSegmentEncoder> encoder;  // counts what is recorded; null without compression
};

class tFileSeries
{
public:
    // What the caller starts a file with; the files of a roll-over are started with the same.
    struct tRequest
    {
        std::string extFileName;
        std::string customFolderPath;
        bool compress = false;  // the file, and those that follow, when they are finished
        bool fineTimes = false;
        bool observed = false;  // somebody follows what is written
    };

    tFileSeries(const std::string& storageBasePath, const std::string& specifySuffix, tDiskReclaimer& reclaimer);
    ~tFileSeries() { releaseRoot(); }
    tFileSeries(const tFileSeries&) = delete;
    tFileSeries& operator=(const tFileSeries&) = delete;

    // Names and creates the next file. `timestamp` in ms gives the labels of folder and file, 0 for now.
    std::shared_ptr<tWritingFile> create(const tRequest& request, tTimes_ms timestamp);
    void releaseRoot();  // nothing below the root is deleted on behalf of this object any more

private:
    std::unique_ptr<tDataFileWriter> newWriter(const std::string& folder, const std::string& path);
    std::string nextFileName(const std::string& folder, const tRequest& request, tTimes_ms timestamp);
    std::string recordingFolder(const tRequest& request, tTimes_ms timestamp);
    std::string storageSubFolderName(tTimes_ms timestamp);

    tDiskReclaimer& m_reclaimer;
    const std::string m_storageBasePath;  // storage root, empty when none
    const std::string m_specifySuffix;
    std::string m_storageSubFolderName;  // set when the first file is created
    tTimes_s m_storageStartTim = 0;      // first clock reading, for labels while the clock is not set
};
}  // namespace storage

#endif
