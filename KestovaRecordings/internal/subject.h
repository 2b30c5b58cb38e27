// Whom a sentence speaks of.
#ifndef KESTOVA_RECORDINGS_INTERNAL_SUBJECT_H
#define KESTOVA_RECORDINGS_INTERNAL_SUBJECT_H

#include <optional>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/sentence.h"

namespace recordings
{
enum class eSubject
{
    eNobody,  // a target of which nobody knows which one
    eOwnShip,
    eTracked,  // a target that the radar tracks
    eStation   // another ship or a station that sends AIS
};

inline eSubject subjectOf(const tSentence& sentence)
{
    const bool isAis = sentence.mmsi.has_value();
    if (sentence.type == "VDO")
        return eSubject::eOwnShip;
    if (isAis || sentence.target)
        return isAis ? eSubject::eStation : eSubject::eTracked;
    const bool isOfTarget = sentence.type == "TTM" || sentence.type == "TLL" || sentence.type == "VDM";
    return isOfTarget ? eSubject::eNobody : eSubject::eOwnShip;
}

inline std::optional<tGeoPoint> pointIn(const tSentence& sentence)
{
    if (!sentence.latitudeDeg || !sentence.longitudeDeg)
        return std::nullopt;
    return tGeoPoint{*sentence.latitudeDeg, *sentence.longitudeDeg};
}
}  // namespace recordings

#endif
