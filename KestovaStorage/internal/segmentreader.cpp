#include "KestovaStorage/internal/segmentreader.h"

#include <algorithm>
#include <new>

#include "KestovaStorage/huffmandecode.h"

namespace storage
{
namespace
{
constexpr std::size_t cMinBufferSize = 64 * 1024;
}

std::optional<std::string_view> tSegmentReader::read(tDataFileReader& file, std::size_t record)
try
{
    const tIndexSlot& slot = file.index()[record];
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
    const huffman::tHuffmanDecode* const decoder = file.decoder();
    if (decoder == nullptr || record.huffmanBits > file.countedBits())
        return std::nullopt;
    const std::uint64_t lastBit = std::uint64_t{record.firstBitPos} + record.huffmanBits;
    const char* const codes = bytesAt(file, record.firstBytePos, static_cast<std::size_t>((lastBit + 7) / 8));
    if (codes == nullptr)
        return std::nullopt;
    const std::size_t limit = decoder->DecodedSizeLimit(record.huffmanBits);
    char* const out = m_decoded.need(limit);
    return std::string_view(
        out, decoder->DecodeSegment(codes, record.firstBitPos, record.huffmanBits, out, m_decoded.size()));
}

const char* tSegmentReader::bytesAt(tDataFileReader& file, std::uint64_t pos, std::size_t len)
{
    if (&file != m_file || pos < m_pos || pos + len > m_end)
    {
        const std::uint64_t left = file.size() > pos ? file.size() - pos : 0;
        const bool readsOn = &file == m_file && pos == m_end;
        const std::uint64_t ahead = readsOn ? std::min<std::uint64_t>(m_windowSize, left) : 0;
        const std::size_t size = std::max(len, static_cast<std::size_t>(ahead));
        m_file = nullptr;
        if (!file.read(pos, size, m_read.need(size)))
            return nullptr;
        m_file = &file;
        m_pos = pos;
        m_end = pos + size;
    }
    return m_read.need(0) + (pos - m_pos);
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
