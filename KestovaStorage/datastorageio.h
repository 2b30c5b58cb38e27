// The storage engine: records timestamped segments into self-indexed data files and plays them back in time.
//
// One object records and replays; the two sides are independent. Files roll over once a segment has started beyond
// 1,048,576,000 bytes or the index is full (476,091 segments). docs/formats.md describes what lies on disk.
#ifndef KESTOVA_DATASTORAGEIO_H
#define KESTOVA_DATASTORAGEIO_H

#include <memory>
#include <set>
#include <stdint.h>
#include <string>
#include <vector>

#include "KestovaStorage/filehead.h"
#include "KestovaStorage/reclaimobserver.h"
#include "KestovaStorage/replayobserver.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/kestovaapi.h"

namespace Kestova
{
class tPackageRecorderPrivate;
}

namespace storage
{
class iReplaySource;
class iWriteObserver;

enum tPathProperty : int32_t
{
    eNoExist = 0,
    eFile = 1,
    eFolder = 2
};

class tDataStorageIOPrivate;

class KESTOVA_API tDataStorageIO
{
public:
    // While false, the process-wide reclaiming of disk space (below) pauses for every object of the process. A
    // Kestova::tRadarDataReplayer clears it when it is constructed: a process that records beside a replayer and wants
    // reclaiming sets it again. Read atomically; may be set at any time.
    static bool DiskCheckThreadEnable;
    // Sets the observer of what is deleted in this process to make room; null for none. Not owned. When this returns no
    // call to an earlier observer is under way, except the one that it is called from. Any thread.
    static void SetReclaimObserver(iReclaimObserver* observer);

    // `storageBasePath` is the storage root: its folders are created if missing; "./RadarDataStorage" takes its place
    // if that fails. Recordings go into folders Data_NNNNNN_YYYY.MM.DD/ below it, and from then on the oldest ".data"
    // files below it, of any recording, are deleted whenever less than 1 GiB of its disk is free (never a file being
    // written). An empty root means no automatic folders and no reclaiming: each recording names its folder.
    // `specifySuffix` ends the names of data files (".data"); must not be null.
    // File numbers have four digits and folder numbers six: above 9,999 files in a folder or 999,999 folders names no
    // longer sort by age.
    tDataStorageIO(const std::string& storageBasePath, const char* specifySuffix);
    // Stops recording as FinishWrite does and replay as CloseReadingFile does, and waits until finished files have been
    // compressed. Never call it from inside a callback.
    virtual ~tDataStorageIO();
    tDataStorageIO(const tDataStorageIO&) = delete;
    tDataStorageIO& operator=(const tDataStorageIO&) = delete;

    // ---- Recording. Any thread. ----

    // Starts a file in the recording folder below the root, finishing the file before it. `timestamp` in ms gives the
    // labels of folder and file (0: now), `extFileName` is appended to the name unless it is empty. With `compress` the
    // file, and each that follows it in a roll-over, is Huffman-compressed once it is finished, on a thread of its own:
    // NAME.tar.data takes the place of NAME.data and replays the same. A file that could not be restored byte for byte
    // (one of a single byte value, for example) stays as it is, and so does one whose NAME.tar.data.part opens but
    // cannot be locked; if that cannot even be opened, the file is removed. Returns false, with a line on standard
    // error, if the file exists already or cannot be created; then no file is open.
    bool CreateNewWritingFile(unsigned long timestamp, const std::string& extFileName, bool compress);
    // The same with the current time, in `customFolderPath` (ends with "/") when the object has no root.
    bool CreateNewWritingFile(const std::string& customFolderPath, const std::string& extFileName, bool compress);

    // Queues a copy of one segment; never waits for the disk. `timestamp` in ms since the epoch, below 2^48, 0 meaning
    // the time of writing. The queue has no bound: memory grows while the disk is slower than the caller. While no file
    // is open the segment is counted and dropped. Segments of no bytes are counted and write nothing; segments of
    // 4 GiB or more, and later time stamps, are refused with a line on standard error.
    void WriteData(const char* data, unsigned long len, unsigned long timestamp);

    // Goes on in the next file, as a roll-over does: nothing is lost, what was queued before the call is in the file
    // before it. Returns at once; the writer finishes the present file, empty or not, and opens the next one behind
    // what it has in hand. Returns false if no file is open.
    bool StartNextFile();
    // The same with a time in microseconds since the epoch, 0 meaning now. The index has its milliseconds; the rest is
    // kept if the file has fine times.
    void WriteDataFine(const char* data, unsigned long len, uint64_t time_us);

    // Sets whether files created from then on get fine times beside them (companions.h): the microseconds of every
    // segment whose time has them, two bytes a segment. Off by default.
    void SetFineTimes(bool on);
    // Sets who follows what is written (writeobserver.h); null for none. Before the first file is created, or while
    // none is open. Not owned; must outlive this object.
    void SetWriteObserver(iWriteObserver* observer);

    bool IsWriteEnable() const;  // whether a file is open; false for microseconds while one file follows another

    // Finishes the file: writes its index head. What is still queued is discarded; call WaitWriteIdle first to keep it.
    // Harmless while no file is open.
    void FinishWrite();

    // Waits until everything queued before the call has been written; returns false if that took longer than
    // `timeout_ms`.
    // What could not be written is counted by GetWriteLostCnt.
    bool WaitWriteIdle(unsigned int timeout_ms);

