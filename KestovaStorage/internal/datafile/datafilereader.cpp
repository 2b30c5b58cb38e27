#include "KestovaStorage/internal/datafile/datafilereader.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <new>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "KestovaStorage/internal/datafile/playmark.h"
#include "common/byteorder.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;

constexpr std::size_t cPiece = 12'288;   // records read at once: a quarter of a MiB
constexpr int cLooksAtEmptyFile = 4;     // its writer may have created it a moment ago
constexpr std::size_t cFewRecords = 32;  // an index as small as this is not worth reading again

static_assert(cPiece % cIndexBlock == 0, "blocks begin at the same records in every piece");
}  // namespace

tDataFileReader::tDataFileReader(const std::string& path) : m_path(path) {}

tDataFileReader::~tDataFileReader() = default;

std::unique_ptr<tDataFileReader> tDataFileReader::open(const std::string& path, tStatus* failure)
{
    return open(path, eIndex::eInMemory, failure);
}

std::unique_ptr<tDataFileReader> tDataFileReader::openToPlay(const std::string& path, tStatus* failure)
{
    return open(path, eIndex::eInBlocks, failure);
}

std::unique_ptr<tDataFileReader> tDataFileReader::openBare(const std::string& path, tStatus* failure,
                                                           const tFileForm* assumed)
{
    return open(path, eIndex::eNone, failure, assumed);
}

std::unique_ptr<tDataFileReader> tDataFileReader::open(const std::string& path, eIndex index, tStatus* failure,
                                                       const tFileForm* assumed)
{
    std::unique_ptr<tDataFileReader> reader(new tDataFileReader(path));
    reader->m_isPlayed = index == eIndex::eInBlocks;
    tStatus status = reader->load(index, assumed);
    if (status)
        return reader;
    if (failure != nullptr)
        *failure = std::move(status);
    return nullptr;
}

tStatus tDataFileReader::load(eIndex index, const tFileForm* assumed)
try
{
    if (!openFile())
        return tStatus::system(errno);
    if (tStatus status = examine(); !status)
        return status;
    m_form = readForm();
    for (int look = 1; m_form == nullptr && m_size == 0 && look < cLooksAtEmptyFile; ++look)
    {
        std::this_thread::sleep_for(1ms);
        m_form = readForm();
    }
    if (m_form == nullptr)
        m_form = assumed;
    if (m_form == nullptr)
        return {tStatus::eCode::eRefused, "not a data file"};
    if (index == eIndex::eNone)
        return {};

    unsigned char head[sizeof(tIndexHead)] = {};
    m_file.readAt(head, sizeof head, cIndexHeadPos);
    takeSize();  // what the head counts is in the file by now
    readIndex(le::load<std::uint32_t>(head + offsetof(tIndexHead, indexNum)), index);
    return {};
}
catch (const std::bad_alloc&)
{
    return {tStatus::eCode::eNoMemory, "not enough memory for its index"};
}

tStatus tDataFileReader::examine()
{
    struct stat info;
    if (::fstat(m_file.get(), &info) != 0)
        return tStatus::system(errno);
    if (!S_ISREG(info.st_mode))
        return {tStatus::eCode::eRefused, "not a regular file"};
    m_size = static_cast<std::uint64_t>(info.st_size);
    m_device = info.st_dev;
    m_inode = info.st_ino;
    return {};
}

const tFileForm* tDataFileReader::readForm() const
{
    unsigned char magic[4] = {};
    m_file.readAt(magic, sizeof magic, 0);
    return formOf(le::load<std::uint32_t>(magic));
}

void tDataFileReader::takeSize()
{
    m_size = presentSize();
}

