// A data file out of any bytes: whatever its heads, its index and its codes say, nothing leads outside the file, what
// can be read is the same whichever way it is read, and its play order is an order.
//
// The first byte says how the rest is laid out: from 0xFE on raw; 0xFD compressed; otherwise 4 bytes to offset 0, 8 to
// 2000, then so many index records of 21 bytes to 2048, and the remains to 10,000,000 (odd numbers: right behind the
// records). Compressed: the number of byte values in the head, for each the value and 4 bytes of its count, the number
// of index records, the records, and the codes.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"
#include "KestovaStorage/internal/playback/timeline.h"
#include "tests/fuzz/fuzz.h"

namespace
{
constexpr std::uint64_t cMostBitsRead = 8 << 20;

void layOutCompressed(const tMemoryFile& file, std::string_view bytes)
{
    huffman::tFileHead head{};
    head.head = storage::cHuffmanFileHead;
    head.alphaVariety = takeByte(bytes);
    const std::string_view counts = take(bytes, head.alphaVariety * sizeof(huffman::tAlphaFreq));
    counts.copy(reinterpret_cast<char*>(head.alphaFreqs), counts.size());
    const std::uint32_t indexHead[2] = {takeByte(bytes), 1000};
    file.put(0, &head, sizeof head);
    file.put(storage::cIndexHeadPos, indexHead, sizeof indexHead);
    file.put(storage::cIndexPos, take(bytes, indexHead[0] * storage::cIndexSlotSize));
    file.put(storage::cPayloadPos, bytes);
}

void layOut(const tMemoryFile& file, std::string_view bytes)
{
    const std::size_t layout = takeByte(bytes);
    if (layout == 0xFD)
        return layOutCompressed(file, bytes);
    if (layout >= 0xFE)
        return file.put(0, bytes);
    file.put(0, take(bytes, 4));
    file.put(storage::cIndexHeadPos, take(bytes, sizeof(storage::tIndexHead)));
    file.put(storage::cIndexPos, take(bytes, layout * storage::cIndexSlotSize));
    const bool behind = layout % 2 == 1;
    file.put(behind ? storage::cIndexPos + layout * storage::cIndexSlotSize : storage::cPayloadPos, bytes);
}

void readAll(const std::string& path)
{
    storage::tDataFile file;
    if (!file.open(path))
        return;
    require(file.recordCount() <= storage::cIndexCapacity);
    const auto inside = storage::tDataFileReader::open(path);
    storage::tSegmentReader single;  // tDataFile reads many at once
    std::string bytes;
    std::uint64_t read = 0;
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        const storage::tDataFileRecord record = file.record(i);
        require(record.timeMs != 0 && record.timeMs < storage::cTimeLimit);
        require(record.pos <= file.size() && record.len <= file.size() - record.pos);
        const std::uint64_t bits = inside->record(i).bits;
        if (bits > cMostBitsRead - read)
            continue;  // ten million bytes of a hole need not be read again and again
        read += bits;
        const bool given = file.read(i, bytes);
        require(given ? bytes.size() <= bits : file.kind() != storage::cDataFileHead);
        require(file.kind() != storage::cDataFileHead || bytes.size() == record.len);
        const auto segment = single.read(*inside, i);
        require(given ? segment == bytes : !segment);
        if (i % 7 == 3)
            inside->closeFile();
    }
}

// Returns the keys and records of a file as it is played: its index stays on disk if that is possible.
std::vector<std::pair<std::uint64_t, storage::tIndexSlot>> playedFromDisk(const std::string& path)
{
    const auto reader = storage::tDataFileReader::openToPlay(path);
    storage::tTimeline timeline;
    timeline.build(
        {{reader->index(), reader->sorted(), reader->longestRun(), reader->count(), reader->blockTimes(),
          reader->lastTime()}},
        [] { return false; },
        [&](std::uint32_t, std::size_t block, storage::tIndexBlock& to) { reader->readBlock(block, to); });
    std::vector<std::pair<std::uint64_t, storage::tIndexSlot>> played;
    storage::tTimelineSegment segment{};
    for (storage::tTimeline::tCursor cursor(timeline, 0); cursor.next(segment);)
        played.emplace_back(segment.key, cursor.record());
    return played;
}

// The index in memory gives the same order as the one on disk.
void playTwice(const std::string& path)
{
    const auto reader = storage::tDataFileReader::open(path);
    if (!reader)
        return;
    const auto fromDisk = playedFromDisk(path);
    require(fromDisk.size() == reader->count());
    storage::tTimeline timeline;
    timeline.build({{reader->index(), reader->sorted(), reader->longestRun()}}, [] { return false; });
    storage::tTimelineSegment segment{};
    storage::tTimeline::tCursor cursor(timeline, 0);
    for (const auto& [key, record] : fromDisk)
        require(cursor.next(segment) && segment.key == key && cursor.record() == record);
}

// Two copies of the file are played, and played again from the middle.
void playAll(const std::string& path)
{
    const auto first = storage::tDataFileReader::open(path), second = storage::tDataFileReader::open(path);
    if (!first || !second)
        return;
    storage::tTimeline timeline;
    timeline.build({{first->index(), first->sorted(), first->longestRun()},
                    {second->index(), second->sorted(), second->longestRun()}},
                   [] { return false; });
    require(timeline.size() == first->index().size() * 2);
    std::vector<std::uint64_t> keys;
    storage::tTimelineSegment segment{};
    for (storage::tTimeline::tCursor cursor(timeline, 0); cursor.next(segment); keys.push_back(segment.key))
        require(segment.record < first->index().size() && (keys.empty() || segment.key > keys.back()));
    require(keys.size() == timeline.size());
    if (keys.empty())
        return;
    require(keys.front() == timeline.firstKey() && keys.back() == timeline.lastKey());
    const std::uint64_t middle = keys[keys.size() / 2];
    require(storage::tTimeline::tCursor(timeline, middle).next(segment) && segment.key == middle);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const tMemoryFile file;
    layOut(file, {reinterpret_cast<const char*>(data), size});
    readAll(file.path());
    playTwice(file.path());
    playAll(file.path());
    return 0;
}
