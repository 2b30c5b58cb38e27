#include "KestovaStorage/internal/datafilereader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace storage
{
std::unique_ptr<tDataFileReader> tDataFileReader::open(const std::string& path, std::string* error)
{
    std::unique_ptr<tDataFileReader> reader(new tDataFileReader(path));
    const char* const reason = reader->load();
    if (reason == nullptr)
        return reader;
    if (error != nullptr)
        *error = path + ": " + reason;
    return nullptr;
}

// Null, or why the file is none of ours.
const char* tDataFileReader::load()
{
    if (!openFile())
        return std::strerror(errno);
    struct stat info;
    if (::fstat(m_file.get(), &info) != 0)
        return std::strerror(errno);
    if (!S_ISREG(info.st_mode))
        return "not a regular file";
    m_size = static_cast<std::uint64_t>(info.st_size);

    unsigned char magic[4] = {};
    readAt(magic, sizeof magic, 0);
    m_symbol = static_cast<tFileHeadSymbol>(le::load<std::uint32_t>(magic));
    if (m_symbol != cDataFileHead && m_symbol != cHuffmanFileHead)
        return "not a data file";

    unsigned char head[sizeof(tIndexHead)] = {};
    readAt(head, sizeof head, cIndexHeadPos);
    readIndex(le::load<std::uint32_t>(head + offsetof(tIndexHead, indexNum)));
    return nullptr;
}

// Opening does not wait for a pipe or a device that is named like a data file.
bool tDataFileReader::openFile()
{
    m_file = tDescriptor(::open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return static_cast<bool>(m_file);
}

std::size_t tDataFileReader::readAt(void* to, std::size_t len, std::uint64_t pos) const
{
    std::size_t done = 0;
    while (done < len)
    {
        const ssize_t got =
            ::pread(m_file.get(), static_cast<char*>(to) + done, len - done, static_cast<off_t>(pos + done));
        if (got > 0)
            done += static_cast<std::size_t>(got);
        else if (got == 0 || errno != EINTR)
            break;
    }
    return done;
}

bool tDataFileReader::read(std::uint64_t pos, std::size_t len, char* to)
{
    return (m_file || openFile()) && readAt(to, len, pos) == len;
}

// A file that was never finished says 0 records: it may hold as many as fit.
void tDataFileReader::readIndex(std::uint32_t indexNum)
{
    m_finished = indexNum != 0;
    const std::uint64_t said = m_finished ? indexNum : cIndexCapacity;
    const std::uint64_t room = m_size > cIndexPos ? (m_size - cIndexPos) / cIndexSlotSize : 0;
    const auto count = static_cast<std::size_t>(std::min({said, room, std::uint64_t{cIndexCapacity}}));
    m_damaged = m_finished ? static_cast<std::size_t>(said) - count : 0;
    if (count == 0)
        return;
    m_index.reset(new tIndexSlot[count]);
    const std::size_t bytes = readAt(m_index.get(), count * cIndexSlotSize, cIndexPos);
    keepWholeRecords(bytes / cIndexSlotSize);
    if (m_count < count / 2)  // an unfinished file: give back what its index does not fill
    {
        std::unique_ptr<tIndexSlot[]> exact(new tIndexSlot[m_count]);
        std::copy_n(m_index.get(), m_count, exact.get());
        m_index = std::move(exact);
    }
}

// One pass: leaves out what cannot be, and learns what the play order needs to know.
void tDataFileReader::keepWholeRecords(std::size_t count)
{
    std::uint64_t before = 0;
    std::size_t run = 0;
    for (std::size_t i = 0; i < count && !isEnd(m_index[i]); ++i)
    {
        if (!isWhole(m_index[i]))
        {
            ++m_damaged;
            continue;
        }
        const std::uint64_t time = timeOf(m_index[i]);
        run = time == before ? run + 1 : 1;
        m_longestRun = std::max(m_longestRun, run);
        m_sorted &= time >= before;
        before = time;
        if (m_count != i)
            m_index[m_count] = m_index[i];
        ++m_count;
    }
}

// No time ends every index. In an unfinished one a record without length was cut by the death of its writer.
bool tDataFileReader::isEnd(const tIndexSlot& slot) const
{
    return timeOf(slot) == 0 || (!m_finished && m_symbol == cDataFileHead && decodeNormal(slot).len == 0);
}

bool tDataFileReader::isWhole(const tIndexSlot& slot) const
{
    if (timeOf(slot) >= cTimeLimit)
        return false;
    if (m_symbol == cDataFileHead)
    {
        const tNormalIndexTable record = decodeNormal(slot);
        return record.pos <= m_size && record.len <= m_size - record.pos;
    }
    const tEncodedIndexTable record = decodeEncoded(slot);
    const std::uint64_t bytes = (std::uint64_t{record.firstBitPos} + record.huffmanBits + 7) / 8;
    return record.firstBitPos < 8 && record.firstBytePos <= m_size && bytes <= m_size - record.firstBytePos;
}
}  // namespace storage
