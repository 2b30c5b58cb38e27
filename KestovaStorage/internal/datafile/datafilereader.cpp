#include "KestovaStorage/internal/datafile/datafilereader.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "common/byteorder.h"

namespace storage
{
namespace
{
using namespace std::chrono_literals;

constexpr std::size_t cPiece = 12'288;  // records read at once: a quarter of a MiB
constexpr int cLooksAtEmptyFile = 4;    // its writer may have created it a moment ago
}  // namespace

tDataFileReader::tDataFileReader(const std::string& path) : m_path(path) {}

tDataFileReader::~tDataFileReader() = default;

std::unique_ptr<tDataFileReader> tDataFileReader::open(const std::string& path, tStatus* failure)
{
    return open(path, true, failure);
}

std::unique_ptr<tDataFileReader> tDataFileReader::openBare(const std::string& path, tStatus* failure)
{
    return open(path, false, failure);
}

std::unique_ptr<tDataFileReader> tDataFileReader::open(const std::string& path, bool withIndex, tStatus* failure)
{
    std::unique_ptr<tDataFileReader> reader(new tDataFileReader(path));
    tStatus status = reader->load(withIndex);
    if (status)
        return reader;
    if (failure != nullptr)
        *failure = std::move(status);
    return nullptr;
}

tStatus tDataFileReader::load(bool withIndex)
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
        return {tStatus::eCode::eRefused, "not a data file"};
    if (!withIndex)
        return {};

    unsigned char head[sizeof(tIndexHead)] = {};
    m_file.readAt(head, sizeof head, cIndexHeadPos);
    takeSize();  // what the head counts is in the file by now
    readIndex(le::load<std::uint32_t>(head + offsetof(tIndexHead, indexNum)));
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
    struct stat info;
    if (::fstat(m_file.get(), &info) == 0)
        m_size = static_cast<std::uint64_t>(info.st_size);
}

// O_NONBLOCK: opening a pipe or a device that is named like a data file does not wait.
bool tDataFileReader::openFile()
{
    m_file = tDescriptor(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return m_file.valid();
}

bool tDataFileReader::read(std::uint64_t pos, std::size_t len, char* to)
{
    return (m_file.valid() || reopenFile()) && m_file.readAllAt(to, len, pos);
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
void tDataFileReader::readIndex(std::uint32_t indexNum)
{
    // So does that of a file finished without a segment, but such a file ends behind its index head.
    m_finished = indexNum != 0 || m_size == cIndexHeadPos + sizeof(tIndexHead);
    m_emptyEnds = !m_finished && m_form->emptyRecordEnds;
    const std::uint64_t claimed = m_finished ? indexNum : cIndexCapacity;
    const std::uint64_t room = m_size > cIndexPos ? (m_size - cIndexPos) / cIndexSlotSize : 0;
    const auto count = static_cast<std::size_t>(std::min({claimed, room, std::uint64_t{cIndexCapacity}}));
    m_damaged = m_finished ? static_cast<std::size_t>(claimed) - count : 0;
    m_index = tIndexArray(count);
    bool more = true;
    for (std::size_t place = 0; more && place < count; place += cPiece)
        more = readPiece(place, std::min(cPiece, count - place));
    if (m_count < count / 2)
        m_index.shrink(m_count);
}

// Reads `count` records from number `place` on and keeps the whole ones while they are in the cache, with what the play
// order needs. Returns false at the end of the index.
bool tDataFileReader::readPiece(std::size_t place, std::size_t count)
{
    const tFileForm form = *m_form;
    tIndexSlot* const piece = &m_index[place];
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
            ++m_damaged;
    }
    return got == count;
}

void tDataFileReader::keep(const tIndexSlot& slot)
{
    const std::uint64_t time = timeOf(slot);
    const std::uint64_t before = m_count != 0 ? timeOf(m_index[m_count - 1]) : 0;
    m_run = time == before ? m_run + 1 : 1;
    m_longestRun = std::max(m_longestRun, m_run);
    m_sorted &= time >= before;
    if (&m_index[m_count] != &slot)
        m_index[m_count] = slot;
    ++m_count;
}

bool tDataFileReader::isWhole(const tSegmentRecord& record) const
{
    return record.time < cTimeLimit && record.firstBit < 8 && record.firstByte <= m_size &&
           record.bytes() <= m_size - record.firstByte;
}
}  // namespace storage
