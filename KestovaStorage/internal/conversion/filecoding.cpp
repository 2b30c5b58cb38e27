#include "KestovaStorage/internal/conversion/filecoding.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/datafile/segmentreader.h"

namespace storage
{
namespace
{
constexpr std::size_t cWindow = 1 << 20;
constexpr std::uint64_t cProgressStep = 1 << 20;
constexpr char cStopped[] = "interrupted";
constexpr char cUnreadable[] = "a segment cannot be read";

bool fail(std::string& error, const char* reason)
{
    error = reason;
    return false;
}

// Calls goOn once in a while.
class tProgress
{
public:
    explicit tProgress(const tGoOn& goOn) : m_goOn(goOn) {}
    bool add(std::uint64_t bytes)
    {
        m_done += bytes;
        if (m_done - m_told < cProgressStep)
            return true;
        m_told = m_done;
        return !m_goOn || m_goOn(m_done);
    }

private:
    const tGoOn& m_goOn;
    std::uint64_t m_done = 0, m_told = 0;
};

// Bytes that follow each other, gathered for large writes.
class tStream
{
public:
    tStream(tOutputFile& out, std::uint64_t pos) : m_out(out), m_pos(pos) {}

    std::uint64_t position() const { return m_pos + m_used; }
    bool isFull(std::size_t size) const { return m_buffer.size() - m_used < size; }  // for so many more
    // Room for `size` bytes behind the others: of the window, or what else it takes.
    char* room(std::size_t size)
    {
        m_buffer.resize(std::max({m_buffer.size(), m_used + size, cWindow}));
        return m_buffer.data() + m_used;
    }
    void used(std::size_t size) { m_used += size; }
    void append(std::string_view bytes) { used(bytes.copy(room(bytes.size()), bytes.size())); }
    bool flush()
    {
        if (!m_out.writeAt(m_buffer.data(), m_used, m_pos))
            return false;
        m_pos += m_used;
        m_used = 0;
        return true;
    }

private:
    tOutputFile& m_out;
    std::uint64_t m_pos;
    std::vector<char> m_buffer;
    std::size_t m_used = 0;
};

bool writeIndexHead(tOutputFile& out, const tIndexHead& head)
{
    unsigned char bytes[sizeof(tIndexHead)];
    le::store(bytes + offsetof(tIndexHead, indexNum), head.indexNum);
    le::store(bytes + offsetof(tIndexHead, segmentMaxLen), head.segmentMaxLen);
    return out.writeAt(bytes, sizeof bytes, cIndexHeadPos);
}

bool writeFailed(const tOutputFile& out, std::string& error)
{
    error = "cannot be written: " + std::string(std::strerror(out.error()));
    return false;
}

// What all data files on their way out have in common: payload and index, written together.
class tDataOutput
{
public:
    tDataOutput(tOutputFile& out, const tStored& stored) : m_out(out), m_stored(stored) {}

    // Room for a segment; null where what was in the way could not be written.
    char* room(std::size_t size)
    {
        if (m_payload.isFull(size) && !flush())
            return nullptr;
        return m_payload.room(size);
    }
    std::uint64_t position() const { return m_payload.position(); }
    // `size` bytes of that room are used, and this is the record of the segment. `len`: as the head counts it.
    template <typename tRecord>
    void add(const tRecord& record, std::uint32_t len, std::size_t size)
    {
        m_payload.used(size);
        const tIndexSlot slot = encode(record);
        m_index.append({reinterpret_cast<const char*>(slot.data()), slot.size()});
        ++m_head.indexNum;
        m_head.segmentMaxLen = std::max(m_head.segmentMaxLen, len);
    }
    // `rest`: bytes of the last segments that come only now.
    bool finish(std::string_view rest)
    {
        m_payload.append(rest);
        return m_payload.flush() && m_index.flush() && writeIndexHead(m_out, m_head) && told(m_head.indexNum);
    }

private:
    // The last bits of a segment may come with the next one: what was there at the last flush is whole by this one.
    bool flush() { return m_payload.flush() && m_index.flush() && told(std::exchange(m_flushed, m_head.indexNum)); }
    bool told(std::uint32_t records)
    {
        if (m_stored)
            m_stored(records);
        return true;
    }

