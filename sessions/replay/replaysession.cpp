#include "sessions/replay/replaysession.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <set>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "common/byteorder.h"
#include "sessions/localaddress.h"

namespace session
{
using namespace recordings;

namespace
{
// What a silence must have lasted before it is skipped: the records before it are on their way until then.
constexpr std::chrono::milliseconds cSettled{20};
constexpr std::chrono::milliseconds cSettledUnseen{1000};  // the last of them may be one that is not reported
constexpr std::chrono::milliseconds cAtOnce{0};            // a jump led there

tSurvey surveyOf(const tReplayOptions& options)
try
{
    tSurvey survey = surveyRecordings(options.paths, options.suffix,
                                      std::min(cSilenceMs, options.skippedSilenceMs.value_or(cSilenceMs)));
    if (survey.records == 0 && !options.follow)
        throw tFailure(survey.files.front() + ": it holds no records");
    return survey;
}
catch (const tFailure& failure)
{
    throw tFailure(std::string("nothing to play: ") + failure.what());
}

void requireMapped(const std::vector<std::string>& files, const tAddressMap& map)
{
    std::set<tAddressMap::tGroup> groups;
    std::set<std::string> names;
    if (map.empty())
        return;
    findStreams(files, [&](const tStreamKey& key) {
        if (!key.package)
            return true;
        std::uint32_t ip = 0;
        be::store(&ip, key.addressOrder);
        groups.insert({ip, key.port});
        names.insert(key.address());
        return !map.unmatched(groups).empty();
    });
    const auto rest = map.unmatched(groups);
    if (!rest.empty())
        throw tFailure(fmt::format("--map: nothing was recorded from {}; the recording has {}", fmt::join(rest, ", "),
                                   fmt::join(names, ", ")));
}

// Throws tFailure for options that match nothing.
tSurvey checkedSurvey(const tReplayOptions& options)
{
    tSurvey survey = surveyOf(options);
    if (options.follow)
        return survey;  // what is missing may come
    requireStreams(survey.files, options.streams);
    requireMapped(survey.files, options.map);
    return survey;
}

std::unique_ptr<iReplayer> createReplayer(tReplayProgress& progress, tLateness& lateness, const tReplayOptions& options,
                                          const std::string& localIp)
{
    if (!options.net)
        return makeCountingReplayer(progress, lateness, options.streams, options.suffix);
    return makeNetworkReplayer(progress, lateness, options.streams, options.suffix, localIp, options.map,
                               options.cat240);
}

double fractionOf(std::uint64_t timeMs, std::uint64_t firstMs, std::uint64_t lastMs)
{
    const double span = static_cast<double>(lastMs - firstMs);
    // A quarter of a millisecond early: rounding must not skip the records at the target.
    const double offset = static_cast<double>(timeMs) - static_cast<double>(firstMs) - 0.25;
    return span > 0.0 ? std::max(0.0, offset / span) : 0.0;
}

// A sheet's beginning tells whether it has any; sheets that cannot be used have none.
std::vector<tNote> notesOf(const std::vector<std::string>& files)
{
    std::vector<tNote> notes;
    for (const std::string& file : files)
    {
        if (readSheetSummary(file).notes == 0)
            continue;
        const tFoundSheet found = readSheet(file);
        notes.insert(notes.end(), found.sheet.notes.begin(), found.sheet.notes.end());
    }
    std::ranges::stable_sort(notes, {}, &tNote::timeMs);
    return notes;
}
}  // namespace

tReplaySession::tReplaySession(const tReplayOptions& options)
    : m_options(options), m_localIp(options.localIp.empty() ? "" : net::transAddr(localAddress(options.localIp))),
      m_survey(checkedSurvey(options)),
      m_startMs(options.start ? options.start->resolve(m_survey.firstMs, m_survey.lastMs)
                              : static_cast<double>(m_survey.firstMs)),
      m_endMs(options.end ? std::optional(std::ceil(options.end->resolve(m_survey.firstMs, m_survey.lastMs)))
                          : std::nullopt),
      m_source(options.follow ? std::make_unique<tLiveSource>(m_survey.files, options.suffix) : nullptr),
      m_notes(notesOf(m_survey.files)), m_pace(options.speed),
      m_progress([this](const tReplayState& state) { begin(state); }, [this] { return beginNextPass(); }),
      m_replayer(createReplayer(m_progress, m_lateness, options, m_localIp))
{
    m_replayer->setSource(m_source.get());
    m_replayer->setTopSpeed(options.topSpeed);
    if (m_endMs)
        m_replayer->setEnd(static_cast<std::uint64_t>(std::max(*m_endMs, 1.0)));
}

void tReplaySession::open()
{
    m_replayer->open(m_survey.files);
}

void tReplaySession::close()
{
    m_replayer->close();
}

// On the replay thread, before the first record.
void tReplaySession::begin(const tReplayState& state)
{
    m_passes = 1;
    m_openedLastMs = state.lastMs;
    m_replayer->setSpeed(m_pace.factor());
    m_progress.setSpeed(m_pace.factor());
    m_lateness.setSpeed(m_pace.factor());
    const auto start = static_cast<std::uint64_t>(m_startMs);
    if (start <= state.firstMs)
        return;
    m_progress.beginJump(start);
    m_replayer->jump(fractionOf(start, state.firstMs, state.lastMs));
}

void tReplaySession::togglePause()
{
    if (!m_replayer->pause(!m_paused))
        return;
    m_paused = !m_paused;
    m_progress.setPaused(m_paused);
}

void tReplaySession::setPace(tPace pace)
{
    m_pace = pace;
    m_replayer->setSpeed(m_pace.factor());
    m_progress.setSpeed(m_pace.factor());
    m_lateness.setSpeed(m_pace.factor());
}

// A jump of the engine plays on. It pauses again before anything is played.
void tReplaySession::jumpTo(std::int64_t timeMs)
{
    const tReplayState state = m_progress.state();
    const auto wanted = static_cast<std::uint64_t>(std::max<std::int64_t>(timeMs, 0));
    if (m_openedLastMs == 0 || (m_source && wanted > m_openedLastMs))
        return;  // nothing was there when it was opened
    const std::uint64_t target = std::clamp(wanted, state.firstMs, m_openedLastMs);
    m_progress.beginJump(target, [this] {
        if (m_paused)
            m_replayer->pause(true);
    });
    m_replayer->jump(fractionOf(target, state.firstMs, m_openedLastMs));
}

std::optional<tGap> tReplaySession::silence() const
{
    const std::uint64_t now = m_progress.state().clockMs;
    const auto behind = std::ranges::upper_bound(m_survey.silences, now, {}, &tGap::fromMs);
    if (behind == m_survey.silences.begin() || now >= std::prev(behind)->toMs || now == std::prev(behind)->fromMs)
        return std::nullopt;
    return *std::prev(behind);
}

void tReplaySession::skipSilence()
{
    if (const auto gap = silence())
        jumpTo(static_cast<std::int64_t>(gap->toMs));
}

void tReplaySession::skipLong()
{
    const auto gap = silence();
    if (!m_options.skippedSilenceMs || m_paused || !gap || gap->length() <= *m_options.skippedSilenceMs)
    {
        m_silentSince.reset();
        return;
    }
    const auto now = tSteady::now();
    m_silentSince = m_silentSince.value_or(now);
    const tReplayState state = m_progress.state();
    const auto settled = state.timeMs < gap->fromMs ? cSettledUnseen : state.atRecord ? cSettled : cAtOnce;
    if (now - *m_silentSince < settled)
        return;
    m_silentSince.reset();
    skipSilence();
}

// On the replay thread, when a pass has ended.
bool tReplaySession::beginNextPass()
{
    if (m_source || m_passes == m_options.passes)
        return false;
    ++m_passes;
    jumpTo(static_cast<std::int64_t>(m_startMs));
    return true;
}

tNote tReplaySession::noteHere(const std::string& text)
{
    const std::string played = m_progress.file();
    tNote note{m_progress.state().clockMs, text};
    if (played.empty())
        throw tFailure("nothing has been played that a note could be on");
    addNote(presentForm(played, {}, m_options.suffix).value_or(played), note);
    m_notes.insert(std::ranges::upper_bound(m_notes, note.timeMs, {}, &tNote::timeMs), note);
    return note;
}
}  // namespace session
