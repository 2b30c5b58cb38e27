#include "sessions/replay/replayprogress.h"

#include "KestovaStorage/datastorageio.h"

namespace session
{
using namespace recordings;

tReplayState tReplayProgress::state() const
{
    const std::lock_guard lock(m_mutex);
    return m_state;
}

tStreamCounts tReplayProgress::counts() const
{
    const std::lock_guard lock(m_mutex);
    return m_counts;
}

void tReplayProgress::beginJump()
{
    {
        const std::lock_guard lock(m_mutex);
        m_jumping = true;
        m_state.ended = false;
    }
    beginStretch();
}

void tReplayProgress::beginStretch()
{
    const std::lock_guard lock(m_mutex);
    m_playedBefore = m_state.playedMs;
    m_tookBefore = m_state.tookMs;
    m_stretchFirstMs = 0;
}

void tReplayProgress::status(std::uint8_t status)
{
    if (status == storage::eReplayPlaying && !state().opened)
    {
        m_begin(state());
        const std::lock_guard lock(m_mutex);
        m_state.opened = true;
        return;
    }
    const std::lock_guard lock(m_mutex);
    if (status == storage::eReplayStopped)
        m_jumping = false;  // this stop begins the jump: later statuses belong to the new place
    if (status == storage::eReplayEnded && !m_jumping)
        m_state.ended = true;
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
    m_state.timeMs = timeMs;
    m_state.fraction = fraction;
    m_state.playedMs = m_playedBefore + (timeMs - m_stretchFirstMs);
    m_state.tookMs = m_tookBefore + static_cast<std::uint64_t>(took);
}

void tReplayProgress::count(const tStreamKey& stream, std::string_view message)
{
    const std::lock_guard lock(m_mutex);
    m_counts[stream].add(message);
    ++m_state.records;
}
}  // namespace session
