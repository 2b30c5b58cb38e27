// tCat240Translator: the spokes of recorded radars as ASTERIX category 240.
#ifndef KESTOVA_RECORDINGS_CAT240TRANSLATOR_H
#define KESTOVA_RECORDINGS_CAT240TRANSLATOR_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/spoke.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Spokes that are not what they were.
struct tCat240Tally
{
    std::uint64_t refused = 0;     // not sent: their cells are too long for the standard
    std::uint64_t lengthless = 0;  // sent with cells of length 0: their layout gives no range
};

// Takes the messages of a recording in their order. One thread at a time.
//
// Source    SAC 0; SIC 1 for the group that spokes came from first, 2 for the next one, up to 255.
// Azimuth   a spoke ends where the next one of its group begins, so that it goes out when that one comes. Where numbers
//           are missing between them, or the next one begins 0.02 turn away or more, it is as wide as the one before,
//           and the first as its layout says. Bearings count from where the radar's do: the standard has no word for
//           it.
// Sequence  the radar's own numbers, so that a loss stays one; a counter of fewer than 32 bits goes on beyond its wrap.
//           Radars without numbers get them, from 0 on.
// Time      the radar's, or that of the recording where its spokes have none.
// Cells     those of 12 and 24 bits are widened to full scale; more than a message holds are split by start cell.
// Messages that are category 240 already pass as they are. Sensors, targets, states and commands hold no spokes.
class KESTOVA_API tCat240Translator
{
public:
    // Takes a datagram, which is valid during the call, and the place of the message that it stems from.
    using tSend = std::function<void(std::string_view datagram, const tMessagePlace& place)>;

    explicit tCat240Translator(std::vector<utils::tSpokeLayout> layouts);
    ~tCat240Translator();
    tCat240Translator(const tCat240Translator&) = delete;
    tCat240Translator& operator=(const tCat240Translator&) = delete;

    // Returns whether the message is a spoke by one of the layouts, or is category 240. Sends what is ready.
    bool take(const tPackageContents& message, const tMessagePlace& place, const tSend& send);
    void finish(const tSend& send);  // sends the spokes that wait for the next one

    tCat240Tally tally() const;

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
