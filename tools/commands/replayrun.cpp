#include "tools/commands/replayrun.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <optional>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "tools/shell/console.h"
#include "tools/shell/leftout.h"
#include "tools/shell/names.h"
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
constexpr double cNoteShownMs = 5000.0;
constexpr char cNoteText[] = "noted while replaying";

tJson jsonOf(const std::optional<double>& number, double digits)
{
    return number ? tJson(std::round(*number * digits) / digits) : tJson();
}

std::string latenessText(const session::tPaceTruth& truth)
{
    if (!truth.p50Ms)
        return "";
    const std::string drift = truth.driftPercent ? fmt::format(", drift {:+.4f} %", *truth.driftPercent) : "";
    return fmt::format("; late by {:.3f} ms (p50), {:.3f} ms (p99), {:.3f} ms at most{}", *truth.p50Ms, *truth.p99Ms,
                       *truth.maxMs, drift);
}

double meanPace(const tReplayState& state)
{
    return state.tookMs == 0 ? 0.0 : static_cast<double>(state.playedMs) / static_cast<double>(state.tookMs);
}

std::string withoutMs(const std::string& text)
{
    return text.substr(0, text.rfind('.'));
}

struct tPart
{
    std::string text;
    int rank;  // the smallest is the last to be dropped
};

// Returns the parts on one line of at most `width` characters, without those that find no room.
std::string fitted(std::vector<tPart> parts, std::size_t width)
{
    for (;;)
    {
        std::string line;
        for (const tPart& part : parts)
            if (!part.text.empty())
                line += (line.empty() ? "" : "  ") + part.text;
        if (line.size() <= width || parts.size() == 1)
            return line;
        parts.erase(std::ranges::max_element(parts, {}, &tPart::rank));
    }
}
}  // namespace

tReplayRun::tReplayRun(const session::tReplayOptions& options, std::string start, std::string end, bool json,
                       tConsole& console)
    : m_options(options), m_start(std::move(start)), m_end(std::move(end)), m_asJson(json), m_console(console),
      m_session(options)
{}

int tReplayRun::run()
{
    checkPlaces();
    const int skipped = reportLeftOut(m_console, "replay", m_session.survey().leftOut);
    m_session.open();
    if (waitForOpening())
        playAll();
    const bool ended = m_session.state().ended;
    m_session.close();
    return worseStatus(skipped, report(ended));
}

void tReplayRun::checkPlaces() const
{
    const tSurvey& survey = m_session.survey();
    const bool before = m_session.startMs() < static_cast<double>(survey.firstMs);
    if (before || m_session.startMs() > static_cast<double>(survey.lastMs))
        throw tFailure(fmt::format("--start {} lies {}: the recording goes from {} to {} ({})", m_start,
                                   before ? "before the beginning" : "behind the end", timeText(survey.firstMs),
                                   timeText(survey.lastMs), durationText(survey.lastMs - survey.firstMs)));
    if (m_session.endMs() && *m_session.endMs() <= m_session.startMs())
        throw tFailure(fmt::format("--end {} is not behind the start, which is {}", m_end,
                                   timeText(static_cast<std::uint64_t>(m_session.startMs()))));
}

// Returns false if the user ends it early.
bool tReplayRun::waitForOpening()
{
    while (!m_session.state().opened)
    {
        if (m_stop.wait(milliseconds(2)))
            return false;
    }
    const auto lastMs = static_cast<double>(m_session.state().lastMs);
    if (m_session.survey().records == 0)
        m_console.inform("waiting for the first record");
    else
        m_console.inform(
            fmt::format("playing {} to {} at {}{}", timeText(static_cast<std::uint64_t>(m_session.startMs())),
                        timeText(static_cast<std::uint64_t>(std::min(m_session.endMs().value_or(lastMs), lastMs))),
                        speedText(), m_options.net ? " onto the network" : ""));
    if (m_options.cat240)
        m_console.inform(fmt::format("spokes go to {}:{} as CAT240", net::transAddr(m_options.cat240->group.ip),
                                     net::NtoHs(m_options.cat240->group.port)));
    if (m_options.follow)
        m_console.inform("following " + printable(m_session.followed()));
    if (m_keyboard.active())
        m_console.inform("space pauses, left and right jump 10 s, up and down a minute,\n"
                         "+ and - change the speed, g skips a silence, n notes the place, q ends");
    return true;
}

void tReplayRun::playAll()
{
    while (!m_session.state().ended)
    {
        if (m_stop.wait(milliseconds(20)) || !handleKeys())
            return;
        m_session.skipLong();
        if (m_console.progressDue())
            m_console.progress(progressLine());
    }
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
    const auto now = static_cast<std::int64_t>(m_session.state().clockMs);
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
    case eKey::eSkip:
        return m_session.skipSilence();
    case eKey::eNote:
        return note();
    case eKey::eQuit:
        return;
    }
}

void tReplayRun::note()
try
{
    const tNote made = m_session.noteHere(cNoteText);
    m_console.inform("noted at " + timeText(made.timeMs));
}
catch (const tFailure& failure)
{
    m_console.note(std::string("kestova replay: ") + failure.what());
}

