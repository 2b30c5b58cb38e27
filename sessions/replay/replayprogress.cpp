#include "sessions/replay/replayprogress.h"

#include <algorithm>
#include <utility>

#include "KestovaStorage/datastorageio.h"

namespace session
{
using namespace recordings;

tReplayState tReplayProgress::state() const
{
    const std::lock_guard lock(m_mutex);
    tReplayState state = m_state;
    state.clockMs = std::clamp(m_clock.at(tSteady::now()), state.firstMs, std::max(state.firstMs, state.lastMs));
    return state;
}

tStreamCounts tReplayProgress::counts() const
{
    const std::lock_guard lock(m_mutex);
    return m_counts;
}

void tReplayProgress::beginJump(std::uint64_t toMs, std::function<void()> arrived)
{
    const std::lock_guard lock(m_mutex);
    m_jump = eLeaving;
    m_target = toMs;
    m_arrived = std::move(arrived);
    m_state.ended = false;
}

void tReplayProgress::setSpeed(double factor)
{
    const std::lock_guard lock(m_mutex);
    m_clock.setSpeed(factor, tSteady::now());
}

void tReplayProgress::setPaused(bool paused)
{
    const std::lock_guard lock(m_mutex);
    m_clock.setPaused(paused, tSteady::now());
    beginStretch();
}

// With the lock held.
void tReplayProgress::beginStretch()
{
    m_playedBefore = m_state.playedMs;
    m_tookBefore = m_state.tookMs;
    m_stretchFirstMs = 0;
}

// With the lock held.
void tReplayProgress::moveTo(std::uint64_t timeMs)
{
    m_state.timeMs = timeMs;
    m_state.atRecord = false;
    m_clock.set(timeMs, tSteady::now());
}

// Stopping reports playing, perhaps ended, and stopped; then playing again, at the new place.
void tReplayProgress::status(std::uint8_t status)
{
    if (status == storage::eReplayPlaying && !state().opened)
    {
        m_begin(state());
        const std::lock_guard lock(m_mutex);
        m_state.opened = true;
        moveTo(m_state.firstMs);
        return;
    }
    if (status == storage::eReplayPlaying)
        return arrive();
    if (status == storage::eReplayEnded)
        return end();
    const std::lock_guard lock(m_mutex);
    if (status == storage::eReplayStopped && m_jump == eLeaving)
        m_jump = eArriving;
}

void tReplayProgress::end()
{
    const auto atEnd = [this] {
        const std::lock_guard lock(m_mutex);
        return m_jump == eThere;
    };
    if (!atEnd() || m_again())
        return;
    const std::lock_guard lock(m_mutex);
    if (m_jump == eThere)
        m_state.ended = true;
}

void tReplayProgress::playing(const std::string& file)
{
    const std::lock_guard lock(m_mutex);
    if (m_file != file)
        m_file = file;
}

std::string tReplayProgress::file() const
{
    const std::lock_guard lock(m_mutex);
    return m_file;
}

void tReplayProgress::arrive()
{
    std::function<void()> arrived;
    {
        const std::lock_guard lock(m_mutex);
        if (m_jump != eArriving)
            return;
        m_jump = eThere;
        beginStretch();
        moveTo(m_target);
        arrived = std::exchange(m_arrived, nullptr);
    }
    if (arrived)
        arrived();
}

void tReplayProgress::span(std::uint64_t firstMs, std::uint64_t lastMs)
{
    const std::lock_guard lock(m_mutex);
    m_state.firstMs = firstMs;
    m_state.lastMs = lastMs;
}

void tReplayProgress::passed(std::uint64_t timeMs, double fraction)
{
    const auto now = tSteady::now();
    const std::lock_guard lock(m_mutex);
    if (m_stretchFirstMs == 0)
    {
        m_stretchFirstMs = timeMs;
        m_stretchStart = now;
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_stretchStart).count();
    m_clock.set(timeMs, now);
    m_state.firstMs = m_state.firstMs == 0 ? timeMs : m_state.firstMs;
    m_state.lastMs = std::max(m_state.lastMs, timeMs);
    m_state.timeMs = timeMs;
    m_state.atRecord = true;
    m_state.fraction = fraction;
    m_state.playedMs = m_playedBefore + (timeMs - m_stretchFirstMs);
    m_state.tookMs = m_tookBefore + static_cast<std::uint64_t>(took);
}

void tReplayProgress::count(const tStreamKey& stream, std::string_view message)
{
    const std::lock_guard lock(m_mutex);
    tStreamCount& counts = m_counts[stream];
    m_lastStream = stream;
    m_before = counts;
    counts.add(message);
    ++m_state.records;
}

void tReplayProgress::uncountLast()
{
    const std::lock_guard lock(m_mutex);
    m_counts[m_lastStream] = m_before;
}
}  // namespace session
