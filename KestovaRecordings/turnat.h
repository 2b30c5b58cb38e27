// turnAt: what the radar showed at a moment of a recording.
#ifndef KESTOVA_RECORDINGS_TURNAT_H
#define KESTOVA_RECORDINGS_TURNAT_H

#include <cstdint>
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

struct tTurnAt
{
    tTurn turn;
    std::uint64_t missing = 0;  // messages of spokes that were numbered and never came, during the turn
    utils::tBearingReference reference = utils::eReferenceUnknown;  // of the bearings as they were received
    bool turnedNorth = false;  // every spoke was turned, or came with bearings from north
    tNavigation navigation;
};

// Returns the last 360 degrees that were received up to `atMs`, included, of the first stream of the recording that has
// spokes by one of the layouts, and own ship and targets at that time; less where there was less. Any thread.
KESTOVA_API tTurnAt turnAt(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts,
                           std::uint64_t atMs, eUp up);
}  // namespace recordings

#endif