    tOutputFile& m_out;
    const tStored& m_stored;
    tStream m_payload{m_out, cPayloadPos};
    tStream m_index{m_out, cIndexPos};
    tIndexHead m_head{};
    std::uint32_t m_flushed = 0;  // records, up to the last flush
};

bool appendEncoded(tDataOutput& out, huffman::tSegmentEncoder& encoder, std::uint64_t time, std::string_view segment)
{
    const auto len = static_cast<std::uint32_t>(segment.size());
    const std::size_t size = encoder.room(len);
    char* const to = out.room(size);
    if (to == nullptr)
        return false;
    const huffman::tEncodedBits encoded = encoder.encode(segment.data(), len, to);
    const auto firstBit = static_cast<std::uint8_t>(encoded.firstBit % 8);
    out.add(tEncodedIndexTable{time, out.position() + encoded.firstBit / 8, encoded.bits, firstBit}, encoded.bits,
            encoded.stored);
    return true;
}

bool appendPlain(tDataOutput& out, std::uint64_t time, std::string_view segment)
{
    char* const to = out.room(segment.size());
    if (to == nullptr)
        return false;
    const auto len = static_cast<std::uint32_t>(segment.copy(to, segment.size()));
    out.add(tNormalIndexTable{time, out.position(), len}, len, len);
    return true;
}

// Counts the segments of pieces.
class tCounting
{
public:
    tCounting(tDataFileReader& plain, huffman::tSegmentEncoder& encoder) : m_plain(plain), m_encoder(encoder) {}

    tSharedPieces::tPiece piece()
    {
        return [this](auto first, auto last, auto& error) { return count(first, last, error); };
    }

private:
    std::optional<std::uint64_t> count(std::size_t first, std::size_t last, std::string& error)
    {
        m_segments.readAhead(m_plain, m_plain.index().subspan(first, last - first));
        std::uint64_t bytes = 0;
        for (std::size_t i = first; i < last; ++i)
        {
            const auto segment = m_segments.read(m_plain, i);
            if (!segment)
            {
                error = cUnreadable;
                return std::nullopt;
            }
            m_encoder.count(segment->data(), segment->size());
            bytes += segment->size();
        }
        return bytes;
    }

    tDataFileReader& m_plain;
    huffman::tSegmentEncoder& m_encoder;
    tSegmentReader m_segments;
};

// Bits of a segment are counted in 32 bits.
bool isStorable(const huffman::tSegmentEncoder& encoder, std::size_t len)
{
    return encoder.room(len) < UINT32_MAX / 8;
}
}  // namespace

bool countSegments(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, const tGoOn& goOn, std::string& error)
{
    huffman::tSegmentEncoder aside;
    tCounting here(plain, encoder), there(plain, aside);
    tSharedPieces work(plain, there.piece());
    work.available(plain.index().size());
    if (!work.finish(here.piece(), goOn, error))
        return false;
    encoder.count(aside);
    return true;
}

bool encodeFile(tDataFileReader& plain, huffman::tSegmentEncoder& encoder, tOutputFile& out, const tGoOn& goOn,
                const tStored& stored, std::string& error)
try
{
    if (!encoder.makeCodes() || !encoder.isRestorable())
        return fail(error, "its bytes have no code that could be read back");
    const std::string head = encoder.head();
    if (!out.writeAt(head.data(), head.size(), 0))
        return writeFailed(out, error);
    tSegmentReader segments(cWindow);
    tProgress progress(goOn);
    tDataOutput encoded(out, stored);
    for (std::size_t i = 0; i < plain.index().size(); ++i)
    {
        const auto segment = segments.read(plain, i);
        if (!segment)
            return fail(error, cUnreadable);
        if (!isStorable(encoder, segment->size()))
            return fail(error, "a segment is too long for a compressed file");
        if (!appendEncoded(encoded, encoder, timeOf(plain.index()[i]), *segment))
            return writeFailed(out, error);
        if (!progress.add(segment->size()))
            return fail(error, cStopped);
    }
    const huffman::tEncodedRest rest = encoder.rest();
    return encoded.finish({rest.bytes, rest.size}) || writeFailed(out, error);
}
catch (const std::out_of_range&)
{
    return fail(error, "it has changed since its bytes were counted");
}

bool decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tGoOn& goOn,
                const tStored& stored, std::string& error)
{
    unsigned char magic[4];
    le::store(magic, static_cast<std::uint32_t>(cDataFileHead));
    if (!out.writeAt(magic, sizeof magic, 0))
        return writeFailed(out, error);
    tSegmentReader segments(cWindow);
    tProgress progress(goOn);
    tDataOutput plain(out, stored);
    for (std::size_t i = 0; i < encoded.index().size(); ++i)
    {
        const auto segment = segments.read(encoded, i);
        if (!segment)
            return fail(error, cUnreadable);
        if (!appendPlain(plain, timeOf(encoded.index()[i]), *segment))
            return writeFailed(out, error);
        if (!progress.add(segment->size()))
            return fail(error, cStopped);
    }
    if (plain.position() != cPayloadPos + bytes)
        return fail(error, "its codes do not give as many bytes as its head says");
    return plain.finish({}) || writeFailed(out, error);
}

std::string encodedName(const std::string& plainPath, const std::string& suffix)
{
    const std::size_t name = plainPath.rfind('/') == std::string::npos ? 0 : plainPath.rfind('/') + 1;
    return plainPath.substr(0, suffix.empty() ? std::string::npos : plainPath.find(suffix, name)) + ".tar" + suffix;
}
}  // namespace storage
