#include "KestovaStorage/huffmanencode.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <vector>

#include "KestovaStorage/internal/codec/bytecounter.h"
#include "KestovaStorage/internal/codec/codeemitter.h"
#include "KestovaStorage/internal/codec/huffmanformat.h"
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

// Bytes whose contents do not outlive the next demand for more.
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
    bool makeCodes();
    std::uint64_t codeBits(const tFreqTable& freqs) const;
    std::string fileHead();
    tEncodedSegment encodeSegment(const char* data, std::uint32_t len, char* buffer);
    bool countFile(std::istream& src);
    void encodeFile(std::istream& src, std::ostream& dst);
    tEncodedResult encodeByteArray(const char* src, std::uint32_t len, char* dst, std::uint32_t dstLen);
    std::size_t emitByteArray(const char* src, std::size_t len, char* to);

    std::optional<tCodeMode> m_mode;
    tByteCounter m_counter;
    tFreqTable m_freqs;  // m_counter's when the codes were made
    tCodeTable m_codes;
    bool m_restorable = false;
    tCodeEmitter m_emitter;
    std::uint64_t m_preReadSize = 0;
    std::uint32_t m_preReadSegmentsCnt = 0;
    tPartialUnit m_partial;   // m_segmentWriteCode and m_segmentWriteIndex
    bool m_headMade = false;  // segments may be encoded
    tScratch m_outSegmentBuff;
    std::uint64_t m_encodedSegmentsBits = 0;
    std::uint32_t m_encodedSegmentsCnt = 0;
    std::mutex m_byteArrayEncodeMutex;
};

void tHuffmanEncodePrivate::clear()
{
    m_counter.clear();
    m_codes.clear();
    m_restorable = false;
    m_preReadSize = 0;
    m_preReadSegmentsCnt = 0;
    m_partial = {};
    m_headMade = false;
    m_outSegmentBuff.release();
    m_encodedSegmentsBits = 0;
    m_encodedSegmentsCnt = 0;
}

// False where nothing was counted.
bool tHuffmanEncodePrivate::makeCodes()
{
    m_freqs = tFreqTable::of(m_counter.counts());
    if (m_freqs.variety == 0)
        return false;
    const tCodeTree tree(m_freqs);
    m_codes.set(tree);
    m_restorable = tree.hasCodes() && tree.longest() <= cLongestFaithfulCode &&
                   std::all_of(m_freqs.counts.begin(), m_freqs.counts.end(), [](auto n) { return n <= UINT32_MAX; });
    return true;
}

std::uint64_t tHuffmanEncodePrivate::codeBits(const tFreqTable& freqs) const
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < freqs.variety; ++i)
    {
        const std::uint8_t value = freqs.values[i];
        if (!m_codes.present[value])
            throw std::out_of_range("map::at");
        bits += freqs.counts[value] * m_codes.codes[value].length;
    }
    return bits;
}

std::string tHuffmanEncodePrivate::fileHead()
{
    const tFreqTable freqs = tFreqTable::of(m_counter.counts());  // codes may be those of fewer bytes
    if (freqs.variety == 0)
        return {};
    const std::uint64_t bytes = std::accumulate(freqs.counts.begin(), freqs.counts.end(), std::uint64_t{0});
    const std::uint64_t bits = codeBits(freqs);
    std::string head = fileHeadBytes(freqs, bits);
    std::printf("==> Huffman PreRead Segments %d Compression Ratio %.3lf\r\n", static_cast<int>(m_preReadSegmentsCnt),
                static_cast<double>(bits) / (static_cast<double>(bytes) * 8));
    m_preReadSegmentsCnt = 0;
    m_emitter.set(m_codes, freqs.counts);
    m_outSegmentBuff.get(cUnitSize);
    m_headMade = true;
    return head;
}

tEncodedSegment tHuffmanEncodePrivate::encodeSegment(const char* data, std::uint32_t len, char* buffer)
{
    const std::uint32_t start = m_partial.count;
    const std::uint64_t bits = m_emitter.emit(asBytes(data), len, m_partial, asBytes(buffer));
    m_encodedSegmentsBits += bits;
    ++m_encodedSegmentsCnt;
    const std::uint64_t stored = (start + bits) / 64 * cUnitSize;
    return {{buffer, static_cast<std::uint32_t>(stored)}, {start, static_cast<std::uint32_t>(bits)}};
}

// Counts the whole file; false where there is nothing in it.
bool tHuffmanEncodePrivate::countFile(std::istream& src)
{
    const std::unique_ptr<char[]> block(new char[cFileBlock]);
    do
    {
        src.read(block.get(), cFileBlock);
        m_counter.add(block.get(), static_cast<std::size_t>(src.gcount()));
    } while (src);
    return makeCodes();
}

