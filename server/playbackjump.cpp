// Jumps of a playback: where the turn before a place begins, and how records become batches.
#include <algorithm>
#include <vector>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/turn.h"
#include "server/playback.h"
#include "sessions/report/recordrow.h"

namespace server
{
using namespace recordings;
using std::chrono::milliseconds;

namespace
{
constexpr milliseconds cRoomTime{5000};
constexpr std::uint64_t cFirstWindowMs = 4000, cLongestWindowMs = 600'000;
constexpr std::size_t cRoomBytes = 1 << 20;  // that may wait for a viewer before more is read for it
constexpr double cRoomTurns = 0.5;
constexpr std::size_t cMostAtOnce = 4096;  // records between two looks at what is asked

tFedMessage fedOf(const tWalked& record, const std::optional<tPackageContents>& package)
{
    if (!package)
        return {eOtherType, 0, 0, record.bytes, record.timeMs};
    return {package->info.rwType, package->ip, package->port, package->payload, record.timeMs};
}
}  // namespace

void tPlayback::jump(std::uint64_t ms)
{
    if (m_walk->isRecording())
        m_walk->refresh();
    ms = std::clamp(ms, m_walk->firstMs(), std::max(m_walk->firstMs(), m_walk->lastMs()));
    ++m_epoch;
    m_sink.queue().clear(m_picture);
    m_builder = {};
    m_meter.clear();
    m_timeMs = ms;
    m_turns = 0;
    m_isWhole = false;
    sendState();
    prelude(ms);
    setClock(ms);
    sendState();
}

// Returns the time of the spoke that lies so many turns before a place, and how many turns there are at most.
std::uint64_t tPlayback::turnStart(std::uint64_t ms, double turns, double& covered)
{
    struct tPassed
    {
        std::uint64_t timeMs;
        double turned;
    };
    std::vector<tPassed> spokes;
    for (std::uint64_t window = cFirstWindowMs;; window *= 4)
    {
        spokes.clear();
        covered = 0;
        tPictureFeed feed(m_layouts, [&](const tSpoke&, std::uint64_t timeMs, double turned) {
            spokes.push_back({timeMs, turned});
            covered += turned;
        });
        const std::uint64_t fromMs = ms - std::min(ms, window);
        m_walk->seek(fromMs);
        tWalked record;
        for (std::size_t i = 0; m_walk->nextMs().value_or(UINT64_MAX) <= ms && m_walk->next(record); ++i)
        {
            if (const auto package = viewPackage(record.bytes))
                feed.read(fedOf(record, package));
            if (i % cMostAtOnce == 0 && !m_worker.running())
                break;
        }
        if (covered >= turns || fromMs <= m_walk->firstMs() || window >= cLongestWindowMs || isOvertaken())
            break;
    }
    double back = 0;
    for (std::size_t i = spokes.size(); i-- > 0;)
    {
        back += spokes[i].turned;
        if (back >= turns)
            return spokes[i].timeMs;
    }
    return spokes.empty() ? ms : spokes.front().timeMs;
}

// Sends the last turn before a place, the place included, and the sentences that came with it.
void tPlayback::prelude(std::uint64_t ms)
{
    constexpr std::uint64_t cSentencesMs = 10'000;
    double covered = 0;
    const std::uint64_t startMs = turnStart(ms, 1.0, covered);
    m_feed->startAnew();
    m_isSending = false;
    m_walk->seek(startMs - std::min(startMs, cSentencesMs));
    while (m_walk->nextMs().value_or(UINT64_MAX) <= ms)
    {
        const std::uint64_t nextMs = *m_walk->nextMs();
        if (!m_isSending && nextMs >= startMs)
        {
            m_feed->startAnew();
            m_isSending = true;
        }
        if (!feedNext())
            break;
        if (!m_builder.isFull())
            continue;
        flush(cBeforePlace);
        if (!waitForRoom())
            break;
    }
    m_isSending = true;
    m_isWhole = covered >= cWholeTurn;
    flush(cBeforePlace | (m_isWhole ? cWhole : 0));
}

bool tPlayback::hasRoom() const
{
    const auto waiting = m_sink.queue().waiting(m_picture);
    return waiting.bytes < cRoomBytes && waiting.turns < cRoomTurns;
}

// Returns false if there is none, or something else is asked for.
bool tPlayback::waitForRoom()
{
    const auto until = tSteady::now() + cRoomTime;
    for (;;)
    {
        if (hasRoom())
            return true;
        if (isOvertaken() || tSteady::now() >= until || !m_worker.sleepFor(milliseconds(2)))
            return false;
    }
}

bool tPlayback::feedNext()
{
    tWalked record;
    if (!m_walk->next(record))
        return false;
    const auto package = viewPackage(record.bytes);
    const tFedMessage message = fedOf(record, package);
    m_meter.add(session::keyOf(package), record.timeMs * 1000, message.message.size());
    if (package)
        m_feed->read(message);
    return true;
}

void tPlayback::flush(std::uint32_t flags)
{
    m_flushed = tSteady::now();
    if (m_builder.spokes() == 0)
        return;
    m_isWhole = m_isWhole || m_turns >= cWholeTurn;
    m_sink.onBatch(m_picture, m_builder.take({m_source, m_epoch, flags | (m_isWhole ? cWhole : 0), m_number++}));
}
}  // namespace server
