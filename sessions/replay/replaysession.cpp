#include "sessions/replay/replaysession.h"

#include <algorithm>
#include <fmt/format.h>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datafile.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/localaddress.h"

namespace session
{
using namespace recordings;

namespace
{
// Returns the files to play. Throws tFailure if none of them has a readable record.
std::vector<std::string> playableFiles(const tReplayOptions& options)
{
    std::string reason = "it holds no records";
    std::vector<std::string> files = findRecordings(options.path, options.suffix);
    for (const std::string& path : files)
    {
        storage::tDataFile file;
        if (!file.open(path, &reason))
            continue;
        if (isReadable(file))
            return files;
        reason = path + " holds no records";
    }
    throw tFailure(fmt::format("nothing to play in {}: {}", options.path, reason));
}

std::unique_ptr<iReplayer> createReplayer(tReplayProgress& progress, const tReplayOptions& options,
                                          const std::string& localIp)
{
    if (!options.net)
        return makeCountingReplayer(progress, options.streams, options.suffix);
    return makeNetworkReplayer(progress, options.streams, options.suffix, localIp, options.map);
}

double fractionOf(std::uint64_t timeMs, const tReplayState& state)
{
    const double span = static_cast<double>(state.lastMs - state.firstMs);
    // A quarter of a millisecond early: rounding must not skip the records at the target.
    const double offset = static_cast<double>(timeMs) - static_cast<double>(state.firstMs) - 0.25;
    return span > 0.0 ? std::max(0.0, offset / span) : 0.0;
}
}  // namespace

tReplaySession::tReplaySession(const tReplayOptions& options)
    : m_options(options), m_localIp(options.localIp.empty() ? "" : net::transAddr(localAddress(options.localIp))),
      m_files(playableFiles(options)), m_pace(tPace::of(options.speed)),
      m_progress([this](const tReplayState& state) { begin(state); }),
      m_replayer(createReplayer(m_progress, options, m_localIp))
{}

void tReplaySession::open()
{
    m_replayer->open(m_options.path);
}

void tReplaySession::close()
{
    m_replayer->close();
}

// On the replay thread, before the first record.
void tReplaySession::begin(const tReplayState& state)
{
    m_passes = 1;
    m_startMs = state.firstMs;
    if (m_options.start)
        m_startMs =
            std::max(m_startMs,
                     static_cast<std::uint64_t>(std::max(0.0, m_options.start->resolve(state.firstMs, state.lastMs))));
    m_replayer->setSpeed(m_pace.rate());
    if (m_startMs > state.lastMs)
        m_replayer->close();  // nothing to play
    else if (m_startMs > state.firstMs)
    {
        m_progress.beginJump();
        m_replayer->jump(fractionOf(m_startMs, state));
    }
}

void tReplaySession::togglePause()
{
    if (!m_replayer->pause(!m_paused))
        return;
    m_paused = !m_paused;
    m_progress.beginStretch();
}

void tReplaySession::setPace(tPace pace)
{
    m_pace = pace;
    m_replayer->setSpeed(m_pace.rate());
}

void tReplaySession::jumpTo(std::int64_t timeMs)
{
    const tReplayState state = m_progress.state();
    const std::uint64_t target =
        std::clamp(static_cast<std::uint64_t>(std::max<std::int64_t>(timeMs, 0)), state.firstMs, state.lastMs);
    m_progress.beginJump();
    if (m_replayer->jump(fractionOf(target, state)))
        m_paused = false;
}

bool tReplaySession::nextPass()
{
    if (m_passes == m_options.passes)
        return false;
    ++m_passes;
    jumpTo(static_cast<std::int64_t>(m_startMs));
    return true;
}

std::uint64_t tReplaySession::countDamaged() const
{
    std::uint64_t damaged = m_replayer->unplayed();
    for (const std::string& path : m_files)
    {
        storage::tDataFile file;
        damaged += file.open(path) ? file.damagedCount() : 0;
    }
    return damaged;
}
}  // namespace session
