#include "sessions/record/addressfollower.h"

namespace session
{
tAddressFollower::tReport tAddressFollower::last() const
{
    const std::lock_guard lock(m_mutex);
    return m_last;
}

void tAddressFollower::waitForFirst(std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(m_mutex);
    m_reported.wait_for(lock, timeout, [this] { return m_last.count != 0; });
}

void tAddressFollower::OnLocalIpChanged(unsigned int localIp)
{
    const std::lock_guard lock(m_mutex);
    m_last = {m_last.count + 1, localIp};
    m_reported.notify_all();
}
}  // namespace session
