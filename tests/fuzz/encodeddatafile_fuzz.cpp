// A compressed data file out of any bytes: whatever its head, its index and its codes say, nothing leads outside the
// file, and what can be read replays and expands to the same segments.
//
// The first byte is the number of byte values in the head; for each follow the value and 4 bytes of its count. The next
// byte is the number of index records, 21 bytes each; the remains are the codes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"

namespace
{
void require(bool holds)
{
    if (!holds)
        std::abort();
}

std::string_view take(std::string_view& bytes, std::size_t count)
{
    const std::string_view piece = bytes.substr(0, count);
    bytes.remove_prefix(piece.size());
    return piece;
}

std::uint8_t takeByte(std::string_view& bytes)
{
    const std::string_view piece = take(bytes, 1);
    return piece.empty() ? 0 : static_cast<std::uint8_t>(piece.front());
}

void put(int fd, std::uint64_t offset, const void* data, std::size_t count)
{
    require(::pwrite(fd, data, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count));
}

void layOut(int fd, std::string_view bytes)
{
    huffman::tFileHead head{};
    head.head = storage::cHuffmanFileHead;
    head.alphaVariety = takeByte(bytes);
    const std::string_view counts = take(bytes, head.alphaVariety * sizeof(huffman::tAlphaFreq));
    std::memcpy(head.alphaFreqs, counts.data(), counts.size());
    const std::uint8_t records = takeByte(bytes);
    const std::string_view index = take(bytes, records * storage::cIndexSlotSize);
    const std::uint32_t indexHead[2] = {records, 1000};
    put(fd, 0, &head, sizeof head);
    put(fd, storage::cIndexHeadPos, indexHead, sizeof indexHead);
    put(fd, storage::cIndexPos, index.data(), index.size());
    put(fd, storage::cPayloadPos, bytes.data(), bytes.size());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const int fd = ::memfd_create("encodeddatafile_fuzz", MFD_CLOEXEC);
    layOut(fd, {reinterpret_cast<const char*>(data), size});
    const auto file = storage::tDataFileReader::open("/proc/self/fd/" + std::to_string(fd));
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
    ::close(fd);
    return 0;
}
