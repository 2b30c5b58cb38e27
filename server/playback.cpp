#include "server/playback.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/turn.h"
#include "server/answers.h"
#include "sessions/rows/recordrow.h"

namespace server
{
using namespace recordings;
using std::chrono::milliseconds;

namespace
{
constexpr milliseconds cBatchTime{30}, cReportTime{1000}, cLookTime{250}, cRoomTime{5000};
constexpr std::uint64_t cFirstWindowMs = 4000, cLongestWindowMs = 600'000;
constexpr std::size_t cRoomBytes = 1 << 20;  // that may wait for a viewer before more is read for it
constexpr double cRoomTurns = 0.5;
constexpr std::size_t cMostAtOnce = 4096;  // records between two looks at what is asked

std::uint64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

std::size_t jumpsIn(const std::deque<tViewerMessage>& messages)
{
    return static_cast<std::size_t>(std::ranges::count_if(messages, [](const tViewerMessage& message) {
        return message.type == tViewerMessage::eSeek || message.type == tViewerMessage::eOpen ||
               message.type == tViewerMessage::eLive;
    }));
}

tFedMessage fedOf(const tWalked& record, const std::optional<tPackageContents>& package)
{
    if (!package)
        return {eOtherType, 0, 0, record.bytes, record.timeMs};
    return {package->info.rwType, package->ip, package->port, package->payload, record.timeMs};
}
}  // namespace

tPlayback::tPlayback(std::size_t picture, const tPlaybackContext& context, iPlaybackSink& sink)
    : m_picture(picture), m_context(context), m_sink(sink)
{
    m_worker.start([this] { run(); });
}

tPlayback::~tPlayback()
{
    m_worker.stop();
    leaveLive();
}

void tPlayback::ask(const tViewerMessage& message)
{
    m_worker.wake([&] {
        // Of several seeks that wait the last one counts.
        if (!m_queue.empty() && message.type == tViewerMessage::eSeek && m_queue.back().type == message.type)
            m_queue.back() = message;
        else
            m_queue.push_back(message);
        m_jumps = jumpsIn(m_queue);
    });
}

void tPlayback::run()
{
    tWorker::tLock held = m_worker.lock();
    while (m_worker.running())
    {
        const bool isBusy = m_walk && m_playing;
        m_worker.waitUntil(held, tSteady::now() + (isBusy ? cBatchTime / 2 : cReportTime),
                           [this] { return !m_queue.empty(); });
        while (m_worker.running() && !m_queue.empty())
        {
            const tViewerMessage message = m_queue.front();
            m_queue.pop_front();
            m_jumps = jumpsIn(m_queue);
            held.unlock();
            applyGuarded(message);
            held.lock();
        }
        held.unlock();
        if (m_walk && m_playing)
            play();
        if (tSteady::now() - m_reported >= cReportTime && (m_walk || m_live))
            report();
        held.lock();
    }
}

void tPlayback::applyGuarded(const tViewerMessage& message)
try
{
    apply(message);
}
catch (const tRefusal& refusal)
{
    sendError(refusal.code, refusal.what());
}
catch (const std::exception& error)
{
    sendError("failed", error.what());
}

void tPlayback::apply(const tViewerMessage& message)
{
    if (message.type == tViewerMessage::eOpen)
        return open(message);
    if (!m_walk && !m_live)
        throw tRefusal(409, "not_open", "this picture shows nothing yet");
    switch (message.type)
    {
    case tViewerMessage::ePlay:
        return setPlaying(true);
    case tViewerMessage::ePause:
        return setPlaying(false);
    case tViewerMessage::eSeek:
        return seek(message.atMs.value_or(0));
    case tViewerMessage::eLive:
        return goLive();
    case tViewerMessage::eSpeed:
        return setSpeed(message.speed);
    case tViewerMessage::eStep:
        return step(message);
    case tViewerMessage::eLoop:
        m_loop = message.loop;
        return;
    default:
        return;
    }
}

void tPlayback::open(const tViewerMessage& message)
{
    m_radar = message.radar;
    m_loop.reset();
    if (!message.id.empty())
        return openRecording(message.id, message.atMs.value_or(0));
    m_id.clear();
    goLive();
    if (message.atMs)
        shiftTime(*message.atMs);
}

void tPlayback::openRecording(const std::string& id, std::uint64_t atMs)
{
    auto walk = std::make_unique<tRecordWalk>(m_context.archive.folderOf(id));
    leaveLive();
    m_walk = std::move(walk);
    m_id = id;
    m_playing = false;
    m_source = m_context.hub.nextSource();
    m_epoch = 0;
    m_number = 0;
    const std::uint64_t place = std::clamp(atMs, m_walk->firstMs(), std::max(m_walk->firstMs(), m_walk->lastMs()));
    m_layouts = layoutsOfFile(m_context.options, m_walk->fileAt(place));
    m_feed =
        std::make_unique<tPictureFeed>(m_layouts, [this](const tSpoke& spoke, std::uint64_t timeMs, double turned) {
            ++m_fedSpokes;
            if (!m_isSending)
                return;
            m_turns += turned;
            m_builder.add(spoke, timeMs, m_feed->headingDeg(), turned);
        });
    jump(place);
    if (m_layouts.empty())
        sendError("no_layout", "nothing says how the spokes of this recording are laid out");
    report();
}

void tPlayback::leaveLive()
{
    if (!m_live)
        return;
    m_live->remove(*this);
    m_live.reset();
    m_sink.queue().clear(m_picture);
}

// Of a recording the radar is the one that its sheets name.
void tPlayback::goLive()
{
    if (m_radar.empty() && m_walk)
    {
        const tFoundSheet found = readSheet(m_walk->fileAt(m_timeMs));
        if (found && !found.sheet.radarSerial.empty())
            m_radar = found.sheet.radarSerial + '/' + std::to_string(found.sheet.radarId);
    }
    if (m_radar.empty())
        throw tRefusal(404, "no_radar", "nothing says which radar this is");
    auto live = m_context.hub.open(m_context.radars.find(m_radar));
    leaveLive();
    m_walk.reset();
    m_feed.reset();
    m_id.clear();
    m_live = std::move(live);
    m_sink.queue().clear(m_picture);
    m_source = m_live->source();
    m_epoch = 1;
    m_speed = 1;
    m_playing = true;
    sendState();
    m_live->add(*this);
    report();
}

void tPlayback::onLive(const tBatch& batch)
{
    m_sink.onBatch(m_picture, batch);
}

void tPlayback::shiftTime(std::uint64_t atMs)
{
    const auto recording = m_context.radars.recordingOf(m_context.radars.find(m_radar));
    if (!recording)
        throw tRefusal(409, "not_recorded", "this radar is not being recorded: there is nothing to go back to");
    openRecording(recording->id, atMs);
}

void tPlayback::seek(std::uint64_t ms)
{
    if (m_live)
    {
        shiftTime(ms);
        m_playing = true;
        setClock(m_timeMs);
    }
    else
        jump(ms);
    sendState();
}

void tPlayback::setPlaying(bool on)
{
    if (m_live)
    {
        if (!on)
            shiftTime(m_live->state().lastMs);
        return;
    }
    m_timeMs = m_playing ? std::min(clockMs(), std::max(m_walk->lastMs(), m_timeMs)) : m_timeMs;
    if (on && !m_playing && m_timeMs >= m_walk->lastMs() && !m_walk->isRecording())
        jump(m_walk->firstMs());
    m_playing = on;
    setClock(m_timeMs);
    sendState();
}

void tPlayback::setSpeed(double speed)
{
    if (m_live)
        return;
    if (m_playing)
        setClock(m_speed == 0 ? m_timeMs : clockMs());
    m_speed = speed;
    sendState();
}

std::uint64_t tPlayback::clockMs() const
{
    if (m_speed == 0)
        return m_timeMs;
    const double passed = std::chrono::duration<double, std::milli>(tSteady::now() - m_clockSet).count();
    return m_clockMs + static_cast<std::uint64_t>(passed * m_speed);
}

void tPlayback::setClock(std::uint64_t ms)
{
    m_clockMs = ms;
    m_clockSet = tSteady::now();
}

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

// Returns false if there is none, or something else is asked for.
bool tPlayback::waitForRoom()
{
    const auto until = tSteady::now() + cRoomTime;
    for (;;)
    {
        const auto waiting = m_sink.queue().waiting(m_picture);
        if (waiting.bytes < cRoomBytes && waiting.turns < cRoomTurns)
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

void tPlayback::play()
{
    const bool isMax = m_speed == 0;
    const auto waiting = m_sink.queue().waiting(m_picture);
    if (isMax && (waiting.bytes >= cRoomBytes || waiting.turns >= cRoomTurns))
        return;
    const std::uint64_t untilMs = std::min(isMax ? UINT64_MAX : clockMs(), m_loop ? m_loop->toMs : UINT64_MAX);
    std::optional<std::uint64_t> nextMs;
    std::size_t fed = 0;
    for (; fed < cMostAtOnce && (nextMs = m_walk->nextMs()) && *nextMs <= untilMs; ++fed)
    {
        m_timeMs = std::max(m_timeMs, *nextMs);
        if (!feedNext())
            break;
        if (m_builder.isFull())
            flush(0);
    }
    if (tSteady::now() - m_flushed >= cBatchTime || isMax)
        flush(0);
    if (!isMax && nextMs)
        m_timeMs = std::max(m_timeMs, std::min(untilMs, *nextMs));
    if (m_loop && m_timeMs >= m_loop->toMs)
        return jump(m_loop->fromMs);
    if (!nextMs)
        playedOut();
}

// A recording that is being made goes on; who has caught up with a radar sees it live again.
void tPlayback::playedOut()
{
    flush(0);
    if (m_loop)
        return jump(m_loop->fromMs);
    if (!m_walk->isRecording())
    {
        m_playing = false;
        m_timeMs = m_walk->lastMs();
        return sendState();
    }
    if (!m_radar.empty())
        return goLiveAgain();
    if (tSteady::now() - m_looked < cLookTime)
        return;
    m_looked = tSteady::now();
    m_walk->refresh();
    setClock(m_timeMs);
}

void tPlayback::goLiveAgain()
try
{
    goLive();
}
catch (const std::exception& error)
{
    m_radar.clear();  // it is not tried again
    sendError("failed", error.what());
}

void tPlayback::report()
{
    m_reported = tSteady::now();
    sendState();
    const char* const picture = m_picture == 0 ? "a" : "b";
    const auto send = [&](const char* type, tJson&& rows) {
        m_sink.onMessage(jsonText({{"type", type}, {"picture", picture}, {type, std::move(rows)}}));
    };
    if (m_live)
    {
        send("streams", m_live->streams());
        send("own", m_live->own());
        return send("targets", m_live->targets());
    }
    send("streams", m_meter.rows(m_timeMs));
    send("own", ownJson(m_feed->navigation().own()));
    send("targets", targetsJson(m_feed->navigation().targets(m_timeMs)));
}

void tPlayback::sendState()
{
    tJson state = {
        {"type", "state"}, {"picture", m_picture == 0 ? "a" : "b"}, {"source", m_source}, {"epoch", m_epoch}};
    const auto number = [](const auto& value) { return value ? tJson(*value) : tJson(); };
    std::optional<std::uint64_t> missing;
    if (m_live)
    {
        const auto live = m_live->state();
        m_isWhole = live.isWhole;
        m_timeMs = live.lastMs;
        missing = live.missing;
    }
    else
        missing = m_feed->missing();
    const bool isBehind = m_walk && m_walk->isRecording();
    const std::uint64_t now = nowMs();
    state["mode"] = m_live ? "live" : "replay";
    state["id"] = m_id.empty() ? tJson() : tJson(m_id);
    state["radar"] = m_radar.empty() ? tJson() : tJson(m_radar);
    state["playing"] = m_playing;
    state["time_ms"] = m_timeMs;
    state["speed"] = m_speed == 0 ? tJson("max") : tJson(m_speed);
    state["behind_ms"] = m_live ? tJson(0) : isBehind ? tJson(now - std::min(now, m_timeMs)) : tJson();
    state["whole"] = m_isWhole;
    state["thinned_spokes"] = m_sink.queue().thinned(m_picture);
    state["missing_on_wire"] = number(missing);
    if (m_walk)
    {
        state["first_ms"] = m_walk->firstMs();
        state["last_ms"] = m_walk->lastMs();
    }
    m_sink.onMessage(jsonText(state));
}

void tPlayback::sendError(const std::string& code, const std::string& text)
{
    m_sink.onMessage(
        jsonText({{"type", "error"}, {"picture", m_picture == 0 ? "a" : "b"}, {"code", code}, {"message", text}}));
}
}  // namespace server
