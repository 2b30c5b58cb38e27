// tMicroseconds: the microseconds beside a data file, by the number of the record in its index, for a file that
// tDataFile cannot open or of which it leaves records out.
#ifndef KESTOVA_RECORDINGS_MICROSECONDS_H
#define KESTOVA_RECORDINGS_MICROSECONDS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KestovaStorage/finetimesformat.h"

namespace recordings
{
class tMicroseconds
{
public:
    // Reads those of the first `records` records, if they are the data file's: it has this first record.
    tMicroseconds(const std::string& dataFile, std::uint64_t firstTimeMs, std::uint64_t firstPos, std::size_t records);

    explicit operator bool() const { return m_isOurs; }
    std::uint16_t of(std::size_t record) const;  // storage::cNoFineTime where it is not known
    std::uint32_t checksum() const;              // CRC32C of what was read

private:
    bool m_isOurs = false;
    std::vector<unsigned char> m_bytes;
};
}  // namespace recordings

#endif
