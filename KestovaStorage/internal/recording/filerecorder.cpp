#include "KestovaStorage/internal/recording/filerecorder.h"

#include <chrono>
#include <new>
#include <system_error>
#include <utility>

#include "KestovaStorage/internal/buffers/filledblocks.h"
#include "KestovaStorage/internal/buffers/segmentsource.h"
#include "KestovaStorage/internal/datafile/segmenttime.h"
#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;
using utils::time::tTimeParser;

constexpr auto cFlushPeriod = 30s;
// After a batch the writer lets segments gather, so that a steady stream costs its producer no wake-up, a slow one few
// writes, and few calls find the queue in the cache of the writer's core; a backlog of cGatherBytes ends that early.
constexpr auto cGatherTime = 10ms;
constexpr std::size_t cGatherBytes = tSegmentBlock::cDefaultSize / 2;
constexpr std::size_t cWarmBlocks = 4;
// Longer segments are copied before the queue is locked, so that they delay no other producer.
constexpr std::size_t cCopyInQueue = 16 * 1024;

// The bytes of a caller: their place is theirs once it is queued, so they are copied without the lock.
struct tBytes
{
    static constexpr bool cUnderLock = false;
    const char* data;
    std::size_t len;

    void write(char* place) const { std::memcpy(place, data, len); }
    void queued(char*) const {}
};

// A segment that is changed when it is queued, so it is written before.
struct tWritesItself
{
    static constexpr bool cUnderLock = true;
    iSegmentSource& segment;

    void write(char* place) const { segment.write(place); }
    void queued(char* place) const { segment.queued(place); }
};
}  // namespace

tFileRecorder::tFileRecorder(const std::string& storageBasePath, const std::string& specifySuffix,
                             tDiskReclaimer& reclaimer)
    : m_series(storageBasePath, specifySuffix, reclaimer),
      m_observation([this](std::unique_ptr<tSegmentBlock> block) { recycle(std::move(block)); }),
      m_compressions(specifySuffix, [this](const std::string& path, const std::string& result) {
          m_observation.compressed(path, result);
      })
{
    m_writeFlushThread.start([this] { flushLoop(); });
}

tFileRecorder::~tFileRecorder()
{
    m_series.releaseRoot();
    finishWrite();
}

bool tFileRecorder::createNewWritingFile(const std::string& extFileName, tTimes_ms timestamp,
                                         const std::string& customFolderPath, bool compress)
{
    const std::lock_guard<std::mutex> control(m_controlMutex);
    finish();
    tFileSeries::tRequest request{extFileName, customFolderPath, compress, m_fineTimes, m_observation.active()};
    tWritingFilePtr next = m_series.create(request, timestamp);
    if (!next)
        return false;
    m_request = std::move(request);
    m_observation.fileStarted(next->path, next->id);
    setFile(std::move(next));
    {
        const tWorker::tLock held = m_writeDataThread.lock();
        m_writeDataFifo.reserve(cWarmBlocks);
        m_writerSleeps = m_skipGather = m_nextWanted = false;
    }
    if (!startWriter())
    {
        finish();
        return false;
    }
    m_state = eWriting;
    return true;
}

bool tFileRecorder::startWriter()
try
{
    return m_writeDataThread.start([this] { writeLoop(); });
}
catch (const std::system_error& error)
{
    Kestova::console::printError("%s: no thread to write on: %s\n", currentFileName().c_str(), error.what());
    return false;
}

void tFileRecorder::writeData(const char* data, std::size_t len, tSegmentTime time)
{
    offer(len, time, tBytes{data, len});
}

void tFileRecorder::writeSegment(iSegmentSource& segment, std::size_t len, tSegmentTime time)
{
    offer(len, time, tWritesItself{segment});
}

template <typename tSource>
void tFileRecorder::offer(std::size_t len, tSegmentTime time, tSource source)
{
    if (len == 0)
    {
        ++m_droppedCnt;
        return;
    }
    const bool refused = len >= cSegmentLenLimit || time.ms >= cTimeLimit;
    if (!refused)
        return accept(len, tagOf(time), source);
    if (!m_refusalReported.exchange(true))
        Kestova::console::printError(
            "WriteData: a segment of %zu bytes with time stamp %lu is beyond the limits, refused\n", len, time.ms);
    drop(source);
}

