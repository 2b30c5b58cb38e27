#include "KestovaRecordings/internal/fileglance.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "KestovaStorage/datafile.h"
#include "common/byteorder.h"
#include "common/descriptor.h"

namespace recordings
{
using namespace storage;

namespace
{
constexpr std::uint64_t cStatBlock = 512;  // of st_blocks, whatever the file system's own is
constexpr std::size_t cBeginning = cIndexPos + cIndexSlotSize;

class tGlancer
{
public:
    explicit tGlancer(tDescriptor file) : m_file(std::move(file)) {}

    std::optional<tFileGlance> look(std::string& why)
    {
        struct stat info;
        if (::fstat(m_file.get(), &info) != 0)
            return refuse(why, std::strerror(errno));
        if (!S_ISREG(info.st_mode))
            return refuse(why, "not a regular file");
        m_found.size = static_cast<std::uint64_t>(info.st_size);
        m_found.sizeOnDisk = static_cast<std::uint64_t>(info.st_blocks) * cStatBlock;
        unsigned char beginning[cBeginning] = {};
        m_file.readAt(beginning, sizeof beginning, 0);
        const auto magic = le::load<std::uint32_t>(beginning);
        m_found.form = static_cast<tFileHeadSymbol>(magic);
        // A file that its recorder has just created is empty.
        if (m_found.size != 0 && std::strcmp(fileFormName(m_found.form), "unknown") == 0)
            return refuse(why, "not a data file");
        lookAtIndex(le::load<std::uint32_t>(beginning + cIndexHeadPos), beginning + cIndexPos);
        return m_found;
    }

private:
    static std::nullopt_t refuse(std::string& why, const char* text)
    {
        why = text;
        return std::nullopt;
    }

    // The head of an unfinished index counts no record; so does that of a file finished without any, which ends there.
    void lookAtIndex(std::uint32_t indexNum, const unsigned char* firstSlot)
    {
        const bool isFinished = indexNum != 0 || m_found.size == cIndexHeadPos + sizeof(tIndexHead);
        if (!isFinished)
            m_found.state = isLocked() ? eRecordingState::eRecording : eRecordingState::eUnfinished;
        m_found.records = isFinished ? indexNum : countUnfinished();
        if (m_found.records == 0)
            return;
        tIndexSlot slot;
        std::memcpy(slot.data(), firstSlot, slot.size());
        if (timeOf(slot) == 0)
            readSlot(0, slot);  // it was written meanwhile
        m_found.first = slot;
        const std::uint64_t held = (m_found.size - std::min(m_found.size, cIndexPos)) / cIndexSlotSize;
        const std::uint64_t usable = std::min({m_found.records, held, std::uint64_t{cIndexCapacity}});
        tIndexSlot last = slot;
        const bool isRead = usable <= 1 || readSlot(usable - 1, last);
        takeTimes(timeOf(slot), timeOf(last));
        if (usable < m_found.records || !isRead || !isWhole(slot) || !isWhole(last))
            m_found.state = eRecordingState::eDamaged;
    }

    void takeTimes(std::uint64_t first, std::uint64_t last)
    {
        const bool isFirst = isTime(first), isLast = isTime(last);
        m_found.firstMs = std::min(isFirst ? first : last, isLast ? last : first);
        m_found.lastMs = std::max(isFirst ? first : 0, isLast ? last : 0);
        if (!isFirst && !isLast)
            m_found.firstMs = 0;
    }

    bool isLocked() const { return ::flock(m_file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; }

    // The slots of an unfinished index are written in order; behind them the file has zeros.
    std::uint64_t countUnfinished() const
    {
        const std::uint64_t held = (m_found.size - std::min(m_found.size, cIndexPos)) / cIndexSlotSize;
        std::uint64_t from = 0, to = std::min(held, std::uint64_t{cIndexCapacity});
        while (from < to)
        {
            const std::uint64_t middle = (from + to) / 2;
            tIndexSlot slot;
            if (readSlot(middle, slot) && timeOf(slot) != 0 && lengthOf(slot) != 0)
                from = middle + 1;
            else
                to = middle;
        }
        return from;
    }

    bool readSlot(std::uint64_t number, tIndexSlot& slot) const
    {
        return m_file.readAllAt(slot.data(), slot.size(), cIndexPos + number * cIndexSlotSize);
    }

    static bool isTime(std::uint64_t timeMs) { return timeMs != 0 && timeMs < cTimeLimit; }

    // While a file is recorded its size may be older than the index.
    bool isWhole(const tIndexSlot& slot) const
    {
        const tEncodedIndexTable record = decodeEncoded(slot);
        const std::uint64_t length = m_found.form == cDataFileHead
                                         ? record.huffmanBits
                                         : (std::uint64_t{record.huffmanBits} + (record.firstBitPos & 7u) + 7) / 8;
        struct stat info;
        const auto fits = [&](std::uint64_t size) {
            return record.firstBytePos <= size && length <= size - record.firstBytePos;
        };
        return isTime(record.tim) && (fits(m_found.size) || (::fstat(m_file.get(), &info) == 0 &&
                                                             fits(static_cast<std::uint64_t>(info.st_size))));
    }

    tDescriptor m_file;
    tFileGlance m_found;
};
}  // namespace

// O_NONBLOCK: opening a pipe or a device that is named like a data file does not wait.
std::optional<tFileGlance> glanceAt(int folder, const char* name, std::string& why)
{
    tDescriptor file(::openat(folder, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid())
    {
        why = std::strerror(errno);
        return std::nullopt;
    }
    return tGlancer(std::move(file)).look(why);
}
}  // namespace recordings
