#include <cmath>

#include "KestovaRecordings/internal/turnreader.h"

namespace recordings
{
namespace
{
// Where the antenna goes over bearing 0.
class tZeroCrossings
{
public:
    // Takes the bearing of the next spoke. Returns whether a turn ended before it.
    bool goTo(double bearing)
    {
        if (!m_begun)
        {
            m_begun = true;
            m_last = bearing;
            return false;
        }
        const double ahead = std::remainder(bearing - m_last, 1.0);  // -0.5 to 0.5 of a turn
        const bool crosses = ahead > 0 ? bearing < m_last : bearing > m_last;
        m_last = bearing;
        m_turned += ahead;
        if (!crosses || (m_crossed && std::abs(m_turned) < cLeast))
            return false;
        m_crossed = true;
        m_turned = 0;
        return true;
    }

private:
    static constexpr double cLeast = 0.5;  // of a turn, between two crossings

    bool m_begun = false, m_crossed = false;
    double m_last = 0, m_turned = 0;  // since the last crossing
};
}  // namespace

bool forEachRevolution(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts, eUp up,
                       const std::function<bool(const tTurnAt& turn)>& visit,
                       const std::function<bool(std::uint64_t timeMs)>& goOn)
{
    tTurnReader reader(layouts, up);
    tZeroCrossings crossings;
    bool goesOn = true;
    reader.callBefore([&](const tSpoke& spoke, double turned) {
        if (!goesOn || !crossings.goTo(spoke.bearingFrom))
            return;
        reader.turn().turn.endAt(spoke.bearingFrom + turned);
        goesOn = visit(reader.turn());
        reader.beginTurn();
    });
    recording.forEachPackage(
        0, UINT64_MAX, [](tReadWriteType) { return true; },
        [&](std::uint64_t timeMs, const tPackageContents& package) {
            reader.read(timeMs, package);
            goesOn = goesOn && (!goOn || goOn(timeMs));
            return goesOn;
        });
    reader.finish();
    // A recording may end with a turn, before the first spoke of the next one.
    const bool isFinished = goesOn && reader.turn().turn.covered() >= cWholeTurn;
    return isFinished ? visit(reader.turn()) : goesOn;
}
}  // namespace recordings