template <typename tSource>
void tFileRecorder::accept(std::size_t len, std::uint64_t tag, tSource& source)
try
{
    if (len > cCopyInQueue)
        return acceptLong(len, tag, source);
    tSegmentBlock::tPlace place;
    const auto fill = [&] {
        source.write(place.bytes);
        place.filled();
    };
    const bool queued = enter(source, [&] {
        place = m_writeDataFifo.push(len, tag);
        if constexpr (tSource::cUnderLock)
            fill();
        return place.bytes;
    });
    if (!tSource::cUnderLock && queued)
        fill();
}
catch (const std::bad_alloc&)  // before anything was queued
{
    drop(source);
}

template <typename tSource>
void tFileRecorder::acceptLong(std::size_t len, std::uint64_t tag, tSource& source)
{
    auto block = std::make_unique<tSegmentBlock>(len + cCopyInQueue);  // with room for short ones behind it
    char* const place = block->push(len, tag);
    source.write(place);
    enter(source, [&] {
        m_writeDataFifo.push(std::move(block));
        return place;
    });
}

// push() queues the segment and returns its place. Returns false if there is no writer.
template <typename tSource, typename tPush>
bool tFileRecorder::enter(tSource& source, tPush push)
{
    bool wake = false;
    {
        const tWorker::tLock held = m_writeDataThread.lockBriefly();
        if (!m_writeDataThread.running())
        {
            drop(source);
            return false;
        }
        source.queued(push());
        m_acceptedCnt.store(m_acceptedCnt.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        const bool backlog = !m_skipGather && m_writeDataFifo.bytes() >= cGatherBytes;
        wake = m_writerSleeps || backlog;
        m_writerSleeps = false;
        m_skipGather |= backlog;
    }
    if (wake)
        m_writeDataThread.notify();
    return true;
}

template <typename tSource>
void tFileRecorder::drop(tSource& source)
{
    ++m_droppedCnt;
    ++m_lostCnt;
    source.queued(nullptr);
}

bool tFileRecorder::startNextFile()
{
    bool running = false;
    m_writeDataThread.wake([&] {
        running = m_writeDataThread.running();
        m_nextWanted |= running;
        m_skipGather |= running;
    });
    return running;
}

void tFileRecorder::finishWrite()
{
    const std::lock_guard<std::mutex> control(m_controlMutex);
    finish();
}

// Everything queued by now is done once as many segments have been processed as were accepted by now.
bool tFileRecorder::waitWriteIdle(unsigned int timeout_ms)
{
    const auto deadline = tWorker::tClock::now() + std::chrono::milliseconds(timeout_ms);
    tWorker::tLock held = m_writeDataThread.lock();
    const std::uint64_t target = m_acceptedCnt;
    m_skipGather = true;
    m_writeDataThread.notify();
    return m_writeDataThread.waitUntil(held, deadline, [&] { return m_processedCnt >= target; });
}

std::string tFileRecorder::currentFileName() const
{
    const tWritingFilePtr current = file();
    return current ? current->path : std::string();
}

// ---- the current file ----

void tFileRecorder::setFile(tWritingFilePtr next)
{
    const std::lock_guard<std::mutex> lock(m_writingStreamMutex);
    m_file.swap(next);
}

tFileRecorder::tWritingFilePtr tFileRecorder::file() const
{
    const std::lock_guard<std::mutex> lock(m_writingStreamMutex);
    return m_file;
}

void tFileRecorder::finishFile()
{
    const tWritingFilePtr current = file();
    if (!current)
        return;
    current->writer->finish();
    current->writer->countInto(nullptr);
    m_observation.fileFinished(current->path);
    if (current->encoder)
        m_compressions.add(current->path, std::move(current->encoder));
}

void tFileRecorder::finish()
{
    m_state = eWriteFinishing;
    m_writeDataThread.stop();
    dropQueue();
    finishFile();
    m_observation.waitUntilCalled();
    setFile(nullptr);
    m_state = eWriteFree;
}

// ---- the writer thread ----

void tFileRecorder::writeLoop()
{
    tSegmentBlocks batch;
    for (;;)
    {
        std::uint64_t taken = 0;
        bool next = false;
        {
            tWorker::tLock held = m_writeDataThread.lock();
            m_writerSleeps = m_writeDataFifo.empty();
            if (!m_writeDataThread.wait(held, [this] { return !m_writeDataFifo.empty() || m_nextWanted; }))
                return;
            next = std::exchange(m_nextWanted, false);
            taken = m_writeDataFifo.count();
            m_writeDataFifoSize = static_cast<std::uint32_t>(taken);
            m_writeDataFifo.take(batch);
            m_writerSleeps = m_skipGather = false;
        }
        waitUntilFilled(batch);
        if (!writeBatch(batch))
            return;
        if (next)
            rollOver(0);
        m_writeDataThread.wake([&] {
            m_processedCnt += taken;
            m_writeDataFifo.recycle(batch);
        });
        batch.clear();
        gather();
    }
}

// Returns false if the writer was stopped: what is left of the batch is lost. Blocks that are observed leave the batch.
bool tFileRecorder::writeBatch(tSegmentBlocks& batch)
{
    const bool observed = m_observation.active();
    for (std::size_t i = 0; i < batch.size(); ++i)
    {
        if (!m_writeDataThread.running())
        {
            for (; i < batch.size(); ++i)
                m_lostCnt += batch[i]->count();
            return false;
        }
        writeBlock(*batch[i]);
        m_writeDataFifoSize -= static_cast<std::uint32_t>(batch[i]->count());
        m_doneCnt += batch[i]->count();
        if (observed)
            m_observation.release(std::move(batch[i]));
    }
    if (observed)
        batch.clear();
    m_observation.callWaiting();
    return true;
}

void tFileRecorder::writeBlock(const tSegmentBlock& block)
{
    tBlockCursor cursor{&block};
    while (!cursor.atEnd())
    {
        const tWritingFilePtr current = file();
        if (!current || current->writer->isFull())  // still full: a stop prevented the roll-over
        {
            m_lostCnt += block.count() - cursor.segment;
            return;
        }
        append(*current, cursor);
        if (current->writer->isFull())
            rollOver(timeOfTag(block.entry(cursor.segment - 1).tag));
    }
}

void tFileRecorder::append(tWritingFile& file, tBlockCursor& cursor)
{
    const std::uint64_t lostBefore = file.writer->lost();
    file.writer->append(cursor, tTimeParser::GetCurrentTime_ms());
    const std::uint64_t lost = file.writer->lost() - lostBefore;
    m_lostCnt += lost;
    m_observation.written(file.writer->run());
    m_observation.lost(lost);
}

// A block that was observed comes back.
void tFileRecorder::recycle(std::unique_ptr<tSegmentBlock> block)
{
    tSegmentBlocks one;
    one.push_back(std::move(block));
    const tWorker::tLock held = m_writeDataThread.lock();
    m_writeDataFifo.recycle(one);
}

// The segment that crossed the limit, of time stamp `timestamp`, stays in the old file. The next file is open before
// the old one is finished, so that the object has no file for an instant only; if it cannot be opened the object stays
// without a file, unless the old one has room. After a stop nothing is opened: the thread that stops the writer
// finishes the old file.
void tFileRecorder::rollOver(tTimes_ms timestamp)
{
    if (!m_writeDataThread.running())
        return;
    tWritingFilePtr next = m_series.create(m_request, timestamp);
    const bool opened = next != nullptr;
    const tWritingFilePtr current = file();
    if (!opened && current && !current->writer->isFull())
        return;
    m_state = eWriteFinishing;
    finishFile();
    m_state = eWriteFree;
    if (opened)
        m_observation.fileStarted(next->path, next->id);
    setFile(std::move(next));
    if (opened)
        m_state = eWriting;
}

// Lets segments gather for a moment, unless a caller waits for the disk or the backlog is large.
void tFileRecorder::gather()
{
    tWorker::tLock held = m_writeDataThread.lock();
    m_writeDataThread.waitUntil(held, tWorker::tClock::now() + cGatherTime,
                                [this] { return m_skipGather || m_writeDataFifo.bytes() >= cGatherBytes; });
}

void tFileRecorder::dropQueue()
{
    tSegmentBlocks dropped;
    m_writeDataThread.wake([&] {
        m_lostCnt += m_writeDataFifo.count();
        m_processedCnt = m_acceptedCnt;
        m_doneCnt = m_acceptedCnt.load();
        m_writeDataFifo.take(dropped);
    });
    waitUntilFilled(dropped);
    m_writeDataFifoSize = 0;
}

// ---- the flush thread ----

void tFileRecorder::flushLoop()
{
    while (m_writeFlushThread.sleepFor(cFlushPeriod))
    {
        if (const tWritingFilePtr current = file())
            current->writer->sync();
    }
}
}  // namespace storage
