// What the corners and targets of a picture say.
#ifndef KESTOVA_RECORDINGS_INTERNAL_PICTURETEXTS_H
#define KESTOVA_RECORDINGS_INTERNAL_PICTURETEXTS_H

#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/picture.h"

namespace recordings
{
std::string rangeText(double metres);  // "6 NM", below a tenth of a mile "150 m"
std::string upText(utils::tBearingReference up);

std::vector<std::string> ownShipTexts(const tOwnShip& own);
// What the picture lacks: degrees of the turn, spokes, north.
std::vector<std::string> warningTexts(const tTurn& turn, const tPictureFacts& facts);

// Returns a number, a name, or an mmsi.
std::string labelOf(const tTarget& target);

struct tTargetPlace
{
    double bearingDeg, metres;
    utils::tBearingReference reference;
};
// From own ship; nothing if that is not known.
std::optional<tTargetPlace> placeOf(const tTarget& target, const tOwnShip& own);
}  // namespace recordings

#endif
