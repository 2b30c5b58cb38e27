// Where a tracked target is, from own ship's place and what the radar measured.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_TARGETPOINT_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_TARGETPOINT_H

#include <optional>

#include "KestovaRecordings/navigation.h"

namespace recordings
{
constexpr double cMetresPerNm = 1852;

// Returns the place that a target sent, or that distance and bearing from own ship give; nothing if neither is known.
std::optional<tGeoPoint> pointOf(const tTarget& target, const tOwnShip& own);
}  // namespace recordings

#endif
