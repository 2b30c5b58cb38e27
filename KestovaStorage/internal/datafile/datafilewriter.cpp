#include "KestovaStorage/internal/datafile/datafilewriter.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "KestovaStorage/internal/codec/segmentcodec.h"
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
    std::unique_ptr<tDataFileWriter> writer(new tDataFileWriter(std::move(file), path));
    writer->m_output.writeMagic();
    return writer;
}

tDataFileWriter::tDataFileWriter(tDescriptor file, std::string path)
    : m_file(std::move(file)), m_path(std::move(path)),
      m_output(
          [this](const void* data, std::size_t size, std::uint64_t pos) { return writeAt(data, size, pos) == size; })
{}

void tDataFileWriter::append(tBlockCursor& cursor, std::uint64_t now)
{
    const tRun run = plan(cursor, now);
    const std::size_t bytes =
        m_output.writeMagic() ? writeAt(cursor.block->bytes() + cursor.offset, run.bytes, m_payloadEnd) : 0;
    const std::size_t whole = bytes == run.bytes ? run.segments : wholeSegments(bytes);
    if (whole == 0 || m_output.append(m_slots, whole))
        accept(cursor.block->bytes() + cursor.offset, whole);
    else
        m_lost += whole;
    // The segment whose write failed is lost; the next call tries those behind it.
    const std::size_t processed = std::min(whole + 1, run.segments);
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
}

void tDataFileWriter::sync()
{
    if (::fdatasync(m_file.get()) != 0)
        Kestova::console::printSystemError(m_path.c_str());
}

// Fills m_slots with the records of the segments that go into this file next.
tDataFileWriter::tRun tDataFileWriter::plan(const tBlockCursor& cursor, std::uint64_t now)
{
    tRun run;
    m_slots.clear();
    const std::size_t room = cIndexCapacity - m_output.records();
    const std::size_t count = std::min(cursor.block->count() - cursor.segment, room);
    for (bool last = false; run.segments < count && !last; ++run.segments)
    {
        const tSegmentEntry entry = cursor.block->entry(cursor.segment + run.segments);
        const std::uint64_t pos = m_payloadEnd + run.bytes;
        const std::uint64_t time = entry.tag != 0 ? entry.tag : now;
        m_slots.push_back(encode(tNormalIndexTable{time, pos, static_cast<std::uint32_t>(entry.len)}));
        run.bytes += entry.len;
        last = pos > cLastSegmentPos;
    }
    return run;
}

// Returns how many segments of the run lie whole within its first `bytes` bytes.
std::size_t tDataFileWriter::wholeSegments(std::size_t bytes) const
{
    const std::uint64_t end = m_payloadEnd + bytes;
    std::size_t whole = 0;
    while (whole < m_slots.size() && endOf(m_slots[whole]) <= end)
        ++whole;
    return whole;
}

// `bytes` are those of the segments, back to back.
void tDataFileWriter::accept(const char* bytes, std::size_t segments)
{
    if (segments == 0)
        return;
    m_lastStart = startOf(m_slots[segments - 1]);
    m_payloadEnd = endOf(m_slots[segments - 1]);
    for (std::size_t i = 0; m_encoder != nullptr && i < segments; ++i)
    {
        const std::uint32_t len = lengthOf(m_slots[i]);
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
