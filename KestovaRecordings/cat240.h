// ASTERIX category 240, radar video: its bytes, read and written.
//
// Source: EUROCONTROL, ASTERIX category 240, radar video transmission, edition 1.3. Everything is big-endian; bits are
// counted from the most significant one of the first byte.
//
// clang-format off
//   data block   u8 240, u16 length of the block with these three bytes, records
//   record       FSPEC (seven items a byte, from its most significant bit on; the last bit: another byte follows), items
//
//   place  item                       bytes
//       1  010 data source                2  u8 SAC, u8 SIC
//       2  000 message type               1  1 summary, 2 video
//       3  020 video record header        4  u32 sequence number of the message
//       4  030 video summary          1 + n  u8 n, n characters
//       5  040 video header nano         12  u16 start and end azimuth (65,536 a turn), u32 start cell, u32 cell duration, ns
//       6  041 video header femto        12  the same, cell duration in fs
//       7  048 resolution                 2  bit 1 compressed, 7 spare; u8 1 to 6 for 1, 2, 4, 8, 16, 32 bits a cell
//       8  049 octets and cells           5  u16 valid octets, u24 valid cells
//       9  050 block low volume     1 + 4 n  u8 n, at most 255
//      10  051 block medium volume 1 + 64 n  at most 255
//      11  052 block high volume  1 + 256 n  at most 254
//      12  140 time of day                3  u24 in 1/128 s since midnight UTC
//      13  RE, reserved expansion         n  its first byte is its length, itself included
//      14  SP, special purpose            n  the same
// clang-format on
#ifndef KESTOVA_RECORDINGS_CAT240_H
#define KESTOVA_RECORDINGS_CAT240_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KestovaRecordings/spoke.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// A video message: a spoke, or the part of one from its start cell on.
struct tCat240Video
{
    std::uint8_t sac = 0, sic = 0;  // the data source
    std::uint32_t sequence = 0;
    std::uint16_t startAzimuth = 0, endAzimuth = 0;  // in 1/65,536 of a turn
    std::uint32_t startCell = 0;                     // number of cells before the first one
    double cellM = 0;                                // length of a cell in metres
    bool compressed = false;                         // `cells` has the bytes alone: count is 0
    tCells cells;                                    // a view of the datagram
    std::uint32_t octets = 0;                        // valid bytes of cells
    std::optional<std::uint32_t> timeOfDay;          // in 1/128 s since midnight UTC
};

struct tCat240Summary
{
    std::uint8_t sac = 0, sic = 0;
    std::string_view text;  // as it came; a view of the datagram
    std::optional<std::uint32_t> timeOfDay;
};

class iCat240Sink
{
public:
    virtual ~iCat240Sink() = default;
    virtual void onVideo(const tCat240Video& video) = 0;
    virtual void onSummary(const tCat240Summary& summary) = 0;
    // A video message that lacks what it must have, or whose counts are wrong: its source and number alone. Does
    // nothing unless it is overridden.
    virtual void onDamagedVideo(const tCat240Video& /*video*/) {}
};

// Reads the data blocks of a datagram. Returns false if a part of it is no category 240: what comes before has been
// passed on; blocks of other categories are passed over. Any thread.
KESTOVA_API bool readCat240(std::string_view datagram, iCat240Sink& sink);

constexpr std::size_t cCat240LargestCells = 65'024;  // bytes of cells in a message

// Appends one data block with one video message to `datagram`. Cells of 12 and 24 bits are widened to 16 and 32, full
// scale to full scale. The header is in femtoseconds, or in nanoseconds for cells longer than 643 m. Returns false, and
// appends nothing, if the cells take more than cCat240LargestCells bytes or are compressed, or the cells are too long
// to be written (643,000 km). Any thread.
KESTOVA_API bool appendCat240(const tCat240Video& video, std::string& datagram);

// Returns the time of a time of day: the one nearest to `nearMs`, both in ms since the Unix epoch.
KESTOVA_API std::uint64_t timeOfDayNear(std::uint32_t timeOfDay, std::uint64_t nearMs);
// Returns the time of day nearest to a time in ms since the Unix epoch.
KESTOVA_API std::uint32_t timeOfDayAt(std::uint64_t timeMs);
}  // namespace recordings

#endif
