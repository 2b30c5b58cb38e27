#include "KestovaStorage/huffmanencode.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>

#include "KestovaStorage/internal/codec/huffmanformat.h"
#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "UdpSocket/consoleprint.h"
#include "common/byteorder.h"

namespace huffman
{
namespace
{
const unsigned char* asBytes(const char* data)
{
    return reinterpret_cast<const unsigned char*>(data);
}

unsigned char* asBytes(char* data)
{
    return reinterpret_cast<unsigned char*>(data);
}

// A buffer whose contents are lost when it grows.
class tScratch
{
public:
    char* get(std::size_t size)
    {
        if (size > m_size)
        {
            m_bytes.reset();
            m_bytes.reset(new char[size]);
            m_size = size;
        }
        return m_bytes.get();
    }
    void release()
    {
        m_bytes.reset();
        m_size = 0;
    }

private:
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_size = 0;
};

constexpr std::size_t cUnitSize = sizeof(tHuffmanDataUnit);
constexpr std::size_t cFileBlock = 256 * 1024;
}  // namespace

class tHuffmanEncodePrivate
{
public:
    void clear();
    bool countFile(std::istream& src);
    void encodeFile(std::istream& src, std::ostream& dst) const;
    tEncodedResult encodeByteArray(const char* src, std::uint32_t len, char* dst, std::uint32_t dstLen);
    std::size_t emitByteArray(const char* src, std::size_t len, char* to) const;

