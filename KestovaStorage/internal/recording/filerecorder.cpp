#include "KestovaStorage/internal/recording/filerecorder.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

#include "KestovaStorage/internal/buffers/segmentsource.h"
#include "KestovaStorage/internal/datafile/naming.h"
#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;
using utils::time::tTimeParser;

constexpr auto cFlushPeriod = 30s;
// After a batch the writer lets segments gather for so long, so that a steady stream costs its producer no wake-up; a
// backlog of so many bytes ends that early.
constexpr auto cGatherTime = 1ms;
constexpr std::size_t cGatherBytes = tSegmentBlock::cDefaultSize / 2;
constexpr std::size_t cWarmBlocks = 4;
// Longer segments are copied before the queue is locked, so that producers do not hold each other up.
constexpr std::size_t cCopyUnderLock = 16 * 1024;

constexpr char cFallbackRoot[] = "./RadarDataStorage";

std::string storageRoot(std::string path)
{
    if (path.empty())
        return path;
    paths::normalize(path);
    if (paths::makeFolders(path))
        return path;
    // Kept: without a final "/", so that recording folders are named ./RadarDataStorageData_...
    paths::makeFolders(cFallbackRoot);
    return cFallbackRoot;
}
}  // namespace

tFileRecorder::tFileRecorder(const std::string& storageBasePath, const std::string& specifySuffix,
                             tDiskReclaimer& reclaimer)
    : m_reclaimer(reclaimer), m_storageBasePath(storageRoot(storageBasePath)), m_specifySuffix(specifySuffix),
      m_compressions(specifySuffix)
{
    if (!m_storageBasePath.empty())
        m_reclaimer.addRoot(this, m_storageBasePath);
    m_writeFlushThread.start([this] { flushLoop(); });
}

tFileRecorder::~tFileRecorder()
{
    m_reclaimer.removeRoot(this);
    finishWrite();
}

bool tFileRecorder::createNewWritingFile(const std::string& extFileName, tTimes_ms timestamp,
                                         const std::string& customFolderPath, bool compress)
{
    const std::lock_guard<std::mutex> control(m_controlMutex);
    finish();
    tRequest request{extFileName, customFolderPath, compress};
    tWritingFilePtr next = newFile(request, timestamp);
    if (!next)
        return false;
    m_request = std::move(request);
    setFile(std::move(next));
    {
        const tWorker::tLock held = m_writeDataThread.lock();
        m_writeDataFifo.reserve(cWarmBlocks);
        m_writerSleeps = m_hurry = false;
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
    std::fprintf(stderr, "%s: no thread to write on: %s\n", currentFileName().c_str(), error.what());
    return false;
}

void tFileRecorder::writeData(const char* data, std::size_t len, tTimes_ms timestamp)
{
    offer(
        len, timestamp, [&](char* place) { std::memcpy(place, data, len); }, [](char*) {});
}

void tFileRecorder::writeSegment(iSegmentSource& segment, std::size_t len, tTimes_ms timestamp)
{
    offer(
        len, timestamp, [&](char* place) { segment.write(place); }, [&](char* place) { segment.queued(place); });
}

// write(place) fills the segment; queued(place) follows under the queue's lock, with null where it is dropped.
template <typename tWrite, typename tQueued>
void tFileRecorder::offer(std::size_t len, tTimes_ms timestamp, tWrite write, tQueued queued)
{
    ++m_saveCnt;
    if (len == 0)
        return;
    const bool refused = len >= cSegmentLenLimit || timestamp >= cTimeLimit;
    if (refused && !m_refusalReported.exchange(true))
        std::fprintf(stderr, "WriteData: a segment of %zu bytes with time stamp %lu is beyond the limits, refused\n",
                     len, timestamp);
    if (!refused)
        return accept(len, timestamp, write, queued);
    ++m_lostCnt;
    queued(nullptr);
}

template <typename tWrite, typename tQueued>
void tFileRecorder::accept(std::size_t len, tTimes_ms timestamp, tWrite write, tQueued queued)
try
{
    std::unique_ptr<tSegmentBlock> own;
    char* place = nullptr;
    if (len > cCopyUnderLock)
    {
        own = std::make_unique<tSegmentBlock>(len + cCopyUnderLock);  // with room for short ones behind it
        place = own->push(len, timestamp);
        write(place);
    }
    bool wake = false;
    {
        const tWorker::tLock held = m_writeDataThread.lock();
        if (!m_writeDataThread.running())
        {
            ++m_lostCnt;
            queued(nullptr);
            return;
        }
        if (own)
            m_writeDataFifo.push(std::move(own));
        else
            write(place = m_writeDataFifo.push(len, timestamp));
        queued(place);
        ++m_acceptedCnt;
        const bool backlog = !m_hurry && m_writeDataFifo.bytes() >= cGatherBytes;
        wake = m_writerSleeps || backlog;
        m_writerSleeps = false;
        m_hurry |= backlog;
    }
    if (wake)
        m_writeDataThread.notify();
}
catch (const std::bad_alloc&)
{
    ++m_lostCnt;
}

void tFileRecorder::finishWrite()
{
    const std::lock_guard<std::mutex> control(m_controlMutex);
    finish();
}

// Everything queued by now is dealt with once as many segments have been dealt with as were accepted by now.
bool tFileRecorder::waitWriteIdle(unsigned int timeout_ms)
{
    const auto deadline = tWorker::tClock::now() + std::chrono::milliseconds(timeout_ms);
    tWorker::tLock held = m_writeDataThread.lock();
    const std::uint64_t target = m_acceptedCnt;
    m_hurry = true;
    m_writeDataThread.notify();
    return m_writeDataThread.waitUntil(held, deadline, [&] { return m_dealtWithCnt >= target; });
}

std::string tFileRecorder::currentFileName() const
{
    const tWritingFilePtr current = file();
    return current ? current->path : std::string();
}

// ---- starting and finishing files ----

// Names and creates the next file; null, with a line on standard error, where that fails. The file before it stays.
tFileRecorder::tWritingFilePtr tFileRecorder::newFile(const tRequest& request, tTimes_ms timestamp)
{
    const std::string folder = recordingFolder(request, timestamp);
    auto next = std::make_shared<tWritingFile>();
    next->path = folder + nextFileName(folder, request, timestamp);
    next->mark = tDiskReclaimer::tWritingMark(m_reclaimer, next->path);
    next->writer = newWriter(folder, next->path);
    if (!next->writer)
        return nullptr;
    if (request.compress)
    {
        next->encoder = tCompressionQueue::newEncoder();
        next->writer->countInto(next->encoder.get());
    }
    return next;
}

std::unique_ptr<tDataFileWriter> tFileRecorder::newWriter(const std::string& folder, const std::string& path)
{
    if (paths::exists(path))
    {
        errno = EEXIST;
        std::perror("newfile already exist!\r\n");
        return nullptr;
    }
    if (!paths::makeFolders(folder))
    {
        std::perror("newfile path mkdir failed!\r\n");
        return nullptr;
    }
    std::unique_ptr<tDataFileWriter> writer = tDataFileWriter::create(path);
    // The folder was empty until now; reclaiming may have deleted it as one that a deleted file left empty.
    if (!writer && errno == ENOENT && paths::makeFolders(folder))
        writer = tDataFileWriter::create(path);
    if (!writer)
        std::perror(path.c_str());
    return writer;
}

std::string tFileRecorder::nextFileName(const std::string& folder, const tRequest& request, tTimes_ms timestamp)
{
    naming::tPaths files;
    if (paths::exists(folder))
        paths::listFolder(folder, files, false, m_specifySuffix);
    const std::string label =
        naming::storageTimLabel(timestamp, true, tTimeParser::GetCurrentTime_s(), m_storageStartTim);
    return naming::fileName(naming::nextFileNumber(files, m_specifySuffix), label, request.extFileName,
                            m_specifySuffix);
}

std::string tFileRecorder::recordingFolder(const tRequest& request, tTimes_ms timestamp)
{
    if (m_storageBasePath.empty())
        return request.customFolderPath;
    return m_storageBasePath + storageSubFolderName(timestamp) + "/";
}

std::string tFileRecorder::storageSubFolderName(tTimes_ms timestamp)
{
    if (m_storageSubFolderName.empty())
    {
        naming::tPaths entries;
        paths::listFolder(m_storageBasePath, entries, false, "");
        const std::string label =
            naming::storageTimLabel(timestamp, false, tTimeParser::GetCurrentTime_s(), m_storageStartTim);
        m_storageSubFolderName = naming::folderName(naming::nextFolderNumber(entries), label);
    }
    return m_storageSubFolderName;
}

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
    if (current->encoder)
        m_compressions.add(current->path, std::move(current->encoder));
}

