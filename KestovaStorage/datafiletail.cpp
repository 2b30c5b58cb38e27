#include "KestovaStorage/datafiletail.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/finetimes.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"
#include "common/byteorder.h"

namespace storage
{
namespace
{
constexpr std::size_t cWindow = 256 * 1024;
constexpr std::size_t cFirstPiece = 32;   // slots: a live recording has few new ones
constexpr std::size_t cPiece = 4096;      // where there are many
constexpr std::size_t cFineRecheck = 32;  // looks for a file of fine times with this many of the first records

bool isSame(const tSegmentRecord& a, const tSegmentRecord& b)
{
    return a.time == b.time && a.firstByte == b.firstByte && a.bits == b.bits && a.firstBit == b.firstBit;
}
}  // namespace

class tDataFileTailPrivate
{
public:
    bool next(tTailRecord& record);
    bool finished();

    std::unique_ptr<tDataFileReader> m_reader;
    std::string m_path;
    std::size_t m_slot = 0;  // of the next record
    std::size_t m_damaged = 0;
    std::vector<tSegmentRecord> m_records;  // as read last, from m_first on
    std::size_t m_first = 0;
    bool m_isRest = false;  // they were read from a finished file: nothing is missing
    tSegmentReader m_segments{cWindow};
    tFineTimes m_fineTimes;

private:
    enum class eEntry
    {
        eWhole,
        eDamaged,
        eMissing  // it may come
    };
    void load();
    const tSegmentRecord* at(std::size_t slot) const;
    eEntry entry(const tSegmentRecord& record);
    int fineTime(std::size_t slot);

    std::size_t m_piece = cFirstPiece;
    std::size_t m_indexNum = 0;  // of a finished file
    std::uint64_t m_size = 0;
};

bool tDataFileTailPrivate::finished()
{
    if (m_indexNum != 0 || !m_reader)
        return m_reader != nullptr;
    unsigned char head[sizeof(tIndexHead)] = {};
    if (m_reader->readUpTo(cIndexHeadPos, sizeof head, reinterpret_cast<char*>(head)) == sizeof head)
        m_indexNum = std::min(le::load<std::uint32_t>(head + offsetof(tIndexHead, indexNum)), cIndexCapacity);
    return m_indexNum != 0 || m_reader->presentSize() == cIndexHeadPos + sizeof head;  // finished without a segment
}

// Reads twice: a slot that its writer is about to write may be half there the first time.
void tDataFileTailPrivate::load()
{
    m_isRest = finished();
    const std::size_t last = m_isRest ? m_indexNum : cIndexCapacity;
    const std::uint64_t size = m_reader->presentSize();
    const std::uint64_t room = size > cIndexPos ? (size - cIndexPos) / cIndexSlotSize : 0;
    const auto end = static_cast<std::size_t>(std::min<std::uint64_t>(last, room));
    const std::size_t count = std::min(m_piece, end - std::min(m_slot, end));
    std::vector<tSegmentRecord> again;
    m_records.clear();
    m_first = m_slot;
    if (count == 0 || !m_reader->readRecords(m_slot, count, m_records) || !m_reader->readRecords(m_slot, count, again))
        return m_records.clear();
    const auto differs = std::mismatch(m_records.begin(), m_records.end(), again.begin(), isSame).first;
    m_records.erase(differs, m_records.end());
    m_size = m_reader->presentSize();  // what the records point to is in the file by now
    const bool full = !m_records.empty() && m_records.back().time != 0;
    m_piece = full ? cPiece : cFirstPiece;
    m_fineTimes.refresh();
}

const tSegmentRecord* tDataFileTailPrivate::at(std::size_t slot) const
{
    return slot >= m_first && slot - m_first < m_records.size() ? &m_records[slot - m_first] : nullptr;
}

tDataFileTailPrivate::eEntry tDataFileTailPrivate::entry(const tSegmentRecord& record)
{
    const bool placed = record.firstByte <= m_size && record.bytes() <= m_size - record.firstByte;
    if (record.time != 0 && record.time < cTimeLimit && record.firstBit < 8 && placed && (record.bits != 0 || m_isRest))
        return eEntry::eWhole;
    return m_isRest ? eEntry::eDamaged : eEntry::eMissing;
}

int tDataFileTailPrivate::fineTime(std::size_t slot)
{
    if (m_fineTimes.state() == eFineTimesNone && slot < cFineRecheck)
        m_fineTimes = fineTimesOf(*m_reader);
    return m_fineTimes.at(slot);
}

bool tDataFileTailPrivate::next(tTailRecord& to)
{
    while (m_reader)
    {
        const tSegmentRecord* record = at(m_slot);
        if (record == nullptr || entry(*record) == eEntry::eMissing)
        {
            load();
            record = at(m_slot);
        }
        if (record == nullptr)
            return false;
        const eEntry found = entry(*record);
        if (found == eEntry::eMissing)
            return false;
        const std::size_t slot = m_slot++;
        const auto bytes = found == eEntry::eWhole ? m_segments.read(*m_reader, *record) : std::nullopt;
        if (bytes)
        {
            to = {record->time, fineTime(slot), bytes->data(), bytes->size()};
            return true;
        }
        ++m_damaged;
    }
    return false;
}

tDataFileTail::tDataFileTail() : d(new tDataFileTailPrivate) {}

tDataFileTail::~tDataFileTail()
{
    delete d;
}

bool tDataFileTail::open(const std::string& path, size_t slot, std::string* error)
{
    tStatus failure;
    std::unique_ptr<tDataFileReader> reader = tDataFileReader::openBare(path, &failure);
    if (!reader)
    {
        if (error != nullptr)
            *error = std::move(failure).of(path).text();
        return false;
    }
    delete std::exchange(d, new tDataFileTailPrivate);
    d->m_reader = std::move(reader);
    d->m_path = path;
    d->m_fineTimes = fineTimesOf(*d->m_reader);
    d->m_slot = slot;
    return true;
}

void tDataFileTail::seek(size_t slot)
{
    d->m_slot = slot;
}

const std::string& tDataFileTail::path() const
{
    return d->m_path;
}

bool tDataFileTail::next(tTailRecord& record)
try
{
    return d->next(record);
}
catch (const std::bad_alloc&)
{
    return false;
}

bool tDataFileTail::finished()
{
    return d->finished();
}

size_t tDataFileTail::damaged() const
{
    return d->m_damaged;
}
}  // namespace storage
