#include "KestovaRecordings/internal/microseconds.h"

#include <bit>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "KestovaRecordings/internal/crc32c.h"
#include "KestovaStorage/companions.h"
#include "common/byteorder.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
bool isOf(const storage::tFineTimesHead& head, std::uint64_t firstTimeMs, std::uint64_t firstPos)
{
    if (std::memcmp(head.magic, storage::cFineTimesMagic, sizeof head.magic) != 0 ||
        le::load<std::uint32_t>(&head.version) != storage::cFineTimesVersion)
        return false;
    return std::popcount(le::load<std::uint64_t>(&head.firstTimeMs) ^ firstTimeMs) +
               std::popcount(le::load<std::uint64_t>(&head.firstPos) ^ firstPos) <=
           1;
}
}  // namespace

tMicroseconds::tMicroseconds(const std::string& dataFile, std::uint64_t firstTimeMs, std::uint64_t firstPos,
                             std::size_t records)
{
    const std::string name = storage::fineTimesName(dataFile);
    const tDescriptor file(::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    storage::tFineTimesHead head;
    if (!file.valid() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        !file.readAllAt(&head, sizeof head, 0) || !isOf(head, firstTimeMs, firstPos))
        return;
    m_isOurs = true;
    m_bytes.resize(records * storage::cFineTimeSize);
    m_bytes.resize(file.readAt(m_bytes.data(), m_bytes.size(), storage::cFineTimesPos));
}

std::uint16_t tMicroseconds::of(std::size_t record) const
{
    const std::size_t at = record * storage::cFineTimeSize;
    if (at + storage::cFineTimeSize > m_bytes.size())
        return storage::cNoFineTime;
    const auto us = le::load<std::uint16_t>(&m_bytes[at]);
    return us < storage::cFineTimeLimit ? us : storage::cNoFineTime;
}

std::uint32_t tMicroseconds::checksum() const
{
    return crc32c(0, m_bytes.data(), m_bytes.size());
}
}  // namespace recordings
