#include "tools/commands/replayrun.h"

#include <fmt/format.h>

#include "KestovaRecordings/failure.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;
using session::tReplayState;

namespace
{
using std::chrono::milliseconds;

constexpr std::int64_t cArrowMs = 10'000;
constexpr std::int64_t cFarArrowMs = 60'000;

double meanPace(const tReplayState& state)
{
    return state.tookMs == 0 ? 0.0 : static_cast<double>(state.playedMs) / static_cast<double>(state.tookMs);
}
}  // namespace

tReplayRun::tReplayRun(const session::tReplayOptions& options, std::string start, bool json, tConsole& console)
    : m_options(options), m_start(std::move(start)), m_asJson(json), m_console(console), m_session(options)
{}

int tReplayRun::run()
{
    m_session.open();
    if (waitForOpening())
        playAll();
    const bool ended = m_session.state().ended;
    m_session.close();
    return report(ended);
}

// Returns false if the user ends it early.
bool tReplayRun::waitForOpening()
{
    while (!m_session.state().opened)
    {
        if (m_stop.wait(milliseconds(2)))
            return false;
    }
    const tReplayState state = m_session.state();
    if (m_session.startMs() > state.lastMs)
        throw tFailure(fmt::format("--start {} lies behind the end: the recording lasts {}", m_start,
                                   durationText(state.lastMs - state.firstMs)));
    m_console.note(fmt::format("playing {} to {} at {:.2g}x{}", timeText(m_session.startMs()),
                               timeText(state.lastMs), m_session.pace().factor(),
                               m_options.net ? " onto the network" : ""));
    if (m_keyboard.active())
        m_console.note(
            "space pauses, left and right jump 10 s, up and down a minute, + and - change the speed, q ends");
    return true;
}

void tReplayRun::playAll()
{
    while (playToEnd() && m_session.nextPass())
    {}
}

// Returns false if the user ends it early.
bool tReplayRun::playToEnd()
{
    while (!m_session.state().ended)
    {
        if (m_stop.wait(milliseconds(20)) || !handleKeys())
            return false;
        if (m_console.progressDue())
            showProgress();
    }
    return true;
}

// Returns false if the user pressed q.
bool tReplayRun::handleKeys()
{
    for (const eKey key : m_keyboard.pressed())
    {
        if (key == eKey::eQuit)
            return false;
        press(key);
    }
    return true;
}

void tReplayRun::press(eKey key)
{
    const auto now = static_cast<std::int64_t>(m_session.state().timeMs);
    switch (key)
    {
    case eKey::ePause:
        return m_session.togglePause();
    case eKey::eForward:
        return m_session.jumpTo(now + cArrowMs);
    case eKey::eBack:
        return m_session.jumpTo(now - cArrowMs);
    case eKey::eFarForward:
        return m_session.jumpTo(now + cFarArrowMs);
    case eKey::eFarBack:
        return m_session.jumpTo(now - cFarArrowMs);
    case eKey::eFaster:
        return m_session.setPace(m_session.pace().faster());
    case eKey::eSlower:
        return m_session.setPace(m_session.pace().slower());
    case eKey::eQuit:
        return;
    }
}

void tReplayRun::showProgress()
{
    const tReplayState state = m_session.state();
    m_console.progress(fmt::format("{}  {:>7}  {:.2g}x  {} {}  {}{}", timeText(state.timeMs),
                                   percentText(state.fraction), m_session.pace().factor(),
                                   m_options.net ? m_session.sent() : state.records, m_options.net ? "sent" : "records",
                                   sizeText(total(m_session.counts()).bytes), m_session.paused() ? "  paused" : ""));
}

int tReplayRun::report(bool ended)
{
    const std::uint64_t damaged = m_session.countDamaged();
    if (m_asJson)
        printJson(m_console, json(damaged, ended));
    else
        m_console.print(text());
    if (damaged != 0)
        m_console.note(fmt::format("kestova replay: {} damaged records were skipped; see kestova info", damaged));
    if (m_session.refused() != 0)
        m_console.note(fmt::format("kestova replay: the network refused {} records", m_session.refused()));
    return damaged == 0 && m_session.refused() == 0 ? eDone : eDamaged;
}

tJson tReplayRun::json(std::uint64_t damaged, bool ended) const
{
    const tReplayState state = m_session.state();
    const tStreamCounts counts = m_session.counts();
    tJson result = {{"schema", "kestova/replay/2"},    {"path", m_options.path},
                    {"first_ms", state.firstMs},       {"last_ms", state.lastMs},
                    {"start_ms", m_session.startMs()}, {"speed", m_session.pace().factor()},
                    {"passes", m_session.passes()},    {"ended", ended},
                    {"played_ms", state.playedMs},     {"took_ms", state.tookMs},
                    {"pace", meanPace(state)},         {"records", state.records},
                    {"bytes", total(counts).bytes},    {"damaged", damaged}};
    if (m_options.net)
    {
        result["sent"] = m_session.sent();
        result["refused"] = m_session.refused();
    }
    result["streams"] = streamsJson(counts, "records");
    return result;
}

std::string tReplayRun::text() const
{
    const tReplayState state = m_session.state();
    return streamsText(m_session.counts(), m_options.net ? "datagrams" : "records") +
           fmt::format("played {} in {}, mean pace {:.3f}\n", durationText(state.playedMs), durationText(state.tookMs),
                       meanPace(state));
}
}  // namespace tool
