#include "KestovaStorage/internal/datafile/datafilewriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/internal/codec/segmentencoder.h"

namespace storage
{
namespace
{
// A write to the page cache is cut by a dying process at page boundaries only.
constexpr std::uint64_t cPageSize = 4096;

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
    writer->writeMagic();
    return writer;
}

tDataFileWriter::tDataFileWriter(tDescriptor file, std::string path) : m_file(std::move(file)), m_path(std::move(path))
{}

void tDataFileWriter::append(tBlockCursor& cursor, std::uint64_t now)
{
    const tRun run = plan(cursor, now);
    const std::size_t bytes =
        writeMagic() ? writeAt(cursor.block->bytes() + cursor.offset, run.bytes, m_payloadEnd) : 0;
    const std::size_t whole = bytes == run.bytes ? run.segments : wholeSegments(bytes);
    const bool published = whole == 0 || publish(whole);
    if (published)
        accept(cursor.block->bytes() + cursor.offset, whole);
    else
        m_lost += whole;
    // The segment that did not fit is given up; those behind it are tried again.
    const std::size_t dealtWith = std::min(whole + 1, run.segments);
    m_lost += dealtWith - whole;
    for (std::size_t i = 0; i < dealtWith; ++i)
        cursor.offset += cursor.block->entry(cursor.segment++).len;
}

bool tDataFileWriter::isFull() const
{
    return m_lastStart > cLastSegmentPos || m_indexHead.indexNum >= cIndexCapacity;
}

void tDataFileWriter::finish()
{
    unsigned char head[sizeof(tIndexHead)];
    le::store(head + offsetof(tIndexHead, indexNum), m_indexHead.indexNum);
    le::store(head + offsetof(tIndexHead, segmentMaxLen), m_indexHead.segmentMaxLen);
    if (writeMagic())
        writeAllAt(head, sizeof head, cIndexHeadPos);
}

void tDataFileWriter::sync()
{
    if (::fdatasync(m_file.get()) != 0)
        std::perror(m_path.c_str());
}

// Fills m_slots with the records of the segments that go into this file next, and a record of zeros behind them.
tDataFileWriter::tRun tDataFileWriter::plan(const tBlockCursor& cursor, std::uint64_t now)
{
    tRun run;
    m_slots.clear();
    const std::size_t room = cIndexCapacity - m_indexHead.indexNum;
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
    m_slots.push_back(tIndexSlot{});
    return run;
}

// How many segments of the run lie whole within its first `bytes` bytes.
std::size_t tDataFileWriter::wholeSegments(std::size_t bytes) const
{
    const std::uint64_t end = m_payloadEnd + bytes;
    std::size_t whole = 0;
    while (whole + 1 < m_slots.size() && endOf(m_slots[whole]) <= end)
        ++whole;
    return whole;
}

// Puts the first `segments` records of m_slots into the index so that they appear in order, whole or not at all, even
// if the process dies in between. A reader of an unfinished file stops at the first record without a time, so what
// lies behind the first page goes first, and then the piece that begins with the first record's time. Where a page
// boundary cuts that very time, its record goes last and in two steps: until the second is done its position is wrong.
bool tDataFileWriter::publish(std::size_t segments)
{
    m_slots[segments] = tIndexSlot{};
    const unsigned char* bytes = m_slots.front().data();
    const std::size_t len = (segments + 1) * cIndexSlotSize;
    const std::uint64_t pos = cIndexPos + cIndexSlotSize * m_indexHead.indexNum;
    const std::size_t inFirstPage = std::min<std::size_t>(len, cPageSize - pos % cPageSize);
    if (inFirstPage >= sizeof(tNormalIndexTable::tim))
        return (inFirstPage == len || writeAllAt(bytes + inFirstPage, len - inFirstPage, pos + inFirstPage)) &&
               writeAllAt(bytes, inFirstPage, pos);
    return writeAllAt(bytes + cIndexSlotSize, len - cIndexSlotSize, pos + cIndexSlotSize) &&
           writeAllAt(bytes, inFirstPage, pos) &&
           writeAllAt(bytes + inFirstPage, cIndexSlotSize - inFirstPage, pos + inFirstPage);
}

// `bytes` are those of the segments, back to back.
void tDataFileWriter::accept(const char* bytes, std::size_t segments)
{
    if (segments == 0)
        return;
    m_lastStart = startOf(m_slots[segments - 1]);
    m_payloadEnd = endOf(m_slots[segments - 1]);
    m_indexHead.indexNum += static_cast<std::uint32_t>(segments);
    for (std::size_t i = 0; i < segments; ++i)
    {
        const std::uint32_t len = decodeNormal(m_slots[i]).len;
        m_indexHead.segmentMaxLen = std::max(m_indexHead.segmentMaxLen, len);
        if (m_encoder != nullptr)
            m_encoder->count(bytes, len);
        bytes += len;
    }
}

// The magic is the first write to a file; on a full disk it is tried again before each run.
bool tDataFileWriter::writeMagic()
{
    if (!m_magicWritten)
    {
        unsigned char magic[4];
        le::store(magic, static_cast<std::uint32_t>(cDataFileHead));
        m_magicWritten = writeAllAt(magic, sizeof magic, 0);
    }
    return m_magicWritten;
}

// How many bytes went out before the disk refused.
std::size_t tDataFileWriter::writeAt(const void* data, std::size_t len, std::uint64_t pos)
{
    std::size_t done = 0;
    while (done < len)
    {
        const ssize_t written =
            ::pwrite(m_file.get(), static_cast<const char*>(data) + done, len - done, static_cast<off_t>(pos + done));
        if (written > 0)
            done += static_cast<std::size_t>(written);
        else if (written == 0 || errno != EINTR)
            break;
    }
    if (done < len && !m_failureSaid)
    {
        m_failureSaid = true;
        std::perror(m_path.c_str());
    }
    return done;
}
}  // namespace storage
