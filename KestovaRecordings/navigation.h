// tNavigation: own ship and the targets around it, as the sentences of a recording tell.
#ifndef KESTOVA_RECORDINGS_NAVIGATION_H
#define KESTOVA_RECORDINGS_NAVIGATION_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestovaRecordings/sentence.h"
#include "KestovaRecordings/timerange.h"
#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tGeoPoint
{
    double latitudeDeg, longitudeDeg;  // north and east positive
};

// The latest value that a sentence gave, and when that was recorded, in ms since the Unix epoch.
template <typename tValue>
struct tLast
{
    std::optional<tValue> value;
    std::uint64_t timeMs = 0;

    void set(const std::optional<tValue>& next, std::uint64_t now)
    {
        if (!next || now < timeMs)
            return;
        value = next;
        timeMs = now;
    }
};

struct tOwnShip
{
    tLast<tGeoPoint> position;
    tLast<double> headingDeg;  // true
    tLast<double> courseDeg, speedKn;
    tLast<double> depthM;
};

// A target that the radar tracks (ARPA), or a station that sends AIS.
struct tTarget
{
    bool isAis = false;
    std::uint32_t number = 0;  // of the target; of a station its mmsi
    std::string name;          // empty: not known
    std::optional<tGeoPoint> position;
    std::optional<double> distanceNm, bearingDeg;  // from own ship; of a tracked target
    utils::tBearingReference bearingReference = utils::eReferenceUnknown;
    std::optional<double> courseDeg, speedKn, headingDeg;
    char status = 0;           // of a tracked target: L lost, Q being acquired, T tracked; 0: not said
    std::uint64_t lastMs = 0;  // when it was heard last
};

// One thread at a time. Holds at most 10,000 targets; of more the new ones are passed over until others are forgotten.
class KESTOVA_API tNavigation
{
public:
    // Takes a sentence in order of time; `timeMs` is when it was recorded.
    void add(const tSentence& sentence, std::uint64_t timeMs);

    const tOwnShip& own() const { return m_own; }
    // Returns what was heard lately at `nowMs`: tracked targets in the 30 s before, stations in the 6 minutes before.
    // Tracked targets come first, each kind by number.
    std::vector<tTarget> targets(std::uint64_t nowMs) const;

private:
    using tKey = std::pair<bool, std::uint32_t>;  // isAis, number

    void addOwn(const tSentence& sentence, std::uint64_t timeMs);
    tTarget* targetFor(const tKey& key, std::uint64_t timeMs);

    tOwnShip m_own;
    std::map<tKey, tTarget> m_targets;
};

// Returns own ship and targets as they were at `atMs`, from the sentences that were recorded in the 6 minutes before,
// on every stream but the image streams. Any thread.
KESTOVA_API tNavigation navigationAt(const tTimeRange& recording, std::uint64_t atMs);
}  // namespace recordings

#endif
