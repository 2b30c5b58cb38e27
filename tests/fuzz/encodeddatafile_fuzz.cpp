// A compressed data file out of any bytes: whatever its head, its index and its codes say, nothing leads outside the
// file, and what can be read replays and expands to the same segments.
//
// The first byte is the number of byte values in the head; for each follow the value and 4 bytes of its count. The next
// byte is the number of index records, 21 bytes each; the remains are the codes.
#include <cstdint>
#include <string>
#include <string_view>

#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"
#include "tests/fuzz/fuzz.h"

namespace
{
void layOut(const tMemoryFile& file, std::string_view bytes)
{
    huffman::tFileHead head{};
    head.head = storage::cHuffmanFileHead;
    head.alphaVariety = takeByte(bytes);
    const std::string_view counts = take(bytes, head.alphaVariety * sizeof(huffman::tAlphaFreq));
    counts.copy(reinterpret_cast<char*>(head.alphaFreqs), counts.size());
    const std::uint8_t records = takeByte(bytes);
    const std::string_view index = take(bytes, records * storage::cIndexSlotSize);
    const std::uint32_t indexHead[2] = {records, 1000};
    file.put(0, &head, sizeof head);
    file.put(storage::cIndexHeadPos, indexHead, sizeof indexHead);
    file.put(storage::cIndexPos, index);
    file.put(storage::cPayloadPos, bytes);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const tMemoryFile bytes;
    layOut(bytes, {reinterpret_cast<const char*>(data), size});
    const auto file = storage::tDataFileReader::open(bytes.path());
    require(file != nullptr);
    storage::tSegmentReader one, windowed(4096);
    for (std::size_t i = 0; i < file->count(); ++i)
    {
        // A record may span the hole before the codes: ten million bytes of zeros need not be decoded again and again.
        const storage::tSegmentRecord record = file->record(i);
        if (record.bits > 100'000)
            continue;
        const auto segment = one.read(*file, i);
        require(segment == windowed.read(*file, i));
        require(!segment || segment->size() <= record.bits);
        if (i % 7 == 3)
            file->closeFile();
    }
    return 0;
}
