#include "KestovaStorage/internal/fileconversion.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "KestovaStorage/internal/segmentreader.h"

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
    // Room for `size` bytes; null where what was in the way could not be written.
    char* room(std::size_t size)
    {
        if (m_buffer.size() - m_used < size && !flush())
            return nullptr;
        m_buffer.resize(std::max({m_buffer.size(), size, cWindow}));
        return m_buffer.data() + m_used;
    }
    void used(std::size_t size) { m_used += size; }
    bool append(const void* data, std::size_t size)
    {
        char* const to = room(size);
        if (to == nullptr)
            return false;
        std::memcpy(to, data, size);
        used(size);
        return true;
    }
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

// One Huffman file on its way out.
class tEncodedOutput
{
public:
    tEncodedOutput(huffman::tHuffmanEncode& encoder, tOutputFile& out) : m_encoder(encoder), m_out(out) {}

    bool append(std::uint64_t time, std::string_view segment)
    {
        const auto len = static_cast<std::uint32_t>(segment.size());
        const std::size_t size = m_encoder.SegmentBufferSize(len);
        char* const to = m_payload.room(size);
        if (to == nullptr)
            return false;
        const huffman::tEncodedSegment encoded = m_encoder.EncodeSrcFileSegment(segment.data(), len, to, size);
        const auto [startBit, bits] = encoded.second;
        const tEncodedIndexTable record{time, m_payload.position() + startBit / 8, bits,
                                        static_cast<std::uint8_t>(startBit % 8)};
        m_payload.used(encoded.first.second);
        m_head.segmentMaxLen = std::max(m_head.segmentMaxLen, bits);
        ++m_head.indexNum;
        const tIndexSlot slot = encode(record);
        return m_index.append(slot.data(), slot.size());
    }
    bool finish()
    {
        const huffman::tEncodedSegment rest = m_encoder.SegmentEncodeFinish();
        return m_payload.append(rest.first.first, rest.first.second) && m_payload.flush() && m_index.flush() &&
               writeIndexHead(m_out, m_head);
    }

private:
    huffman::tHuffmanEncode& m_encoder;
    tOutputFile& m_out;
    tStream m_payload{m_out, cPayloadPos};
    tStream m_index{m_out, cIndexPos};
    tIndexHead m_head{};
};

// Bits of a segment are counted in 32 bits.
bool isStorable(const huffman::tHuffmanEncode& encoder, std::size_t len)
{
    return encoder.SegmentBufferSize(static_cast<std::uint32_t>(len)) < UINT32_MAX / 8;
}
}  // namespace

bool countSegments(tDataFileReader& plain, huffman::tHuffmanEncode& encoder, const tGoOn& goOn, std::string& error)
{
    tSegmentReader segments(cWindow);
    tProgress progress(goOn);
    for (std::size_t i = 0; i < plain.index().size(); ++i)
    {
        const auto segment = segments.read(plain, i);
        if (!segment)
            return fail(error, cUnreadable);
        encoder.PreReadSrcFileSegment(segment->data(), segment->size());
        if (!progress.add(segment->size()))
            return fail(error, cStopped);
    }
    return true;
}

bool encodeFile(tDataFileReader& plain, huffman::tHuffmanEncode& encoder, tOutputFile& out, const tGoOn& goOn,
                std::string& error)
try
{
    if (!encoder.PreReadFinish() || !encoder.IsRestorable())
        return fail(error, "its bytes have no code that could be read back");
    const std::string head = encoder.GetHuffmanHead();
    if (!out.writeAt(head.data(), head.size(), 0))
        return writeFailed(out, error);
    tSegmentReader segments(cWindow);
    tProgress progress(goOn);
    tEncodedOutput encoded(encoder, out);
    for (std::size_t i = 0; i < plain.index().size(); ++i)
    {
        const auto segment = segments.read(plain, i);
        if (!segment)
            return fail(error, cUnreadable);
        if (!isStorable(encoder, segment->size()))
            return fail(error, "a segment is too long for a compressed file");
        if (!encoded.append(timeOf(plain.index()[i]), *segment))
            return writeFailed(out, error);
        if (!progress.add(segment->size()))
            return fail(error, cStopped);
    }
    return encoded.finish() || writeFailed(out, error);
}
catch (const std::out_of_range&)
{
    return fail(error, "it has changed since its bytes were counted");
}

bool decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tGoOn& goOn, std::string& error)
{
    tSegmentReader segments(cWindow);
    tProgress progress(goOn);
    tStream payload(out, cPayloadPos), index(out, cIndexPos);
    tIndexHead head{};
    for (std::size_t i = 0; i < encoded.index().size(); ++i)
    {
        const auto segment = segments.read(encoded, i);
        if (!segment)
            return fail(error, cUnreadable);
        const auto len = static_cast<std::uint32_t>(segment->size());
        const tIndexSlot slot = encode(tNormalIndexTable{timeOf(encoded.index()[i]), payload.position(), len});
        if (!payload.append(segment->data(), len) || !index.append(slot.data(), slot.size()))
            return writeFailed(out, error);
        ++head.indexNum;
        head.segmentMaxLen = std::max(head.segmentMaxLen, len);
        if (!progress.add(len))
            return fail(error, cStopped);
    }
    if (payload.position() != cPayloadPos + bytes)
        return fail(error, "its codes do not give as many bytes as its head says");
    unsigned char magic[4];
    le::store(magic, static_cast<std::uint32_t>(cDataFileHead));
    return (out.writeAt(magic, sizeof magic, 0) && payload.flush() && index.flush() && writeIndexHead(out, head)) ||
           writeFailed(out, error);
}

bool sameSegments(tDataFileReader& a, tDataFileReader& b, const tGoOn& goOn, std::string& error)
{
    if (a.index().size() != b.index().size())
        return fail(error, "the result has another number of records");
    tSegmentReader fromA(cWindow), fromB(cWindow);
    tProgress progress(goOn);
    for (std::size_t i = 0; i < a.index().size(); ++i)
    {
        const auto segment = fromA.read(a, i);
        if (!segment)
            return fail(error, cUnreadable);
        const auto again = fromB.read(b, i);
        if (again != segment || timeOf(a.index()[i]) != timeOf(b.index()[i]))
            return fail(error, "the result does not give a record back");
        if (!progress.add(segment->size()))
            return fail(error, cStopped);
    }
    return true;
}

std::string encodedName(const std::string& plainPath, const std::string& suffix)
{
    const std::size_t name = plainPath.rfind('/') == std::string::npos ? 0 : plainPath.rfind('/') + 1;
    return plainPath.substr(0, suffix.empty() ? std::string::npos : plainPath.find(suffix, name)) + ".tar" + suffix;
}
}  // namespace storage
