#include "KestovaStorage/internal/datafile/segmentreader.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace storage
{
namespace
{
constexpr std::size_t cMinBufferSize = 64 * 1024;
constexpr std::uint64_t cMostAhead = 4 << 20;
constexpr std::uint64_t cLongSegment = 4096;  // copying it takes longer than a system call
}  // namespace

std::optional<std::string_view> tSegmentReader::read(tDataFileReader& file, std::size_t record)
{
    return read(file, file.record(record));
}

void tSegmentReader::readAhead(tDataFileReader& file, const tSegmentRecord& first, const tSegmentRecord& last)
{
    const std::uint64_t begin = first.firstByte, end = last.end();
    if (begin < end && end - begin <= cMostAhead)
        load(file, begin, static_cast<std::size_t>(end - begin), static_cast<std::size_t>(end - begin));
}

std::optional<std::string_view> tSegmentReader::read(tDataFileReader& file, const tSegmentRecord& record)
try
{
    if (file.form().isCompressed())
        return decode(file, record);
    const auto len = static_cast<std::size_t>(record.bytes());
    const char* const bytes = bytesAt(file, record.firstByte, len);
    if (bytes == nullptr)
        return std::nullopt;
    return std::string_view(bytes, len);
}
catch (const std::bad_alloc&)
{
    return std::nullopt;
}

bool tSegmentReader::readPart(tDataFileReader& file, const tSegmentRecord& record, std::size_t offset, std::size_t len,
                              char* to)
{
    if (!file.form().isCompressed() && record.bytes() >= cLongSegment)
        return offset <= record.bytes() && len <= record.bytes() - offset &&
               copyPart(file, record.firstByte + offset, len, to);
    const auto segment = read(file, record);
    if (!segment || offset > segment->size() || len > segment->size() - offset)
        return false;
    std::memcpy(to, segment->data() + offset, len);
    return true;
}

// The end of a segment is followed by the beginning of the next one: one read is enough for both.
bool tSegmentReader::copyPart(tDataFileReader& file, std::uint64_t pos, std::size_t len, char* to)
{
    if (len > sizeof m_part.bytes)
        return file.read(pos, len, to);
    if (&file != m_part.file || pos < m_part.pos || pos > m_part.end || len > m_part.end - pos)
    {
        const std::size_t got = file.readUpTo(pos, sizeof m_part.bytes, m_part.bytes);
        m_part.file = &file;
        m_part.pos = pos;
        m_part.end = pos + got;
        if (got < len)
            return false;
    }
    std::memcpy(to, m_part.bytes + (pos - m_part.pos), len);
    return true;
}

tSegmentReader::tRun tSegmentReader::readRun(tDataFileReader& file, std::size_t first, std::size_t count)
try
{
    tRun run{nullptr, 0, 0};
    const tSegmentRecord record = file.record(first);
    if (record.bytes() >= cLongSegment || bytesAt(file, record.firstByte, record.bytes()) == nullptr)
        return run;
    run = {m_read.need(0), m_pos, 1};
    for (; run.records < count; ++run.records)
    {
        const tSegmentRecord next = file.record(first + run.records);
        if (next.firstByte < m_pos || next.end() > m_end || next.bytes() >= cLongSegment)
            break;
        m_readFrom = next.firstByte;
    }
    return run;
}
catch (const std::bad_alloc&)
{
    return {nullptr, 0, 0};
}

std::optional<std::string_view> tSegmentReader::decode(tDataFileReader& file, const tSegmentRecord& record)
{
    if (record.bits == 0)
        return std::string_view();  // a segment all of whose bytes have a code of no bits
    const iSegmentDecoder* const decoder = file.decoder();
    const std::size_t room = decoder != nullptr ? decoder->room(record.bits) : 0;
    if (room == 0)
        return std::nullopt;
    const char* const codes = bytesAt(file, record.firstByte, static_cast<std::size_t>(record.bytes()));
    if (codes == nullptr)
        return std::nullopt;
    char* const out = m_decoded.need(room);
    return std::string_view(out, decoder->decode(codes, record.firstBit, record.bits, out, m_decoded.size()));
}

bool tSegmentReader::readSeveral(tDataFileReader& file, std::span<const tSegmentRecord> records,
                                 std::span<std::string_view> segments)
try
{
    const std::uint64_t begin = records.front().firstByte, end = records.back().end();
    for (const tSegmentRecord& record : records)
        if (record.firstByte < begin || record.end() > end)
            return false;
    const char* const bytes = bytesAt(file, begin, static_cast<std::size_t>(end - begin));
    if (bytes == nullptr)
        return false;
    if (file.form().isCompressed())
        return decodeSeveral(file, bytes, records, segments);
    for (std::size_t i = 0; i < records.size(); ++i)
        segments[i] = {bytes + (records[i].firstByte - begin), static_cast<std::size_t>(records[i].bytes())};
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

// `bytes` begin with those of the first record.
bool tSegmentReader::decodeSeveral(tDataFileReader& file, const char* bytes, std::span<const tSegmentRecord> records,
                                   std::span<std::string_view> segments)
{
    const iSegmentDecoder* const decoder = file.decoder();
    std::size_t room = 0;
    m_codes.clear();
    for (const tSegmentRecord& record : records)
    {
        const std::size_t own = decoder != nullptr ? decoder->room(record.bits) : 0;
        if (own == 0)
            return false;
        const std::uint64_t firstBit = (record.firstByte - records.front().firstByte) * 8 + record.firstBit;
        m_codes.push_back({firstBit, record.bits, nullptr, own});
        room += own;
    }
    char* out = m_decoded.need(room);
    for (tSegmentCodes& codes : m_codes)
        codes.out = std::exchange(out, out + codes.outSize);
    decoder->decodeSeveral(bytes, m_codes);
    for (std::size_t i = 0; i < records.size(); ++i)
        segments[i] = {m_codes[i].out, m_codes[i].decoded};
    return true;
}

const char* tSegmentReader::bytesAt(tDataFileReader& file, std::uint64_t pos, std::size_t len)
{
    if (&file != m_file || pos < m_pos || pos > m_end || len > m_end - pos)
    {
        const std::uint64_t left = file.size() > pos ? file.size() - pos : 0;
        const bool readsOn = &file == m_file && pos >= m_readFrom && pos <= m_end;
        const std::uint64_t ahead = readsOn ? std::min<std::uint64_t>(m_windowSize, left) : 0;
        if (!load(file, pos, std::max(len, static_cast<std::size_t>(ahead)), len))
            return nullptr;
    }
    m_readFrom = pos;
    return m_read.need(0) + (pos - m_pos);
}

// Reads up to `size` bytes; returns false if the file does not hold the `needed` ones.
bool tSegmentReader::load(tDataFileReader& file, std::uint64_t pos, std::size_t size, std::size_t needed)
{
    m_file = nullptr;
    const std::size_t got = file.readUpTo(pos, size, m_read.need(size));
    if (got < needed)
        return false;
    m_file = &file;
    m_pos = pos;
    m_end = pos + got;
    return true;
}

char* tSegmentReader::tBuffer::need(std::size_t size)
{
    if (size > m_size || !m_bytes)
    {
        m_size = 0;
        m_bytes.reset();
        const std::size_t grown = std::max(size, cMinBufferSize);
        m_bytes.reset(new char[grown]);
        m_size = grown;
    }
    return m_bytes.get();
}
}  // namespace storage
