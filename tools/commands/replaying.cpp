#include "tools/commands/replaying.h"

#include <algorithm>
#include <fmt/format.h>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datafile.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"

#include "tools/shell/units.h"

namespace tool
{
namespace
{
using std::chrono::milliseconds;

constexpr std::int64_t cArrowMs = 10'000;
constexpr std::int64_t cFarArrowMs = 60'000;

std::unique_ptr<iPlayer> makePlayer(tReplaySession& session, const tReplayOptions& options)
{
    const tStreamChoice streams = parseStreams(options.streams);
    if (!options.net)
        return makeTerminalPlayer(session, streams, options.suffix);
    tAddressMap map;
    for (const std::string& rule : options.maps)
        map.add(rule);
    return makeNetworkPlayer(session, streams, options.suffix, options.localIp, map);
}

double fractionOf(std::uint64_t timeMs, const tReplayState& state)
{
    const double span = static_cast<double>(state.lastMs - state.firstMs);
    // A quarter of a millisecond early, so that no rounding can leave out the records of the very start.
    const double offset = static_cast<double>(timeMs) - static_cast<double>(state.firstMs) - 0.25;
    return span > 0.0 ? std::max(0.0, offset / span) : 0.0;
}

double pace(const tReplayState& state)
{
    return state.tookMs == 0 ? 0.0 : static_cast<double>(state.playedMs) / static_cast<double>(state.tookMs);
}
}  // namespace

tReplay::tReplay(const tReplayOptions& options, std::vector<std::string> files, tConsole& console)
    : m_options(options), m_files(std::move(files)), m_console(console), m_pace(tPace::of(options.speed)),
      m_session([this](const tReplayState& state) { begin(state); }), m_player(makePlayer(m_session, options))
{}

int tReplay::run()
{
    m_player->open(m_options.path);
    if (waitForOpening())
        playAll();
    m_player->close();
    return report();
}

// On the replay thread, before the first record.
void tReplay::begin(const tReplayState& state)
{
    m_startMs = state.firstMs;
    if (!m_options.start.empty())
        m_startMs = std::max(m_startMs, static_cast<std::uint64_t>(std::max(
                                            0.0, parseMoment(m_options.start).resolve(state.firstMs, state.lastMs))));
    m_player->setSpeed(m_pace.rate());
    if (m_startMs > state.lastMs)
        m_player->close();  // nothing to play; said by the main thread
    else if (m_startMs > state.firstMs)
    {
        m_session.beginJump();
        m_player->jump(fractionOf(m_startMs, state));
    }
}

// False if the end was asked for first.
bool tReplay::waitForOpening()
{
    while (!m_session.state().opened)
    {
        if (m_stop.wait(milliseconds(2)))
            return false;
    }
    const tReplayState state = m_session.state();
    if (m_startMs > state.lastMs)
        throw tFailure(fmt::format("--start {} lies behind the end: the recording lasts {}", m_options.start,
                                   durationText(state.lastMs - state.firstMs)));
    m_console.note(fmt::format("playing {} to {} at {:.2g}x{}", localTimeText(m_startMs), localTimeText(state.lastMs),
                               m_pace.factor(), m_options.net ? " onto the network" : ""));
    if (m_steering.active())
        m_console.note(
            "space pauses, left and right jump 10 s, up and down a minute, + and - change the speed, q ends");
    return true;
}

void tReplay::playAll()
{
    for (m_passes = 1;; ++m_passes)
    {
        if (!playToEnd() || m_passes == m_options.passes)
            return;
        jumpTo(static_cast<std::int64_t>(m_startMs));
    }
}

// False if the end was asked for first.
bool tReplay::playToEnd()
{
    m_ended = false;
    while (!m_session.state().ended)
    {
        if (m_stop.wait(milliseconds(20)) || !steer())
            return false;
        if (m_console.progressDue())
            showProgress();
    }
    m_ended = true;
    return true;
}

// False once the key that ends was pressed.
bool tReplay::steer()
{
    for (const eKey key : m_steering.pressed())
    {
        if (key == eKey::eQuit)
            return false;
        press(key);
    }
    return true;
}

void tReplay::press(eKey key)
{
    const auto now = static_cast<std::int64_t>(m_session.state().timeMs);
    switch (key)
    {
    case eKey::ePause:
        return togglePause();
    case eKey::eForward:
        return jumpTo(now + cArrowMs);
    case eKey::eBack:
        return jumpTo(now - cArrowMs);
    case eKey::eFarForward:
        return jumpTo(now + cFarArrowMs);
    case eKey::eFarBack:
        return jumpTo(now - cFarArrowMs);
    case eKey::eFaster:
        return setPace(m_pace.faster());
    case eKey::eSlower:
        return setPace(m_pace.slower());
    case eKey::eQuit:
        return;
    }
}

void tReplay::togglePause()
{
    if (!m_player->pause(!m_paused))
        return;
    m_paused = !m_paused;
    m_session.beginStretch();
}

void tReplay::setPace(tPace pace)
{
    m_pace = pace;
    m_player->setSpeed(m_pace.rate());
}

// A jump goes on playing, from pause too.
void tReplay::jumpTo(std::int64_t timeMs)
{
    const tReplayState state = m_session.state();
    const std::uint64_t target =
        std::clamp(static_cast<std::uint64_t>(std::max<std::int64_t>(timeMs, 0)), state.firstMs, state.lastMs);
    m_session.beginJump();
    if (m_player->jump(fractionOf(target, state)))
        m_paused = false;
}

void tReplay::showProgress()
{
    const tReplayState state = m_session.state();
    m_console.progress(fmt::format("{}  {:>7}  {:.2g}x  {} {}  {}{}", localTimeText(state.timeMs),
                                   percentText(state.progress), m_pace.factor(),
                                   m_options.net ? m_player->sent() : state.records, m_options.net ? "sent" : "records",
                                   sizeText(total(m_session.table()).bytes), m_paused ? "  paused" : ""));
}

// Damaged in the files, and what could not be played of the rest.
std::uint64_t tReplay::countDamaged() const
{
    std::uint64_t damaged = m_player->unplayed();
    for (const std::string& path : m_files)
    {
        storage::tDataFile file;
        damaged += file.open(path) ? file.damagedCount() : 0;
    }
    return damaged;
}

int tReplay::report()
{
    const std::uint64_t damaged = countDamaged();
    if (m_options.json)
        printJson(m_console, json(damaged));
    else
        m_console.print(text());
    if (damaged != 0)
        m_console.note(fmt::format("kestova replay: {} damaged records were skipped; see kestova info", damaged));
    if (m_player->refused() != 0)
        m_console.note(fmt::format("kestova replay: the network refused {} records", m_player->refused()));
    return damaged == 0 && m_player->refused() == 0 ? eDone : eDamaged;
}

tJson tReplay::json(std::uint64_t damaged) const
{
    const tReplayState state = m_session.state();
    tJson result = {{"schema", "kestova/replay/1"},
                    {"path", m_options.path},
                    {"first_ms", state.firstMs},
                    {"last_ms", state.lastMs},
                    {"start_ms", m_startMs},
                    {"speed", m_pace.factor()},
                    {"passes", m_passes},
                    {"ended", m_ended},
                    {"played_ms", state.playedMs},
                    {"took_ms", state.tookMs},
                    {"pace", pace(state)},
                    {"records", state.records},
                    {"bytes", total(m_session.table()).bytes},
                    {"damaged", damaged}};
    if (m_options.net)
    {
        result["sent"] = m_player->sent();
        result["refused"] = m_player->refused();
    }
    result["streams"] = streamsJson(m_session.table(), "records");
    return result;
}

std::string tReplay::text() const
{
    const tReplayState state = m_session.state();
    return streamsText(m_session.table(), m_options.net ? "datagrams" : "records") +
           fmt::format("played {} in {}, mean pace {:.3f}\n", durationText(state.playedMs), durationText(state.tookMs),
                       pace(state));
}
}  // namespace tool
