#include "KestovaStorage/huffmandecode.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>

#include "KestovaStorage/internal/codec/huffmanformat.h"
#include "KestovaStorage/internal/codec/lanedecoder.h"
#include "KestovaStorage/internal/codec/segmentdecoder.h"
#include "KestovaStorage/internal/codec/symboldecoder.h"

namespace huffman
{
namespace
{
unsigned char* asBytes(char* data)
{
    return reinterpret_cast<unsigned char*>(data);
}

const unsigned char* asBytes(const char* data)
{
    return reinterpret_cast<const unsigned char*>(data);
}

// Decodes all whole codes of the range piece by piece and hands each piece to `take` as (bytes, number).
template <typename tDecoder, typename tTake>
void decodePieces(tDecoder& decoder, tBitRange& range, unsigned char* piece, std::size_t size, tTake take)
{
    std::size_t decoded;
    do
    {
        decoded = static_cast<std::size_t>(decoder.decode(range, piece, piece + size) - piece);
        take(reinterpret_cast<const char*>(piece), decoded);
    } while (decoded != 0);
}

template <typename tTake>
void decodeAll(const tSymbolTable& table, tBitRange& range, tTake take)
{
    if (range.left() >= tLaneDecoder::cWorthLanes)
    {
        tLaneDecoder decoder(table);
        const std::size_t size = 2 * decoder.roomFor(range.left());  // so that several rounds find room
        const std::unique_ptr<unsigned char[]> large(new unsigned char[size]);
        return decodePieces(decoder, range, large.get(), size, take);
    }
    unsigned char piece[4096];
    const tSymbolDecoder decoder(table);
    decodePieces(decoder, range, piece, sizeof piece, take);
}

std::string decodedText(const tSymbolTable& table, tBitRange range)
{
    std::string text;
    decodeAll(table, range, [&](const char* bytes, std::size_t number) { text.append(bytes, number); });
    return text;
}

// Decodes the rest of a file. An unfinished code at the end of a block is put before the next one.
void decodeFile(const tSymbolTable& table, std::istream& src, std::ostream& dst)
{
    constexpr std::size_t cBlock = 512 * 1024;
    const std::unique_ptr<char[]> block(new char[cBlock]);
    std::size_t kept = 0;
    std::uint64_t pos = 0;
    do
    {
        src.read(block.get() + kept, static_cast<std::streamsize>(cBlock - kept));
        const std::size_t size = kept + static_cast<std::size_t>(src.gcount());
        tBitRange range{asBytes(block.get()), pos, std::uint64_t{size} * 8};
        decodeAll(table, range, [&](const char* bytes, std::size_t number) {
            dst.write(bytes, static_cast<std::streamsize>(number));
        });
        kept = size - static_cast<std::size_t>(range.pos / 8);
        pos = range.pos % 8;
        std::memmove(block.get(), block.get() + size - kept, kept);
    } while (src);
}
}  // namespace

class tHuffmanDecodePrivate
{
public:
    std::optional<tCodeMode> m_mode;
    tSegmentDecoder m_segments;
    std::mutex m_byteArrayDecodeMutex;
    tSymbolTable m_byteArrayTable;
};

tHuffmanDecode::tHuffmanDecode() : d(new tHuffmanDecodePrivate) {}

tHuffmanDecode::tHuffmanDecode(tCodeMode mode) : d(new tHuffmanDecodePrivate)
{
    d->m_mode = mode;
}

tHuffmanDecode::~tHuffmanDecode()
{
    delete d;
}

void tHuffmanDecode::SetDecodeMode(tCodeMode mode)
{
    d->m_mode = mode;
}

bool tHuffmanDecode::SetHuffmanHead(const tFileHead& head)
{
    if (d->m_mode == eSegmentMode)
        d->m_segments.setHead(&head);
    return false;  // kept: success has always returned false as well
}

std::string tHuffmanDecode::DecodeSrcFileSegment(char* data, uint32_t len, uint8_t firstBit, uint8_t lastBits)
{
    if (!d->m_segments.hasCodes() || len == 0)
        return {};
    const std::uint64_t first = len == 1 ? 0 : std::min<unsigned>(firstBit, 8);  // kept: ignored in a single byte
    const unsigned last = lastBits == 0 ? 8 : bitsOfLastByte(lastBits);
    return decodedText(d->m_segments.table(), {asBytes(data), first, (std::uint64_t{len} - 1) * 8 + last});
}

std::string tHuffmanDecode::DecodeByteArray(const char* src, uint32_t len)
{
    tByteArrayContents contents;
    if (d->m_mode != eByteArrayMode || !readByteArray(src, len, contents))
        return {};
    const std::lock_guard<std::mutex> lock(d->m_byteArrayDecodeMutex);
    d->m_byteArrayTable.build(contents.freqs, contents.bits);
    if (!d->m_byteArrayTable.hasCodes())
        return {};
    return decodedText(d->m_byteArrayTable, {asBytes(contents.payload), 0, contents.bits});
}

bool tHuffmanDecode::Decode(const char* srcFile, const char* dstFile)
{
    std::error_code none;
    std::ifstream src;
    if (d->m_mode == eFileMode)
        src.open(srcFile, std::ios::binary);
    tFileHead head;
    tFreqTable freqs;
    if (!src.is_open() || !src.read(reinterpret_cast<char*>(&head), sizeof head) || !readFileHead(&head, freqs))
        return false;
    if (freqs.variety == 0 || std::filesystem::equivalent(srcFile, dstFile, none))
        return false;
    std::ofstream dst(dstFile, std::ios::binary | std::ios::trunc);
    if (!dst)
        return false;
    tSymbolTable table;
    table.build(freqs, UINT64_MAX);
    if (table.hasCodes())
        decodeFile(table, src, dst);
    return true;
}
}  // namespace huffman
