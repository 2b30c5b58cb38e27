#include "KestovaRecordings/internal/exports/targetpoint.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace recordings
{
namespace
{
constexpr double cEarthRadiusM = 6'371'008.8, cDegree = std::numbers::pi / 180;

// Along the great circle.
tGeoPoint pointFrom(const tGeoPoint& from, double bearingDeg, double metres)
{
    const double latitude = from.latitudeDeg * cDegree, bearing = bearingDeg * cDegree, arc = metres / cEarthRadiusM;
    const double sine = std::clamp(
        std::sin(latitude) * std::cos(arc) + std::cos(latitude) * std::sin(arc) * std::cos(bearing), -1.0, 1.0);
    const double turned =
        std::atan2(std::sin(bearing) * std::sin(arc) * std::cos(latitude), std::cos(arc) - std::sin(latitude) * sine);
    return {std::asin(sine) / cDegree, std::remainder(from.longitudeDeg + turned / cDegree, 360)};
}
}  // namespace

std::optional<tGeoPoint> pointOf(const tTarget& target, const tOwnShip& own)
{
    if (target.position)
        return target.position;
    const bool isFromBow = target.bearingReference == utils::eReferenceBow;
    if (!target.distanceNm || !target.bearingDeg || !own.position.value ||
        target.bearingReference == utils::eReferenceUnknown || (isFromBow && !own.headingDeg.value))
        return std::nullopt;
    return pointFrom(*own.position.value, *target.bearingDeg + (isFromBow ? *own.headingDeg.value : 0),
                     *target.distanceNm * cMetresPerNm);
}
}  // namespace recordings
