#include "KestovaStorage/internal/datafile/datafilewriter.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "KestovaStorage/internal/codec/segmentcodec.h"
#include "KestovaStorage/internal/datafile/segmenttime.h"
#include "KestovaStorage/internal/datafile/writinglock.h"
#include "UdpSocket/consoleprint.h"

namespace storage
{
namespace
{
std::uint64_t startOf(const tIndexSlot& slot)
{
    return decodeNormal(slot).pos;
}
std::uint64_t endOf(const tIndexSlot& slot)
{
    const tNormalIndexTable record = decodeNormal(slot);
    return record.pos + record.len;
}
}  // namespace

std::unique_ptr<tDataFileWriter> tDataFileWriter::create(const std::string& path)
{
    tDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.valid())
        return nullptr;
    takeWritingLock(file.get());
    std::unique_ptr<tDataFileWriter> writer(new tDataFileWriter(std::move(file), path));
    writer->m_output.writeMagic();
    return writer;
}

tDataFileWriter::tDataFileWriter(tDescriptor file, std::string path)
    : m_file(std::move(file)), m_path(std::move(path)),
      m_output(
          [this](const void* data, std::size_t size, std::uint64_t pos) { return writeAt(data, size, pos) == size; })
{}

void tDataFileWriter::keepFineTimes(const std::string& path, const tFileId& id)
{
    m_fineTimes = std::make_unique<tFineTimesOutput>(path, id);
    m_usesFineTimes = true;
}

void tDataFileWriter::append(tBlockCursor& cursor, std::uint64_t now)
{
    const tPlan planned = plan(cursor, now);
    const char* const from = cursor.block->bytes() + cursor.offset;
    const std::size_t bytes = m_output.writeMagic() ? writeAt(from, planned.bytes, m_payloadEnd) : 0;
    const std::size_t whole = bytes == planned.bytes ? planned.segments : wholeSegments(bytes);
    if (whole == 0 || publish(whole))
        accept(from, whole);
    else
        m_lost += whole;
    // The segment whose write failed is lost; the next call tries those behind it.
    const std::size_t processed = std::min(whole + 1, planned.segments);
    m_lost += processed - whole;
    for (std::size_t i = 0; i < processed; ++i)
        cursor.offset += cursor.block->entry(cursor.segment++).len;
}

bool tDataFileWriter::isFull() const
{
    return m_lastStart > cLastSegmentPos || m_output.records() >= cIndexCapacity;
}

void tDataFileWriter::finish()
{
    if (m_output.writeMagic())
        m_output.writeHead();
    releaseWritingLock(m_file.get());
}

void tDataFileWriter::sync()
{
    if (::fdatasync(m_file.get()) != 0 || (m_fineTimes && !m_fineTimes->sync()))
        Kestova::console::printSystemError(m_path.c_str());
}

// Fills m_run with the records of the segments that go into this file next.
tDataFileWriter::tPlan tDataFileWriter::plan(const tBlockCursor& cursor, std::uint64_t now)
{
    tPlan planned;
    m_run.count = 0;
    m_run.slots.clear();
    m_run.fineTimes.clear();
    const std::size_t room = cIndexCapacity - m_output.records();
    const std::size_t count = std::min(cursor.block->count() - cursor.segment, room);
    for (bool last = false; planned.segments < count && !last; ++planned.segments)
    {
        const tSegmentEntry entry = cursor.block->entry(cursor.segment + planned.segments);
        const std::uint64_t pos = m_payloadEnd + planned.bytes;
        const std::uint64_t time = timeOfTag(entry.tag);
        m_run.slots.push_back(
            encode(tNormalIndexTable{time != 0 ? time : now, pos, static_cast<std::uint32_t>(entry.len)}));
        if (m_usesFineTimes)
            m_run.fineTimes.push_back(fineTimeOfTag(entry.tag));
        planned.bytes += entry.len;
        last = pos > cLastSegmentPos;
    }
    return planned;
}

// Returns how many segments of the run lie whole within its first `bytes` bytes.
std::size_t tDataFileWriter::wholeSegments(std::size_t bytes) const
{
    const std::uint64_t end = m_payloadEnd + bytes;
    std::size_t whole = 0;
    while (whole < m_run.slots.size() && endOf(m_run.slots[whole]) <= end)
        ++whole;
    return whole;
}

// Fine times come first: whoever finds a record finds its fine time.
bool tDataFileWriter::publish(std::size_t segments)
{
    if (m_fineTimes)
        m_fineTimes->write(m_output.records(), m_run.slots.front(), std::span(m_run.fineTimes).first(segments));
    return m_output.append(m_run.slots, segments);
}

// `bytes` are those of the segments, back to back.
void tDataFileWriter::accept(const char* bytes, std::size_t segments)
{
    m_run.bytes = bytes;
    m_run.count = segments;
    if (segments == 0)
        return;
    m_lastStart = startOf(m_run.slots[segments - 1]);
    m_payloadEnd = endOf(m_run.slots[segments - 1]);
    for (std::size_t i = 0; m_encoder != nullptr && i < segments; ++i)
    {
        const std::uint32_t len = lengthOf(m_run.slots[i]);
        m_encoder->count(bytes, len);
        bytes += len;
    }
}

// Returns the number of bytes written before an error. The first failure of a file is reported.
std::size_t tDataFileWriter::writeAt(const void* data, std::size_t len, std::uint64_t pos)
{
    const std::size_t done = m_file.writeAt(data, len, pos);
    if (done < len && !m_failureReported)
    {
        m_failureReported = true;
        Kestova::console::printSystemError(m_path.c_str());
    }
    return done;
}
}  // namespace storage
