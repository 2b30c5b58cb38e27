#include "KestovaRecordings/internal/indexexamination.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

#include "KestovaRecordings/internal/crc32c.h"
#include "KestovaRecordings/internal/flippedbit.h"

namespace recordings
{
using storage::cIndexCapacity;
using storage::cIndexPos;
using storage::cIndexSlotSize;
using storage::tIndexSlot;
using storage::tRawRecord;

namespace
{
constexpr std::size_t cPiece = 12'288;                           // slots read at once
constexpr std::uint64_t cMostDoubtful = std::uint64_t{1} << 20;  // a doubtful record that is longer is not read
}  // namespace

std::vector<tBlock> blocksOf(const tSheet& sheet, std::size_t records)
{
    const tSheetBlocks& sums = sheet.blocks;
    std::vector<tBlock> blocks;
    std::size_t first = 0;
    const std::size_t count = std::min(sums.records.size(), sums.payloadCrc32c.size());
    for (std::size_t k = 0; k < count && sums.records[k] <= records - first; ++k)
    {
        const std::size_t last = first + sums.records[k];
        blocks.push_back({first, last, sums.payloadCrc32c[k], k < sums.indexCrc32c.size() ? sums.indexCrc32c[k] : 0});
        first = last;
    }
    return blocks;
}

tIndexExamination::tIndexExamination(const storage::tRawDataFile& file, const tSheet* sheet, bool isGrowing,
                                     tFindingList& findings)
    : m_file(file), m_sheet(sheet), m_isGrowing(isGrowing), m_findings(findings)
{}

tExaminedIndex tIndexExamination::run()
{
    read();
    settleCount();
    m_index.size = m_file.size();  // segments are in the file before their records
    m_index.worth.assign(m_index.count(), eWhole);
    m_sure.assign(m_index.count(), false);
    checkSums();
    checkRecords();
    checkPlaces();
    breakUnexplained();
    checkEnd();
    return std::move(m_index);
}

void tIndexExamination::read()
{
    m_index.size = m_file.size();
    m_file.read(storage::cIndexHeadPos, sizeof m_index.head, &m_index.head);
    m_index.head = storage::fileOrder(m_index.head);
    m_index.finished =
        m_index.head.indexNum != 0 || m_index.size == storage::cIndexHeadPos + sizeof(storage::tIndexHead);
    std::uint64_t wanted = m_index.finished ? m_index.head.indexNum + std::uint64_t{1} : cIndexCapacity;
    const bool counted = m_sheet != nullptr && m_sheet->finished;
    if (counted)
        wanted = std::max(wanted, m_sheet->records);
    readSlots(static_cast<std::size_t>(std::min<std::uint64_t>(wanted, cIndexCapacity)), !m_index.finished && !counted);
}

// Reads up to `count` slots, those that the file holds; the zeros behind the last one are left out.
void tIndexExamination::readSlots(std::size_t count, bool untilEnd)
{
    std::vector<tIndexSlot>& slots = m_index.slots;
    bool more = true;
    while (more && slots.size() < count)
    {
        const std::size_t begin = slots.size(), piece = std::min(cPiece, count - begin);
        slots.resize(begin + piece);
        const std::size_t got = m_file.read(slotPos(begin), piece * cIndexSlotSize, &slots[begin]) / cIndexSlotSize;
        slots.resize(begin + got);
        more = got == piece;
        const auto end = std::find_if(slots.begin() + static_cast<std::ptrdiff_t>(begin), slots.end(),
                                      [&](const tIndexSlot& slot) { return untilEnd && isEnd(slot); });
        more = more && end == slots.end();
        slots.erase(end, slots.end());
    }
    while (!slots.empty() && slots.back() == tIndexSlot{})
        slots.pop_back();
}

// A record without a time ends every unfinished index, one without length that of a plain file.
bool tIndexExamination::isEnd(const tIndexSlot& slot) const
{
    const tRawRecord record = m_file.record(slot);
    return record.timeMs == 0 || (record.bits == 0 && !m_file.isCompressed());
}

void tIndexExamination::settleCount()
{
    if (m_sheet != nullptr && m_sheet->finished)
        settleBySheet();
    else if (m_index.finished)
        settleByItself();
    else if (m_file.isCompressed())  // such files appear whole
        m_findings.addAt("index_head", storage::cIndexHeadPos, "it is empty");
    if (m_sheet != nullptr && m_sheet->records > m_index.count())
    {
        m_index.missing = m_sheet->records - m_index.count();
        m_findings.addAt("index", slotPos(m_index.count()),
                         fmt::format("the index has {} records, its sheet {}", m_index.count(), m_sheet->records));
    }
}

void tIndexExamination::settleBySheet()
{
    if (m_index.head.indexNum != m_sheet->records)
        m_findings.addAt("index_head", storage::cIndexHeadPos,
                         fmt::format("it counts {} records, the sheet {}", m_index.head.indexNum, m_sheet->records));
    if (m_index.count() > m_sheet->records)
        m_index.slots.resize(static_cast<std::size_t>(m_sheet->records));
}

void tIndexExamination::settleByItself()
{
    const std::uint64_t claimed = m_index.head.indexNum;
    if (m_index.count() > claimed && !follows(static_cast<std::size_t>(claimed)))
        m_index.slots.resize(static_cast<std::size_t>(claimed));
    if (m_index.count() > claimed)
    {
        readSlots(cIndexCapacity, true);
        m_findings.addAt("index_head", storage::cIndexHeadPos,
                         fmt::format("it counts {} records, the index has {}", claimed, m_index.count()));
    }
    else if (m_index.count() < claimed)
    {
        m_index.missing = endsWithLastRecord() ? 0 : claimed - m_index.count();
        m_findings.addAt("index_head", storage::cIndexHeadPos,
                         fmt::format("it counts {} records, the index has {}", claimed, m_index.count()));
    }
}

// Whether no further segment can be behind the last record's.
bool tIndexExamination::endsWithLastRecord() const
{
    if (m_index.count() == 0)
        return false;
    const tRawRecord last = recordAt(m_index.count() - 1);
    const std::uint64_t end = last.firstByte + last.bytes();
    return end <= m_index.size && m_index.size - end < (m_file.isCompressed() ? sizeof(std::uint64_t) : 1);
}

// Whether slot i is a record that begins where the one before it ends.
bool tIndexExamination::follows(std::size_t i) const
{
    const tRawRecord record = recordAt(i);
    return i != 0 && !isEnd(m_index.slots[i]) && record.timeMs < storage::cTimeLimit &&
           record.firstByte <= m_index.size && record.bytes() <= m_index.size - record.firstByte &&
           beginOf(i) == endOf(i - 1);
}

void tIndexExamination::checkSums()
{
    if (m_sheet == nullptr || m_sheet->form != m_file.form() ||
        m_sheet->blocks.indexCrc32c.size() != m_sheet->blocks.records.size())
        return;
    for (const tBlock& block : blocksOf(*m_sheet, m_index.count()))
        checkSum(block);
}

void tIndexExamination::checkSum(const tBlock& block)
{
    const std::size_t records = block.last - block.first, bytes = records * cIndexSlotSize;
    if (records == 0)
        return;
    unsigned char* const slots = m_index.slots[block.first].data();
    const std::uint32_t difference = crc32c(0, slots, bytes) ^ block.index;
    const auto bit = flippedBit(difference, bytes);
    if (difference != 0 && !bit)
    {
        m_unlocated.push_back(block);
        m_findings.add("index", {block.first, slotPos(block.first), timeAround(block), block.last - 1},
                       "the checksum of their index records is wrong");
        return;
    }
    std::fill_n(m_sure.begin() + static_cast<std::ptrdiff_t>(block.first), records, true);
    if (!bit)
        return;
    slots[*bit / 8] = static_cast<unsigned char>(slots[*bit / 8] ^ 1U << *bit % 8);  // what follows sees the right one
    const std::size_t wrong = block.first + static_cast<std::size_t>(*bit / 8 / cIndexSlotSize);
    m_index.worth[wrong] = eCorrected;
    m_findings.add("index", {wrong, slotPos(block.first) + *bit / 8, recordAt(wrong).timeMs},
                   fmt::format("bit {} of this byte of the index is flipped", *bit % 8));
}

// Returns a time that the block has, whichever of its records is wrong.
std::uint64_t tIndexExamination::timeAround(const tBlock& block) const
{
    std::vector<std::uint64_t> times;
    for (std::size_t i = block.first; i < block.last; ++i)
        times.push_back(recordAt(i).timeMs);
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

void tIndexExamination::checkRecords()
{
    std::uint64_t time = 0;
    for (std::size_t i = 0; i < m_index.count(); ++i)
    {
        const tRawRecord record = recordAt(i);
        const char* kind = nullptr;
        if (const char* const why = impossible(record, kind))
        {
            const bool hasTime = record.timeMs != 0 && record.timeMs < storage::cTimeLimit;
            m_index.worth[i] = eBroken;
            m_findings.add(kind, {i, slotPos(i), hasTime ? record.timeMs : time}, why);
            continue;
        }
        if (!m_file.isCompressed() && m_index.slots[i].back() != 0)
            m_findings.add("index", {i, slotPos(i) + cIndexSlotSize - 1, record.timeMs}, "its last byte is not 0");
        if (record.timeMs < time)
            m_findings.add("time", {i, slotPos(i), record.timeMs},
                           fmt::format("{} ms before the record before it", time - record.timeMs), false);
        time = record.timeMs;
        m_index.longest = std::max(m_index.longest, storage::lengthOf(m_index.slots[i]));
    }
}

// Returns why no record can be like this, and sets the kind of finding; null for one that can.
const char* tIndexExamination::impossible(const tRawRecord& record, const char*& kind) const
{
    kind = "index";
    if (record.timeMs == 0 || record.timeMs >= storage::cTimeLimit)
        return "has no possible time";
    if (record.firstBit >= 8)
        return "begins behind the last bit of its byte";
    kind = "size";
    if (record.firstByte > m_index.size || record.bytes() > m_index.size - record.firstByte)
        return "reaches beyond the end of the file";
    kind = "overlap";
    return record.bits != 0 && record.firstByte < slotPos(m_index.count()) ? "lies in the index" : nullptr;
}

std::uint64_t tIndexExamination::beginOf(std::size_t i) const
{
    const tRawRecord record = recordAt(i);
    return record.firstByte * 8 + record.firstBit;
}

std::size_t tIndexExamination::nextPossible(std::size_t i) const
{
    do
        ++i;
    while (i < m_index.count() && m_index.worth[i] == eBroken);
    return i;
}

// Records that follow each other, and the places of their segments.
void tIndexExamination::checkPlaces()
{
    const std::size_t none = m_index.count();
    std::size_t before = none, i = nextPossible(static_cast<std::size_t>(-1));
    for (bool linked = true; i < m_index.count(); before = i, i = nextPossible(i))
    {
        const bool isFirst = before == none;
        const bool isSure = m_sure[i] && (isFirst || m_sure[before]);
        const bool isAdjacent = isFirst ? i == 0 : before + 1 == i;
        const std::uint64_t expected = isFirst ? storage::cPayloadPos * 8 : endOf(before);
        const bool judge = linked && isAdjacent && !isSure && beginOf(i) != expected;
        linked = !judge || blameForPlace(before, i);
    }
}

// Record i does not begin where the one before it ends: finds which of the two is wrong. Returns false if it is i:
// where it ends means nothing then.
bool tIndexExamination::blameForPlace(std::size_t before, std::size_t i)
{
    const std::size_t next = nextPossible(i);
    const bool isInLine = next == m_index.count() ? endsWithLastRecord() : endOf(i) == beginOf(next);
    if (before == m_index.count())
    {
        if (!isInLine)
            doubt(i, false);
        else
            m_findings.add("place", {i, recordAt(i).firstByte, recordAt(i).timeMs},
                           fmt::format("the first segment does not lie at {}", storage::cPayloadPos), false);
        return isInLine;
    }
    doubt(isInLine ? before : i, beginOf(i) < endOf(before));
    return isInLine;
}

void tIndexExamination::doubt(std::size_t i, bool overlaps)
{
    const tRawRecord record = recordAt(i);
    m_index.worth[i] = record.bytes() > cMostDoubtful ? eBroken : eDoubtful;
    m_findings.add(overlaps ? "overlap" : "place", {i, record.firstByte, record.timeMs},
                   overlaps ? "shares bytes with a record beside it" : "is not in line with the records beside it");
}

// Where a checksum is wrong and no record is seen to be, none of the block can be relied on.
void tIndexExamination::breakUnexplained()
{
    for (const tBlock& block : m_unlocated)
    {
        const auto begin = m_index.worth.begin() + static_cast<std::ptrdiff_t>(block.first);
        const auto end = m_index.worth.begin() + static_cast<std::ptrdiff_t>(block.last);
        if (std::all_of(begin, end, [](eWorth worth) { return worth == eWhole; }))
            std::fill(begin, end, eBroken);
    }
}

void tIndexExamination::checkEnd()
{
    if (m_index.finished && m_index.head.segmentMaxLen != m_index.longest && m_index.count() == m_index.head.indexNum)
        m_findings.addAt("index_head", storage::cIndexHeadPos + offsetof(storage::tIndexHead, segmentMaxLen),
                         fmt::format("the longest record has {}, not {}", m_index.longest, m_index.head.segmentMaxLen),
                         false);
    if (m_index.count() != 0 && m_index.worth.back() >= eDoubtful)
        return;
    const std::uint64_t endBit = m_index.count() != 0 ? endOf(m_index.count() - 1) : storage::cPayloadPos * 8;
    const std::uint64_t payloadBits = endBit > storage::cPayloadPos * 8 ? endBit - storage::cPayloadPos * 8 : 0;
    const std::uint64_t end = m_file.isCompressed() ? storage::cPayloadPos + (payloadBits + 63) / 64 * 8 : endBit / 8;
    if (m_index.size > end && m_index.size > storage::cPayloadPos && !m_isGrowing)
        m_findings.addAt("tail", end, fmt::format("{} bytes behind the last record belong to none", m_index.size - end),
                         false);
    if (m_file.isCompressed() && m_index.count() != 0)
        checkCodesEnd(endBit, std::min(end, m_index.size));
}

// Codes are written in units of 64 bits, filled up with zeros; of the last one a file need not have more than its
// codes.
void tIndexExamination::checkCodesEnd(std::uint64_t endBit, std::uint64_t end)
{
    unsigned char rest[sizeof(std::uint64_t)] = {};
    const std::uint64_t begin = endBit / 8;
    if (begin >= end)
        return;
    m_file.read(begin, std::min<std::size_t>(sizeof rest, static_cast<std::size_t>(end - begin)), rest);
    rest[0] = static_cast<unsigned char>(rest[0] >> endBit % 8);
    if (std::any_of(std::begin(rest), std::end(rest), [](unsigned char byte) { return byte != 0; }))
        m_findings.addAt("codes", begin, "bits behind the last code are set");
}
}  // namespace recordings
