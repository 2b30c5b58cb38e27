#include "tools/replaysession.h"

#include "tools/packageview.h"

namespace tool
{
tReplayState tReplaySession::state() const
{
    const std::lock_guard lock(m_mutex);
    return m_state;
}

tStreamTable tReplaySession::table() const
{
    const std::lock_guard lock(m_mutex);
    return m_table;
}

std::map<std::string, std::uint64_t> tReplaySession::recordsPerFile() const
{
    const std::lock_guard lock(m_mutex);
    return m_perFile;
}

void tReplaySession::beginPass()
{
    const std::lock_guard lock(m_mutex);
    m_ignore = true;
    m_state.ended = false;
    m_playedBefore = m_state.playedMs;
    m_tookBefore = m_state.tookMs;
    m_passFirstMs = 0;
}

void tReplaySession::UpdateReplayStatus(std::uint8_t status)
{
    const std::lock_guard lock(m_mutex);
    if (status == storage::eReplayPlaying)
        m_state.opened = true;
    if (status == storage::eReplayStopped)
        m_ignore = false;  // the stop that begins a jump: what follows belongs to the new place
    if (status == storage::eReplayEnded && !m_ignore)
        m_state.ended = true;
}

void tReplaySession::UpdateDataTimeSpan(std::uint64_t firstTimeMs, std::uint64_t lastTimeMs)
{
    const std::lock_guard lock(m_mutex);
    m_state.firstMs = firstTimeMs;
    m_state.lastMs = lastTimeMs;
}

void tReplaySession::UpdateReplayData(std::uint64_t timeMs, double progress, const char* data, unsigned int len,
                                      std::string fileName)
{
    const std::lock_guard lock(m_mutex);
    if (m_ignore)
        return;
    follow(timeMs);
    m_state.progress = progress;
    ++m_perFile[fileName];
    count({data, len});
}

void tReplaySession::follow(std::uint64_t timeMs)
{
    const auto now = tSteady::now();
    if (m_passFirstMs == 0)
    {
        m_passFirstMs = timeMs;
        m_passStart = now;
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_passStart).count();
    m_state.timeMs = timeMs;
    m_state.playedMs = m_playedBefore + (timeMs - m_passFirstMs);
    m_state.tookMs = m_tookBefore + static_cast<std::uint64_t>(took);
}

void tReplaySession::count(std::string_view segment)
{
    const auto package = viewPackage(segment);
    if (package && !m_streams.includes(package->info.rwType))
        return;
    if (!package && !m_streams.includesAll())
        return;
    const tStreamKey key =
        package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
    m_table[key].add(package ? package->payload : segment);
    ++m_state.records;
}
}  // namespace tool
