// tFileRecorder: the recording half of a storage object.
//
// Shapes   segments go through a queue without bound to the writer thread, which takes the whole queue at once and
//          writes it, file after file. Plain bytes are copied without the queue's lock; the writer waits for them.
// Threads  any thread may call any operation. The writer thread writes and rolls over; the flush thread syncs every
//          30 s. m_controlMutex serialises what starts and finishes files; the writer never takes it.
//          The observation's thread calls the observer.
//          Files are created (m_series, m_request) by the control side while the writer is stopped, and by the writer
//          while it runs: never by both.
// Errors   see tDataStorageIO; segments that reach no file are counted.
#ifndef KESTOVA_STORAGE_RECORDING_FILERECORDER_H
#define KESTOVA_STORAGE_RECORDING_FILERECORDER_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "KestovaStorage/internal/buffers/batchqueue.h"
#include "KestovaStorage/internal/datafile/segmenttime.h"
#include "KestovaStorage/internal/recording/compressionqueue.h"
#include "KestovaStorage/internal/recording/fileseries.h"
#include "KestovaStorage/internal/recording/writeobservation.h"
#include "KestovaUtils/timeparser.h"
#include "common/worker.h"

class iSegmentSource;

namespace storage
{
enum tStorageState : std::uint8_t
{
    eWriteFree = 0,
    eWriting = 1,
    eWriteFinishing = 2
};

class tFileRecorder
{
public:
    // `reclaimer` is not owned; it outlives the recorder.
    tFileRecorder(const std::string& storageBasePath, const std::string& specifySuffix, tDiskReclaimer& reclaimer);
    ~tFileRecorder();

    bool createNewWritingFile(const std::string& extFileName, tTimes_ms timestamp, const std::string& customFolderPath,
                              bool compress);
    void setFineTimes(bool on) { m_fineTimes = on; }  // of the files created from then on
    void setObserver(iWriteObserver* observer) { m_observation.setObserver(observer); }

    void writeData(const char* data, std::size_t len, tSegmentTime time);
    // The same for a segment of `len` bytes that writes itself into the queue.
    void writeSegment(iSegmentSource& segment, std::size_t len, tSegmentTime time);
    // The writer goes on in the next file behind what is queued; returns false if there is no writer.
    bool startNextFile();
    void finishWrite();
    bool waitWriteIdle(unsigned int timeout_ms);

    bool isWriteEnable() const { return m_state == eWriting; }
    std::string currentFileName() const;
    std::uint32_t fifoSize() const { return m_writeDataFifoSize; }
    std::uint32_t saveCnt() const { return static_cast<std::uint32_t>(m_acceptedCnt + m_droppedCnt); }
    std::uint64_t lostCnt() const { return m_lostCnt; }
    std::uint64_t queuedCnt() const { return m_acceptedCnt; }
    std::uint64_t doneCnt() const { return m_doneCnt; }
    tCompressionQueue& compressions() { return m_compressions; }

private:
    using tWritingFilePtr = std::shared_ptr<tWritingFile>;

    bool startWriter();
    void setFile(tWritingFilePtr file);
    tWritingFilePtr file() const;
    void finishFile();
    void finish();

    template <typename tSource>
    void offer(std::size_t len, tSegmentTime time, tSource source);
    template <typename tSource>
    void accept(std::size_t len, std::uint64_t tag, tSource& source);
    template <typename tSource>
    void acceptLong(std::size_t len, std::uint64_t tag, tSource& source);
    template <typename tSource, typename tPush>
    bool enter(tSource& source, tPush push);
    template <typename tSource>
    void drop(tSource& source);
    void writeLoop();
    bool writeBatch(tSegmentBlocks& batch);
    void writeBlock(const tSegmentBlock& block);
    void append(tWritingFile& file, tBlockCursor& cursor);
    void recycle(std::unique_ptr<tSegmentBlock> block);
    void rollOver(tTimes_ms timestamp);
    void gather();
    void dropQueue();
    void flushLoop();

    tFileSeries m_series;
    tFileSeries::tRequest m_request;

    std::mutex m_controlMutex;
    std::atomic<tStorageState> m_state{eWriteFree};
    std::atomic<bool> m_fineTimes{false};
    mutable std::mutex m_writingStreamMutex;
    tWriteObservation m_observation;
    tCompressionQueue m_compressions;  // calls the observation
    tWritingFilePtr m_file;            // guarded by m_writingStreamMutex; never held during a write

    // Written by producers, and on other cache lines than the writer's counters.
    // Guarded by m_writeDataThread's lock.
    alignas(64) tBatchQueue m_writeDataFifo;
    bool m_writerSleeps = false;                  // the writer waits for a notification
    bool m_skipGather = false;                    // the writer does not let segments gather
    bool m_nextWanted = false;                    // the writer goes on in the next file
    std::atomic<std::uint64_t> m_acceptedCnt{0};  // segments ever queued; changed under the lock only
    std::atomic<std::uint64_t> m_droppedCnt{0};   // segments given to writeData and not queued

    alignas(64) std::uint64_t m_processedCnt = 0;       // guarded by it: of those queued, written or lost
    std::atomic<std::uint32_t> m_writeDataFifoSize{0};  // segments that wait, as of the writer's last update
    std::atomic<std::uint64_t> m_doneCnt{0};            // of those queued, written or lost; grows within a batch
    std::atomic<std::uint64_t> m_lostCnt{0};
    std::atomic<bool> m_refusalReported{false};

    tWorker m_writeDataThread;
    tWorker m_writeFlushThread;
};
}  // namespace storage

#endif
