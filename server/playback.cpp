#include "server/playback.h"

#include <algorithm>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"
#include "server/answers.h"

namespace server
{
using namespace recordings;
using std::chrono::milliseconds;

namespace
{
constexpr milliseconds cBatchTime{30}, cReportTime{1000}, cLookTime{250};
constexpr std::size_t cMostAtOnce = 4096;  // records between two looks at what is asked
constexpr std::size_t cMostAsked = 256;    // that wait; a page that asks for more is not listened to

std::size_t jumpsIn(const std::deque<tViewerMessage>& messages)
{
    return static_cast<std::size_t>(std::ranges::count_if(messages, [](const tViewerMessage& message) {
        return message.type == tViewerMessage::eSeek || message.type == tViewerMessage::eOpen ||
               message.type == tViewerMessage::eLive;
    }));
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
        else if (m_queue.size() < cMostAsked)
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

void tPlayback::play()
{
    const bool isMax = m_speed == 0;
    if (isMax && !hasRoom())
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

}  // namespace server
