// turnAt: what the radar showed at a moment of a recording.
#ifndef KESTOVA_RECORDINGS_TURNAT_H
#define KESTOVA_RECORDINGS_TURNAT_H

#include <cstdint>
#include <functional>
#include <vector>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/timerange.h"
#include "KestovaRecordings/turn.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Where an image's bearings count from.
enum class eUp
{
    eAsReceived,
    eNorth  // bearings from the bow are turned by own ship's heading at their time; others stay
};

constexpr std::uint64_t cHeadingForMs = 10'000;  // after which a heading counts no more

struct tTurnAt
{
    tTurn turn;
    bool isNumbered = false;    // spokes carry numbers
    std::uint64_t missing = 0;  // messages of spokes that were numbered and never came, during the turn
    utils::tBearingReference reference = utils::eReferenceUnknown;  // of the bearings as they were received
    utils::tBearingReference up = utils::eReferenceUnknown;         // of the turn's
    bool isHeadingOld = false;  // some spokes were turned by a heading that was older than cHeadingForMs
    tNavigation navigation;
};

// Returns the last 360 degrees that were received up to `atMs`, included, of the first stream of the recording that has
// spokes by one of the layouts, and own ship and targets at that time; less where there was less. Any thread.
KESTOVA_API tTurnAt turnAt(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts,
                           std::uint64_t atMs, eUp up);

// Calls `visit` for each turn from bearing 0 to bearing 0, in the order of recording, for the first stream that has
// spokes by one of the layouts. Of the first turn there is what was recorded; one that the recording does not finish is
// left out. `turn` is valid during the call, which returns whether to go on, as `goOn` does, unless it is empty: it is
// called with the time of every package. Returns false if a call did. An antenna that swings to and fro over 0 begins
// no other turn before it has turned by half. Any thread.
KESTOVA_API bool forEachRevolution(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts, eUp up,
                                   const std::function<bool(const tTurnAt& turn)>& visit,
                                   const std::function<bool(std::uint64_t timeMs)>& goOn = {});
}  // namespace recordings

#endif