    std::string GetCurrentWriteDataFileName() const;  // full path; empty when no file is open
    uint32_t GetWriteDataFifoSize() const;            // segments that wait, as of the writer's last update
    uint32_t GetSaveCnt() const;                      // segments ever given to WriteData
    // Of these, segments that are in no file and never will be: no file was open, writing failed, they were discarded
    // by FinishWrite, or WriteData refused them. (Segments of no bytes are not counted.)
    uint64_t GetWriteLostCnt() const;
    // Segments ever queued, and those of them that the writer has done with, written or lost. The second grows while
    // the writer advances and reaches the first when it has nothing to do; both are exact.
    uint64_t GetWriteQueuedCnt() const;
    uint64_t GetWriteDoneCnt() const;
    uint32_t GetCompressingCnt() const;  // finished files that are being compressed, or wait for it
    void CancelCompressing();            // these files stay plain

    // ---- Replay. Any thread. Stop, Jump, CloseReadingFile and OpenReadDataFileorFolder wait for the replay thread:
    // do not call them while you hold a lock that your observer takes. Called from inside a callback of this object,
    // these four do not wait: they are carried out as soon as that callback has returned, in the order of the calls.
    // Pause, FastSlowForward and SetSpeed act at once everywhere. ----

    // Closes what is open, then opens one data file, or every data file below a folder, and plays it from the start.
    // Returns at once, always true; opening and playing go on on the replay thread: status 0, the span, status 1,
    // segments in order of time, status 4. Files that cannot be read or are no data files are skipped; damaged index
    // records cost only themselves. `observer` may be null, is not owned, and must live until CloseReadingFile returns.
    bool OpenReadDataFileorFolder(const std::string& path, iDataReadReplayObserver* observer);
    // The same with several files and folders, which are played as one. Returns false, and does nothing, for no path.
    bool OpenReadPaths(const std::vector<std::string>& paths, iDataReadReplayObserver* observer);
    // Pauses (status 2) or continues (status 1). Returns false before playing has begun.
    bool Pause(bool pause);
    // Sets the speed: above 1 to 10 fast by the whole part of `rate`, below 1 slow by 1 / (the whole part of 1 / rate
    // + 1), down to 1/11; exactly 1.0 or NaN is the recorded pace. Opening sets the pace back to 1.0.
    void FastSlowForward(double rate);
    // Sets exactly this speed, recorded time over playing time: 1.5 plays three seconds in two. 0.001 to 1,000,000;
    // returns false, and changes nothing, for any other. It and FastSlowForward replace each other's speed.
    bool SetSpeed(double speed);
    // Ends playing (status 4) before the first segment of this time or later, when that time has come; 0 for the end of
    // the span. From the next start of playing on, or from inside a callback.
    void SetReplayEnd(uint64_t timeMs);
    // Plays every segment in order as fast as it goes, without waiting for any; the speed stays set for later.
    void SetTopSpeed(bool on);
    // What is played after the span, before status 4; null for nothing. Its segments are paced like those of the span,
    // but one that comes later than it is due is due when it is there. Their progress is below 1.0. While nothing is
    // open; not owned.
    void SetReplaySource(iReplaySource* source);
    // Stops playing: statuses 1, 4 (if it was still playing), 3. One segment that was already due may still come.
    // Returns false, and reports nothing, before playing has begun or after a stop.
    bool Stop();
    // Plays from a place in the span, 0.0 to 1.0, stopping first; also from pause, end and stop. Below 0 playing waits
    // before the first segment; above 1 everything is played from the first segment on without waiting. Returns false
    // while nothing is opened or opening is not finished.
    bool Jump(double fraction);
    // Stops as Stop does, releases the files and the observer. Nothing is reported after it returns.
    void CloseReadingFile();
    // Segments that were due, since construction, and could not be read: a disk error, the codes cannot be used, the
    // file was cut or changed since it was opened, or is another one by now (of more than 64, those that have to be
    // opened again).
    uint64_t GetUnreadCnt() const;
    // Inside UpdateReplayData, of the segment being reported: the microseconds within its millisecond, -1 if they are
    // not known; and when it was due, in ns of the steady clock (CLOCK_MONOTONIC), 0 while paused or at top speed.
    // Segments with fine times are due to the microsecond, others with their millisecond.
    int GetReplayFineTime() const;
    int64_t GetReplayDueTime() const;

    // ---- Paths and disks. Any thread. ----

    static bool IsExistPath(const std::string& path);
    static tPathProperty IsFileOrFolder(const std::string& path);
    static void NormalizePath(std::string& path);  // "\" to "/", and a final "/" unless empty
    // Creates every folder of the path that ends with "/"; text behind the last "/" is not created. Returns whether the
    // whole path exists then.
    static bool MakePath(const std::string& path);
    static int64_t GetFileSize(const char* file);  // bytes; returns 0 if it cannot be examined
    // Returns the free space for unprivileged users in MiB, -1 on failure; wraps on disks of 2 TiB and more. Prints one
    // line.
    static int32_t GetDiskFreeSize_MB(const char* path);
    // Returns the size, in blocks of 1024 bytes, of the local file system mounted at `mountPoint` (ends with "/"); 0 if
    // none is.
    static int64_t GetMountDiskSize(const std::string& mountPoint);
    static void Relative2AbsolutePath(std::string& path);  // against the working folder
    // Collects full paths into `out`: files whose text from the last "." on equals `suffix` and, if `suffix` is empty,
    // folders. With `recursive` the folders below too; a folder that links lead back to is entered once.
    static void GetFileFolderInDir(const std::string& dir, std::set<std::string>& out, bool recursive,
                                   const std::string& suffix);

protected:
    // OpenReadPaths for a derived class: keeps the observer and releases it once everything is closed or
    // another path is opened, on the thread that does so, with no lock held.
    bool OpenReadingFor(const std::vector<std::string>& paths,
                        const std::shared_ptr<iDataReadReplayObserver>& observer);

private:
    friend class Kestova::tPackageRecorderPrivate;  // writes packages into the queue's memory
    tDataStorageIOPrivate* d;
};
}  // namespace storage

#endif
