// tSpoke: what the antenna received in one direction.
#ifndef KESTOVA_RECORDINGS_SPOKE_H
#define KESTOVA_RECORDINGS_SPOKE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// The echoes of a spoke, from the antenna outwards; a view of packed numbers of 1, 2, 4, 8, 12, 16, 24 or 32 bits. The
// first cell is in the high bits; whole bytes of a cell are in `bigEndian` order.
struct KESTOVA_API tCells
{
    const unsigned char* bytes = nullptr;
    std::uint32_t count = 0;
    std::uint8_t bits = 8;
    bool bigEndian = false;

    std::size_t byteCount() const { return (std::size_t{count} * bits + 7) / 8; }
    // Returns cell number i, which is below count; 0 to fullScale().
    std::uint32_t at(std::size_t i) const;
    std::uint32_t fullScale() const { return bits == 32 ? ~std::uint32_t{0} : (std::uint32_t{1} << bits) - 1; }
    // Writes all cells as one byte each, full scale as 255.
    void toBytes(unsigned char* to) const;
};

// Bearings are turns, 0 to 1, clockwise from the reference. A spoke fills what lies from bearingFrom to bearingTo, over
// 0 where bearingTo is the smaller one.
struct tSpoke
{
    double bearingFrom = 0, bearingTo = 0;
    utils::tBearingReference reference = utils::eReferenceUnknown;
    double firstCellM = 0;  // near edge of the first cell, in metres from the antenna
    double cellM = 0;       // length of a cell in metres; 0: the radar does not say
    tCells cells;
    std::optional<std::uint64_t> sequence;  // of its first message
    std::optional<std::uint64_t> timeMs;    // when the radar received it, since the Unix epoch
};

// What the caller knows of a message.
struct tMessagePlace
{
    std::uint64_t timeMs = 0;  // when it was recorded, since the Unix epoch
    std::uint64_t number = 0;  // the caller's own
};

// Takes what messages hold, in their order. All operations but onSpoke do nothing unless they are overridden.
class iSpokeSink
{
public:
    virtual ~iSpokeSink() = default;
    // `place` is that of the message that ended the spoke; the cells are valid during the call.
    virtual void onSpoke(const tSpoke& spoke, const tMessagePlace& place) = 0;
    // The sequence number of a message, whatever else it holds: `bits` is the width of its counter.
    virtual void onSequence(std::uint64_t /*number*/, unsigned /*bits*/) {}
    virtual void onSummary(std::string_view /*text*/) {}  // about the video; valid during the call
    virtual void onCompressed() {}  // a spoke whose cells are compressed in a way that only its maker knows
};
}  // namespace recordings

#endif
