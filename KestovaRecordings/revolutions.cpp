#include "KestovaRecordings/internal/turnreader.h"
#include "KestovaRecordings/zerocrossings.h"

namespace recordings
{
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