    std::optional<tCodeMode> m_mode;
    tSegmentEncoder m_encoder;
    tScratch m_outSegmentBuff;
    std::mutex m_byteArrayEncodeMutex;
};

void tHuffmanEncodePrivate::clear()
{
    m_encoder.clear();
    m_outSegmentBuff.release();
}

// Counts the whole file; returns false if it is empty.
bool tHuffmanEncodePrivate::countFile(std::istream& src)
{
    const std::unique_ptr<char[]> block(new char[cFileBlock]);
    do
    {
        src.read(block.get(), cFileBlock);
        m_encoder.counter().add(block.get(), static_cast<std::size_t>(src.gcount()));
    } while (src);
    return m_encoder.makeCodes();
}

void tHuffmanEncodePrivate::encodeFile(std::istream& src, std::ostream& dst) const
{
    const tCodeEmitter& emitter = m_encoder.emitter();
    const std::unique_ptr<char[]> block(new char[cFileBlock]);
    const std::unique_ptr<char[]> encoded(new char[emitter.room(cFileBlock)]);
    tPartialUnit partial;
    do
    {
        src.read(block.get(), cFileBlock);
        const auto len = static_cast<std::size_t>(src.gcount());
        const unsigned start = partial.count;
        const std::uint64_t bits = emitter.emit(asBytes(block.get()), len, partial, asBytes(encoded.get()));
        dst.write(encoded.get(), static_cast<std::streamsize>((start + bits) / 64 * cUnitSize));
    } while (src);
    if (partial.count == 0)
        return;
    le::store(encoded.get(), partial.bits);
    dst.write(encoded.get(), cUnitSize);
}

tEncodedResult tHuffmanEncodePrivate::encodeByteArray(const char* src, std::uint32_t len, char* dst,
                                                      std::uint32_t dstLen)
{
    m_encoder.counter().clear();
    m_encoder.counter().add(src, len);
    if (!m_encoder.makeCodes())
        return {{nullptr, 0}, false};
    const tFreqTable& freqs = m_encoder.freqs();
    m_encoder.useCodes(freqs);
    const std::uint64_t bits = m_encoder.codeBits(freqs);
    const std::uint64_t needed = byteArrayHeadSize(freqs.variety) + (bits + 7) / 8;
    if (needed > UINT32_MAX)
        return {{nullptr, 0}, false};
    const bool allocate = dst == nullptr || needed > dstLen;
    std::unique_ptr<char[]> allocated(allocate ? new char[needed] : nullptr);
    char* const out = allocate ? allocated.get() : dst;
    char* const payload = writeByteArrayHead(freqs, bits, out);
    const std::size_t written = static_cast<std::size_t>(payload - out) + emitByteArray(src, len, payload);
    if (written != needed)
        Kestova::console::print("%s: err out len %d != %d\r\n", "EncodeByteArray", static_cast<int>(written),
                                static_cast<int>(needed));
    allocated.release();
    return {{out, static_cast<std::uint32_t>(written)}, allocate};
}

// The emitter overwrites up to 16 bytes behind what it fills, but the caller's array ends with the last code: the last
// bytes, enough that their codes of at least a bit fill more than that, go through a buffer.
std::size_t tHuffmanEncodePrivate::emitByteArray(const char* src, std::size_t len, char* to) const
{
    const tCodeEmitter& emitter = m_encoder.emitter();
    constexpr std::size_t cBuffered = 24 * 8;
    const std::size_t last = std::min(len, cBuffered);
    const std::unique_ptr<char[]> buffer(new char[emitter.room(last)]);
    tPartialUnit partial;
    const std::uint64_t bits = emitter.emit(asBytes(src), len - last, partial, asBytes(len > last ? to : buffer.get()));
    const std::size_t direct = static_cast<std::size_t>(bits / 64) * cUnitSize;
    const std::uint64_t lastBits =
        partial.count + emitter.emit(asBytes(src) + len - last, last, partial, asBytes(buffer.get()));
    const auto buffered = static_cast<std::size_t>(lastBits / 64) * cUnitSize;
    std::memcpy(to + direct, buffer.get(), buffered);
    le::store(buffer.get(), partial.bits);
    std::memcpy(to + direct + buffered, buffer.get(), (partial.count + 7) / 8);
    return direct + buffered + (partial.count + 7) / 8;
}

tHuffmanEncode::tHuffmanEncode() : d(new tHuffmanEncodePrivate) {}

tHuffmanEncode::tHuffmanEncode(tCodeMode mode) : d(new tHuffmanEncodePrivate)
{
    d->m_mode = mode;
}

tHuffmanEncode::~tHuffmanEncode()
{
    delete d;
}

void tHuffmanEncode::SetEncodeMode(tCodeMode mode)
{
    const std::lock_guard<std::mutex> lock(d->m_byteArrayEncodeMutex);
    d->m_mode = mode;
    d->clear();
}

void tHuffmanEncode::PreReadClear()
{
    const std::lock_guard<std::mutex> lock(d->m_byteArrayEncodeMutex);
    d->clear();
}

bool tHuffmanEncode::PreReadSrcFileSegment(const std::string& segment)
{
    return PreReadBytes(segment.data(), segment.size());
}

bool tHuffmanEncode::PreReadBytes(const char* data, size_t len)
{
    if (d->m_mode != eSegmentMode)
        return false;
    d->m_encoder.count(data, len);
    return true;
}

uint32_t tHuffmanEncode::GetPreReadSize()
{
    return static_cast<std::uint32_t>(d->m_encoder.countedBytes());
}

bool tHuffmanEncode::PreReadFinish()
{
    return d->m_mode == eSegmentMode && d->m_encoder.makeCodes();
}

std::string tHuffmanEncode::GetHuffmanHead()
{
    const std::lock_guard<std::mutex> lock(d->m_byteArrayEncodeMutex);
    return d->m_encoder.head();
}

tEncodedSegment tHuffmanEncode::EncodeSrcFileSegment(char* data, uint32_t len)
{
    if (d->m_mode != eSegmentMode || !d->m_encoder.isReady())
        return {};
    char* const buffer = d->m_outSegmentBuff.get(d->m_encoder.room(len));
    const tEncodedBits encoded = d->m_encoder.encode(data, len, buffer);
    return {{buffer, encoded.stored}, {encoded.firstBit, encoded.bits}};
}

tEncodedSegment tHuffmanEncode::SegmentEncodeFinish()
{
    const tEncodedRest rest = d->m_encoder.rest();
    if (!d->m_encoder.isReady())
        return {};
    char* const buffer = d->m_outSegmentBuff.get(sizeof rest.bytes);
    std::memcpy(buffer, rest.bytes, sizeof rest.bytes);
    return {{buffer, rest.size}, {0, 0}};
}

bool tHuffmanEncode::Encode(const char* srcFile, const char* dstFile)
{
    if (d->m_mode != eFileMode)
        return false;
    d->m_encoder.counter().clear();
    std::error_code none;
    std::ifstream src(srcFile, std::ios::binary);
    if (!src || std::filesystem::equivalent(srcFile, dstFile, none) || !d->countFile(src))
        return false;
    const std::string head = GetHuffmanHead();
    src.clear();
    src.seekg(0);
    std::ofstream dst(dstFile, std::ios::binary | std::ios::trunc);
    if (!src || !dst)
        return false;
    dst.write(head.data(), static_cast<std::streamsize>(head.size()));
    d->encodeFile(src, dst);
    return true;
}

tEncodedResult tHuffmanEncode::EncodeByteArray(const char* src, uint32_t len, char* dst, uint32_t dstLen)
{
    if (d->m_mode != eByteArrayMode)
        return {{nullptr, 0}, false};
    const std::lock_guard<std::mutex> lock(d->m_byteArrayEncodeMutex);
    return d->encodeByteArray(src, len, dst, dstLen);
}

void tHuffmanEncode::PrintBuffBinary(const char* buf, int len)
{
    if (len < 1)
        return;
    std::string line;
    line.reserve(static_cast<std::size_t>(len) * 9);
    for (int i = 0; i < len; ++i)
    {
        for (int bit = 0; bit < 8; ++bit)
            line += (static_cast<unsigned char>(buf[i]) >> bit & 1) != 0 ? '1' : '0';
        line += ' ';
    }
    Kestova::console::print("%s\r\n", line.c_str());
}
}  // namespace huffman
