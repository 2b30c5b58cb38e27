#include "KestovaRecordings/internal/picturetexts.h"

#include <cmath>
#include <fmt/format.h>
#include <numbers>

namespace recordings
{
namespace
{
constexpr double cMetresPerNm = 1852, cDegrees = 360, cEarthRadiusM = 6'371'008.8;

double radians(double degrees)
{
    return degrees * std::numbers::pi / 180;
}

// 54°06.012' N
std::string angleText(double degrees, int width, char positive, char negative)
{
    const double minutes = std::round(std::abs(degrees) * 60'000) / 1000;
    const double whole = std::floor(minutes / 60);
    return fmt::format("{:0{}.0f}\u00B0{:06.3f}\u2032 {}", whole, width, minutes - whole * 60,
                       degrees < 0 ? negative : positive);
}
}  // namespace

std::string rangeText(double metres)
{
    const double miles = metres / cMetresPerNm;
    return miles >= 0.1 ? fmt::format("{:.3g} NM", miles) : fmt::format("{:.0f} m", metres);
}

std::string upText(utils::tBearingReference up)
{
    return up == utils::eReferenceNorth ? "north up" : up == utils::eReferenceBow ? "head up" : "up not known";
}

std::vector<std::string> ownShipTexts(const tOwnShip& own)
{
    std::vector<std::string> lines;
    if (own.position.value)
    {
        lines.push_back(angleText(own.position.value->latitudeDeg, 2, 'N', 'S'));
        lines.push_back(angleText(own.position.value->longitudeDeg, 3, 'E', 'W'));
    }
    if (own.headingDeg.value)
        lines.push_back(fmt::format("HDG {:05.1f}\u00B0", *own.headingDeg.value));
    if (own.speedKn.value)
        lines.push_back(fmt::format("SOG {:.1f} kn", *own.speedKn.value));
    return lines;
}

std::vector<std::string> warningTexts(const tTurn& turn, const tPictureFacts& facts)
{
    std::vector<std::string> lines;
    if (!facts.remark.empty())
        lines.push_back(facts.remark);
    const double shown = turn.shown();
    if (shown < cWholeTurn)
        lines.push_back(fmt::format("{:.0f}\u00B0 of 360\u00B0", shown * cDegrees));
    if (facts.missing)
        lines.push_back(fmt::format("{} spokes lost", *facts.missing));
    return lines;
}

std::string labelOf(const tTarget& target)
{
    return target.name.empty() ? std::to_string(target.number) : target.name;
}

std::optional<tTargetPlace> placeOf(const tTarget& target, const tOwnShip& own)
{
    if (target.distanceNm && target.bearingDeg && target.bearingReference != utils::eReferenceUnknown)
        return tTargetPlace{*target.bearingDeg, *target.distanceNm * cMetresPerNm, target.bearingReference};
    if (!target.position || !own.position.value)
        return std::nullopt;
    const tGeoPoint &there = *target.position, &here = *own.position.value;
    const double north = radians(there.latitudeDeg - here.latitudeDeg) * cEarthRadiusM;
    double turned = there.longitudeDeg - here.longitudeDeg;
    turned -= cDegrees * std::round(turned / cDegrees);
    const double east = radians(turned) * cEarthRadiusM * std::cos(radians(here.latitudeDeg));
    return tTargetPlace{std::atan2(east, north) * 180 / std::numbers::pi, std::hypot(east, north),
                        utils::eReferenceNorth};
}

tPictureFacts factsOf(const tTurnAt& turn)
{
    tPictureFacts facts;
    if (turn.isNumbered)
        facts.missing = turn.missing;
    facts.up = turn.up;
    facts.own = turn.navigation.own();
    facts.targets = turn.navigation.targets(turn.turn.lastMs());
    if (turn.isHeadingOld)
        facts.remark = "heading is old";
    return facts;
}
}  // namespace recordings
