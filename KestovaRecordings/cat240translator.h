// tCat240Translator: the spokes of a radar as ASTERIX category 240.
#ifndef KESTOVA_RECORDINGS_CAT240TRANSLATOR_H
#define KESTOVA_RECORDINGS_CAT240TRANSLATOR_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "KestovaRecordings/spoke.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Translates the messages of one stream. One thread at a time.
//
// Azimuth   a spoke ends where the next one begins, so that it goes out when that one comes. Where numbers are missing
//           between them, or the next one begins 0.02 turn away or more, it is as wide as the one before, and the first
//           as its layout says. Bearings count from where the radar's do: the standard has no word for it.
// Sequence  the radar's own numbers, so that a loss stays one; a counter of fewer than 32 bits goes on beyond its wrap.
//           Radars without numbers get them, from 0 on.
// Time      the radar's, or that of the recording where its spokes have none.
// Cells     those of 12 and 24 bits are widened to full scale; more than a message holds are split by start cell.
// Messages that are category 240 already pass as they are.
class KESTOVA_API tCat240Translator
{
public:
    // Takes a datagram, which is valid during the call, and the place of the message that it stems from.
    using tSend = std::function<void(std::string_view datagram, const tMessagePlace& place)>;

    // `sac` and `sic` are the data source of every datagram that it makes.
    tCat240Translator(std::vector<utils::tSpokeLayout> layouts, std::uint8_t sac, std::uint8_t sic);
    ~tCat240Translator();
    tCat240Translator(tCat240Translator&&) noexcept;
    tCat240Translator& operator=(tCat240Translator&&) noexcept;

    // Returns whether the message holds a spoke by one of the layouts, or is category 240. Sends what is ready.
    bool take(std::string_view message, const tMessagePlace& place, const tSend& send);
    void finish(const tSend& send);  // sends the spoke that waits for the next one

    std::uint64_t spokes() const;   // translated
    std::uint64_t refused() const;  // spokes that the standard has no numbers for: their cells are too long
    std::uint64_t lengthless() const;  // spokes translated with cells of length 0, since their layout gives no range

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
