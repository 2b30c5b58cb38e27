#include "KestovaStorage/internal/datafile/segmentreader.h"

#include <algorithm>
#include <new>

#include "KestovaStorage/internal/codec/segmentdecoder.h"

namespace storage
{
namespace
{
constexpr std::size_t cMinBufferSize = 64 * 1024;
constexpr std::uint64_t cMostAhead = 4 << 20;

struct tPlace
{
    std::uint64_t begin, end;
};

// Where the bytes of a record are.
tPlace placeOf(tFileHeadSymbol symbol, const tIndexSlot& slot)
{
    if (symbol == cHuffmanFileHead)
    {
        const tEncodedIndexTable record = decodeEncoded(slot);
        return {record.firstBytePos,
                record.firstBytePos + (std::uint64_t{record.firstBitPos} + record.huffmanBits + 7) / 8};
    }
    const tNormalIndexTable record = decodeNormal(slot);
    return {record.pos, record.pos + record.len};
}
}  // namespace

std::optional<std::string_view> tSegmentReader::read(tDataFileReader& file, std::size_t record)
{
    return read(file, file.index()[record]);
}

void tSegmentReader::readAhead(tDataFileReader& file, std::span<const tIndexSlot> slots)
{
    const std::uint64_t begin = placeOf(file.symbol(), slots.front()).begin;
    const std::uint64_t end = placeOf(file.symbol(), slots.back()).end;
    if (begin < end && end - begin <= cMostAhead)
        load(file, begin, static_cast<std::size_t>(end - begin));
}

std::optional<std::string_view> tSegmentReader::read(tDataFileReader& file, const tIndexSlot& slot)
try
{
    if (file.symbol() == cHuffmanFileHead)
        return decode(file, decodeEncoded(slot));
    const tNormalIndexTable place = decodeNormal(slot);
    const char* const bytes = bytesAt(file, place.pos, place.len);
    if (bytes == nullptr)
        return std::nullopt;
    return std::string_view(bytes, place.len);
}
catch (const std::bad_alloc&)
{
    return std::nullopt;
}

std::optional<std::string_view> tSegmentReader::decode(tDataFileReader& file, const tEncodedIndexTable& record)
{
    if (record.huffmanBits == 0)
        return std::string_view();  // a segment all of whose bytes have a code of no bits
    const huffman::tSegmentDecoder* const decoder = file.decoder();
    if (decoder == nullptr || record.huffmanBits > decoder->countedBits())
        return std::nullopt;
    const std::uint64_t lastBit = std::uint64_t{record.firstBitPos} + record.huffmanBits;
    const char* const codes = bytesAt(file, record.firstBytePos, static_cast<std::size_t>((lastBit + 7) / 8));
    if (codes == nullptr)
        return std::nullopt;
    const std::size_t limit = decoder->roomFor(record.huffmanBits);
    char* const out = m_decoded.need(limit);
    return std::string_view(out, decoder->decode(codes, record.firstBitPos, record.huffmanBits, out, m_decoded.size()));
}

const char* tSegmentReader::bytesAt(tDataFileReader& file, std::uint64_t pos, std::size_t len)
{
    if (&file != m_file || pos < m_pos || pos + len > m_end)
    {
        const std::uint64_t left = file.size() > pos ? file.size() - pos : 0;
        const bool readsOn = &file == m_file && pos == m_end;
        const std::uint64_t ahead = readsOn ? std::min<std::uint64_t>(m_windowSize, left) : 0;
        if (!load(file, pos, std::max(len, static_cast<std::size_t>(ahead))))
            return nullptr;
    }
    return m_read.need(0) + (pos - m_pos);
}

bool tSegmentReader::load(tDataFileReader& file, std::uint64_t pos, std::size_t size)
{
    m_file = nullptr;
    if (!file.read(pos, size, m_read.need(size)))
        return false;
    m_file = &file;
    m_pos = pos;
    m_end = pos + size;
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