void tHuffmanEncodePrivate::encodeFile(std::istream& src, std::ostream& dst)
{
    const std::unique_ptr<char[]> block(new char[cFileBlock]);
    const std::unique_ptr<char[]> encoded(new char[m_emitter.room(cFileBlock)]);
    tPartialUnit partial;
    do
    {
        src.read(block.get(), cFileBlock);
        const auto len = static_cast<std::size_t>(src.gcount());
        const unsigned start = partial.count;
        const std::uint64_t bits = m_emitter.emit(asBytes(block.get()), len, partial, asBytes(encoded.get()));
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
    m_counter.clear();
    m_counter.add(src, len);
    if (!makeCodes())
        return {{nullptr, 0}, false};
    m_emitter.set(m_codes, m_freqs.counts);
    const std::uint64_t bits = codeBits(m_freqs);
    const std::uint64_t needed = byteArrayHeadSize(m_freqs.variety) + (bits + 7) / 8;
    if (needed > UINT32_MAX)
        return {{nullptr, 0}, false};
    const bool allocate = dst == nullptr || needed > dstLen;
    std::unique_ptr<char[]> allocated(allocate ? new char[needed] : nullptr);
    char* const out = allocate ? allocated.get() : dst;
    char* const payload = writeByteArrayHead(m_freqs, bits, out);
    const std::size_t written = static_cast<std::size_t>(payload - out) + emitByteArray(src, len, payload);
    if (written != needed)
        std::printf("%s: err out len %d != %d\r\n", "EncodeByteArray", static_cast<int>(written),
                    static_cast<int>(needed));
    allocated.release();
    return {{out, static_cast<std::uint32_t>(written)}, allocate};
}

// Nothing behind the last byte may be touched, and the emitter writes up to 16 bytes more than it fills: so many bytes
// at the end that their codes, of a bit at least, fill more than that go through a buffer.
std::size_t tHuffmanEncodePrivate::emitByteArray(const char* src, std::size_t len, char* to)
{
    constexpr std::size_t cBuffered = 24 * 8;
    const std::size_t last = std::min(len, cBuffered);
    const std::unique_ptr<char[]> buffer(new char[m_emitter.room(last)]);
    tPartialUnit partial;
    const std::uint64_t bits =
        m_emitter.emit(asBytes(src), len - last, partial, asBytes(len > last ? to : buffer.get()));
    const std::size_t direct = static_cast<std::size_t>(bits / 64) * cUnitSize;
    const std::uint64_t lastBits =
        partial.count + m_emitter.emit(asBytes(src) + len - last, last, partial, asBytes(buffer.get()));
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
    return PreReadSrcFileSegment(segment.data(), segment.size());
}

bool tHuffmanEncode::PreReadSrcFileSegment(const char* data, size_t len)
{
    if (d->m_mode != eSegmentMode)
        return false;
    d->m_counter.add(data, len);
    d->m_preReadSize += len;
    ++d->m_preReadSegmentsCnt;
    return true;
}

bool tHuffmanEncode::PreReadAdd(tHuffmanEncode& other)
{
    if (d->m_mode != eSegmentMode || other.d->m_mode != eSegmentMode)
        return false;
    d->m_counter.add(other.d->m_counter.counts());
    d->m_preReadSize += other.d->m_preReadSize;
    d->m_preReadSegmentsCnt += other.d->m_preReadSegmentsCnt;
    return true;
}

uint32_t tHuffmanEncode::GetPreReadSize() const
{
    return static_cast<std::uint32_t>(d->m_preReadSize);
}

bool tHuffmanEncode::PreReadFinish()
{
    return d->m_mode == eSegmentMode && d->makeCodes();
}

bool tHuffmanEncode::IsRestorable() const
{
    return d->m_restorable;
}

std::string tHuffmanEncode::GetHuffmanHead()
{
    const std::lock_guard<std::mutex> lock(d->m_byteArrayEncodeMutex);
    return d->fileHead();
}

tEncodedSegment tHuffmanEncode::EncodeSrcFileSegment(char* data, uint32_t len)
{
    if (d->m_mode != eSegmentMode || !d->m_headMade)
        return {};
    return d->encodeSegment(data, len, d->m_outSegmentBuff.get(d->m_emitter.room(len)));
}

tEncodedSegment tHuffmanEncode::EncodeSrcFileSegment(const char* data, uint32_t len, char* buffer, size_t bufferSize)
{
    if (d->m_mode != eSegmentMode || !d->m_headMade || bufferSize < d->m_emitter.room(len))
        return {};
    return d->encodeSegment(data, len, buffer);
}

size_t tHuffmanEncode::SegmentBufferSize(uint32_t len) const
{
    return d->m_emitter.room(len);
}

tEncodedSegment tHuffmanEncode::SegmentEncodeFinish()
{
    const tPartialUnit& partial = d->m_partial;
    std::printf("==> Huffman Encoded Segments %u Bits %llu(64*%u...%u), LastValidBits %u\r\n", d->m_encodedSegmentsCnt,
                static_cast<unsigned long long>(d->m_encodedSegmentsBits),
                static_cast<unsigned>(d->m_encodedSegmentsBits / 64),
                static_cast<unsigned>(d->m_encodedSegmentsBits % 64), partial.count);
    d->m_encodedSegmentsBits = 0;
    d->m_encodedSegmentsCnt = 0;
    if (!d->m_headMade)
        return {};
    char* const buffer = d->m_outSegmentBuff.get(cUnitSize);
    le::store(buffer, partial.bits);
    return {{buffer, partial.count == 0 ? 0 : partial.count / 8 + 1},
            {0, 0}};  // kept: one byte more than 8, 16 ... need
}

bool tHuffmanEncode::Encode(const char* srcFile, const char* dstFile)
{
    if (d->m_mode != eFileMode)
        return false;
    d->m_counter.clear();
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
    std::printf("%s\r\n", line.c_str());
}
}  // namespace huffman