void tFileRecorder::finish()
{
    m_state = eWriteFinishing;
    m_writeDataThread.stop();
    dropQueue();
    finishFile();
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
        {
            tWorker::tLock held = m_writeDataThread.lock();
            m_writerSleeps = m_writeDataFifo.empty();
            if (!m_writeDataThread.wait(held, [this] { return !m_writeDataFifo.empty(); }))
                return;
            taken = m_writeDataFifo.count();
            m_writeDataFifoSize = static_cast<std::uint32_t>(taken);
            m_writeDataFifo.take(batch);
            m_writerSleeps = m_hurry = false;
        }
        if (!writeBatch(batch))
            return;
        m_writeDataThread.wake([&] {
            m_dealtWithCnt += taken;
            m_writeDataFifo.recycle(batch);
        });
        batch.clear();
        gather();
    }
}

// Returns false if the writer was stopped: what is left of the batch is lost.
bool tFileRecorder::writeBatch(const tSegmentBlocks& batch)
{
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
    }
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
        const std::uint64_t lostBefore = current->writer->lost();
        current->writer->append(cursor, tTimeParser::GetCurrentTime_ms());
        m_lostCnt += current->writer->lost() - lostBefore;
        if (current->writer->isFull())
            rollOver(block.entry(cursor.segment - 1).tag);
    }
}

// The segment that crossed the limit, of time stamp `timestamp`, stays in the old file. The next file is open before
// the old one is finished, so that the object is without one for an instant only; where it cannot be opened the object
// stays without a file. After a stop nothing is opened: the thread that stops the writer finishes the old file.
void tFileRecorder::rollOver(tTimes_ms timestamp)
{
    if (!m_writeDataThread.running())
        return;
    tWritingFilePtr next = newFile(m_request, timestamp);
    const bool opened = next != nullptr;
    m_state = eWriteFinishing;
    finishFile();
    m_state = eWriteFree;
    setFile(std::move(next));
    if (opened)
        m_state = eWriting;
}

// Lets segments gather for a moment, unless a caller waits for the disk or the backlog is large.
void tFileRecorder::gather()
{
    tWorker::tLock held = m_writeDataThread.lock();
    m_writeDataThread.waitUntil(held, tWorker::tClock::now() + cGatherTime,
                                [this] { return m_hurry || m_writeDataFifo.bytes() >= cGatherBytes; });
}

void tFileRecorder::dropQueue()
{
    tSegmentBlocks dropped;
    m_writeDataThread.wake([&] {
        m_lostCnt += m_writeDataFifo.count();
        m_dealtWithCnt = m_acceptedCnt;
        m_writeDataFifo.take(dropped);
    });
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