std::uint64_t tDataFileReader::presentSize() const
{
    struct stat info;
    return ::fstat(m_file.get(), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : m_size;
}

// O_NONBLOCK: opening a pipe or a device that is named like a data file does not wait.
bool tDataFileReader::openFile()
{
    m_file = tDescriptor(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (m_isPlayed && m_file.valid())
        markPlayed(m_file.get());
    return m_file.valid();
}

std::size_t tDataFileReader::readUpTo(std::uint64_t pos, std::size_t len, char* to)
{
    const std::size_t got = m_file.valid() || reopenFile() ? m_file.readAt(to, len, pos) : 0;
    for (const auto& [at, bits] : m_corrections)
        if (at >= pos && at - pos < got)
            to[at - pos] = static_cast<char>(to[at - pos] ^ bits);
    return got;
}

void tDataFileReader::correctBit(std::uint64_t pos, unsigned bit)
{
    m_corrections.emplace_back(pos, static_cast<char>(1 << bit % 8));
    m_decoder.reset();
}

bool tDataFileReader::readRecords(std::size_t first, std::size_t count, std::vector<tSegmentRecord>& records)
{
    std::vector<tIndexSlot> slots(count);
    if (!read(cIndexPos + first * cIndexSlotSize, count * cIndexSlotSize, reinterpret_cast<char*>(slots.data())))
        return false;
    records.clear();
    for (const tIndexSlot& slot : slots)
        records.push_back(m_form->record(slot));
    return true;
}

// Fails if another file has the name by now, such as the compressed one: the index does not describe it.
bool tDataFileReader::reopenFile()
{
    struct stat info;
    if (openFile() && ::fstat(m_file.get(), &info) == 0 && info.st_dev == m_device && info.st_ino == m_inode)
        return true;
    m_file.reset();
    return false;
}

const iSegmentDecoder* tDataFileReader::decoder()
{
    if (!m_decoder && m_form->isCompressed())
        m_decoder = m_form->newDecoder(*this);
    return m_decoder.get();
}

void tDataFileReader::closeFile()
{
    m_file.reset();
    m_decoder.reset();
}

// The index head of an unfinished file counts 0 records: the index may hold as many as fit.
void tDataFileReader::readIndex(std::uint32_t indexNum, eIndex index)
{
    // So does that of a file finished without a segment, but such a file ends behind its index head.
    m_finished = indexNum != 0 || m_size == cIndexHeadPos + sizeof(tIndexHead);
    m_emptyEnds = !m_finished && m_form->emptyRecordEnds;
    const std::uint64_t claimed = m_finished ? indexNum : cIndexCapacity;
    const std::uint64_t room = m_size > cIndexPos ? (m_size - cIndexPos) / cIndexSlotSize : 0;
    const auto count = static_cast<std::size_t>(std::min({claimed, room, std::uint64_t{cIndexCapacity}}));
    m_damaged = m_finished ? static_cast<std::size_t>(claimed) - count : 0;
    if (index == eIndex::eInMemory || count <= cFewRecords || !readInBlocks(count))
        readInMemory(count);
}

void tDataFileReader::readInMemory(std::size_t count)
{
    m_inMemory = true;
    m_index = tIndexArray(count);
    bool more = true;
    for (std::size_t place = 0; more && place < count; place += cPiece)
        more = readPiece(&m_index[place], place, std::min(cPiece, count - place));
    if (m_count < count / 2)
        m_index.shrink(m_count);
}

// Reads the whole index once and keeps the times of its blocks. Returns false, and forgets what it has read, if a
// record has to be left out or is not in order of time: the index would not be the one on disk.
bool tDataFileReader::readInBlocks(std::size_t count)
{
    const std::size_t missing = m_damaged;
    const std::unique_ptr<tIndexSlot[]> piece(new tIndexSlot[std::min(cPiece, count)]);
    m_blockTimes.reserve((count + cIndexBlock - 1) / cIndexBlock);
    bool more = true, asOnDisk = true;
    for (std::size_t place = 0; more && asOnDisk && place < count; place += cPiece)
    {
        more = readPiece(piece.get(), place, std::min(cPiece, count - place));
        asOnDisk = m_sorted && m_damaged == missing;
    }
    if (asOnDisk)
    {
        m_blockTimes.shrink_to_fit();
        return true;
    }
    m_blockTimes = {};
    m_gaps.clear();
    m_damaged = missing;
    m_sorted = true;
    m_count = m_run = m_longestRun = 0;
    m_lastTime = 0;
    return false;
}

// Reads `count` records from number `place` on and keeps the whole ones while they are in the cache, with what the play
// order needs. Returns false at the end of the index.
bool tDataFileReader::readPiece(tIndexSlot* piece, std::size_t place, std::size_t count)
{
    const tFileForm form = *m_form;
    const std::size_t got =
        m_file.readAt(piece, count * cIndexSlotSize, cIndexPos + place * cIndexSlotSize) / cIndexSlotSize;
    bool sizeIsNewer = false;  // than the piece
    for (std::size_t i = 0; i < got; ++i)
    {
        const tSegmentRecord record = form.record(piece[i]);
        if (isEnd(record))
            return false;
        if (!isWhole(record) && !sizeIsNewer)
        {
            takeSize();
            sizeIsNewer = true;
        }
        if (isWhole(record))
            keep(piece[i]);
        else
            leaveOut();
    }
    return got == count;
}

void tDataFileReader::leaveOut()
{
    ++m_damaged;
    const std::size_t before = m_gaps.empty() ? 0 : m_gaps.back().leftOut;
    if (m_gaps.empty() || m_gaps.back().record != m_count)
        m_gaps.push_back({m_count, before});
    ++m_gaps.back().leftOut;
}

std::size_t tDataFileReader::slotNumber(std::size_t i) const
{
    const auto behind = std::upper_bound(m_gaps.begin(), m_gaps.end(), i,
                                         [](std::size_t record, const tGap& gap) { return record < gap.record; });
    return behind == m_gaps.begin() ? i : i + std::prev(behind)->leftOut;
}

void tDataFileReader::keep(const tIndexSlot& slot)
{
    const std::uint64_t time = timeOf(slot);
    m_run = time == m_lastTime ? m_run + 1 : 1;
    m_longestRun = std::max(m_longestRun, m_run);
    m_sorted &= time >= m_lastTime;
    m_lastTime = time;
    if (!m_inMemory)
    {
        if (m_count % cIndexBlock == 0)
            m_blockTimes.push_back(time);
    }
    else if (&m_index[m_count] != &slot)
        m_index[m_count] = slot;
    ++m_count;
}

void tDataFileReader::readBlock(std::size_t block, tIndexBlock& to)
{
    const std::size_t first = block * cIndexBlock;
    const std::size_t count = std::min(cIndexBlock, m_count - first);
    const std::size_t got =
        readUpTo(cIndexPos + first * cIndexSlotSize, count * cIndexSlotSize, reinterpret_cast<char*>(to.data())) /
        cIndexSlotSize;
    std::uint64_t time = m_blockTimes[block];
    for (std::size_t i = 0; i < count; ++i)
    {
        const tSegmentRecord record = i < got ? m_form->record(to[i]) : tSegmentRecord{};
        if (!isEnd(record) && isWhole(record))
            time = record.time;
        else
            to[i] = encode(tEncodedIndexTable{time, UINT64_MAX, 1, 0});
    }
}

bool tDataFileReader::isWhole(const tSegmentRecord& record) const
{
    return record.time < cTimeLimit && record.firstBit < 8 && record.firstByte <= m_size &&
           record.bytes() <= m_size - record.firstByte;
}
}  // namespace storage
