#include "KestovaRecordings/turnat.h"

#include <algorithm>
#include <utility>

#include "KestovaRecordings/internal/turnreader.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cFirstWindowMs = 4'000, cLongestWindowMs = 4'194'304'000;

struct tSearch
{
    const tTimeRange& recording;
    const std::vector<utils::tSpokeLayout>& layouts;
    eUp up;
    std::uint64_t atMs;

    std::uint64_t before(std::uint64_t fromMs, std::uint64_t ms) const { return fromMs - std::min(fromMs, ms); }
    // Spokes from `fromMs` on, and the sentences that count for them.
    void read(std::uint64_t fromMs, tTurnReader& reader) const
    {
        recording.forEachPackage(
            before(fromMs, cHeadingForMs), atMs, [](tReadWriteType) { return true; },
            [&](std::uint64_t timeMs, const tPackageContents& package) {
                if (timeMs >= fromMs || !isImage(package.info.rwType))
                    reader.read(timeMs, package);
                return true;
            });
        reader.finish();
    }
};

// Counted from the turn's first spoke on: what was missing before it does not matter.
std::uint64_t missingIn(const tSearch& search, const tTurn& turn, const std::optional<tTurnReader::tGroup>& group)
{
    tTurnReader reader(search.layouts, search.up, group);
    search.read(turn.firstMs(), reader);
    return reader.turn().missing;
}
}  // namespace

// Looks back further until the turn is whole: nobody knows how fast an antenna turns before it has been seen.
tTurnAt turnAt(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts, std::uint64_t atMs, eUp up)
{
    const tSearch search{recording, layouts, up, atMs};
    for (std::uint64_t window = cFirstWindowMs;; window *= 4)
    {
        tTurnReader reader(layouts, up);
        search.read(search.before(atMs, window), reader);
        const bool isAll = search.before(atMs, window) <= recording.firstMs() || window >= cLongestWindowMs;
        if (reader.turn().turn.covered() < cWholeTurn && !isAll)
            continue;
        tTurnAt result = std::move(reader.turn());
        result.missing = missingIn(search, result.turn, reader.group());
        return result;
    }
}
}  // namespace recordings