std::string tReplayRun::progressLine() const
{
    const tReplayState state = m_session.state();
    const std::uint64_t elapsed = state.clockMs - state.firstMs, whole = state.lastMs - state.firstMs;
    const double fraction = whole == 0 ? 1.0 : static_cast<double>(elapsed) / static_cast<double>(whole);
    return fitted(
        {{withoutMs(timeText(state.clockMs)), 3},
         {withoutMs(durationText(elapsed)) + " of " + withoutMs(durationText(whole)), 1},
         {percentText(fraction), 5},
         {speedText(), 4},
         {m_options.net ? fmt::format("{} sent", m_session.sent()) : fmt::format("{} records", state.records), 6},
         {sizeText(total(m_session.counts()).bytes), 7},
         {silenceText(state), 2},
         {noteText(state), 2},
         {m_session.paused() ? "paused" : "", 0}},
        m_console.terminalWidth() - 1);
}

std::string tReplayRun::speedText() const
{
    return m_options.topSpeed ? "top speed" : fmt::format("{:.4g}x", m_session.pace().factor());
}

// Returns the last note that has just been passed.
std::string tReplayRun::noteText(const tReplayState& state) const
{
    const std::vector<tNote>& notes = m_session.notes();
    const auto behind = std::ranges::upper_bound(notes, state.clockMs, {}, &tNote::timeMs);
    const double shownMs = cNoteShownMs * std::max(m_session.pace().factor(), 1.0);
    if (behind == notes.begin() || static_cast<double>(state.clockMs - std::prev(behind)->timeMs) > shownMs)
        return "";
    return "note: " + printable(std::prev(behind)->text);
}

// Returns until when nothing was recorded, with the day if it is another one.
std::string tReplayRun::silenceText(const tReplayState& state) const
{
    constexpr std::size_t cDaySize = 11;  // "2024-05-17 "
    const auto silence = m_session.silence();
    if (!silence)
        return "";
    const std::string end = withoutMs(timeText(silence->toMs));
    const bool sameDay = timeText(state.clockMs).starts_with(end.substr(0, cDaySize));
    return "silence until " + end.substr(sameDay ? cDaySize : 0) + ", g skips it";
}

int tReplayRun::report(bool ended)
{
    const std::uint64_t damaged = m_session.damaged();
    if (m_asJson)
        printJson(m_console, json(ended));
    else
        m_console.print(text());
    if (damaged != 0)
        m_console.note(fmt::format("kestova replay: {} damaged records were skipped; see kestova info", damaged));
    if (m_session.refused() != 0)
        m_console.note(fmt::format("kestova replay: the network refused {} records; --verbose shows the reason",
                                   m_session.refused()));
    const tCat240Tally cat240 = m_session.cat240();
    if (cat240.refused != 0)
        m_console.note(fmt::format("kestova replay: {} spokes were not sent: their cells are too long for CAT240",
                                   cat240.refused));
    if (cat240.lengthless != 0)
        m_console.note(fmt::format("kestova replay: {} spokes have cells of length 0: their layout gives no range",
                                   cat240.lengthless));
    return damaged == 0 && m_session.refused() == 0 && cat240.refused == 0 ? eDone : eDamaged;
}

tJson tReplayRun::json(bool ended) const
{
    const tReplayState state = m_session.state();
    const tStreamCounts counts = m_session.counts();
    tJson result = {{"schema", "kestova/replay/2"},
                    {"paths", m_options.paths},
                    {"skipped", leftOutJson(m_session.survey().leftOut)},
                    {"first_ms", state.firstMs},
                    {"last_ms", state.lastMs},
                    {"start_ms", static_cast<std::uint64_t>(m_session.startMs())},
                    {"end_ms", m_session.endMs() ? tJson(static_cast<std::uint64_t>(*m_session.endMs())) : tJson()},
                    {"speed", m_options.topSpeed ? tJson() : tJson(m_session.pace().factor())},
                    {"passes", m_session.passes()},
                    {"ended", ended},
                    {"played_ms", state.playedMs},
                    {"took_ms", state.tookMs},
                    {"pace", meanPace(state)},
                    {"records", state.records},
                    {"bytes", total(counts).bytes},
                    {"damaged", m_session.damaged()}};
    const session::tPaceTruth truth = m_session.truth();
    result["late_p50_ms"] = jsonOf(truth.p50Ms, 1e4);
    result["late_p99_ms"] = jsonOf(truth.p99Ms, 1e4);
    result["late_max_ms"] = jsonOf(truth.maxMs, 1e4);
    result["drift_percent"] = jsonOf(truth.driftPercent, 1e6);
    if (m_options.net)
    {
        result["sent"] = m_session.sent();
        result["refused"] = m_session.refused();
    }
    result["streams"] = streamsJson(counts, m_options.net ? "datagrams" : "records");
    return result;
}

std::string tReplayRun::text() const
{
    const tReplayState state = m_session.state();
    return streamsText(m_session.counts(), m_options.net ? "datagrams" : "records") +
           fmt::format("played {} in {}, mean pace {:.3f}{}\n", durationText(state.playedMs),
                       durationText(state.tookMs), meanPace(state), latenessText(m_session.truth()));
}
}  // namespace tool
