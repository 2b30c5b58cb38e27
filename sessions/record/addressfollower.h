// tAddressFollower: the address of the local interface, and how often it was reported.
#ifndef KESTOVA_SESSIONS_RECORD_ADDRESSFOLLOWER_H
#define KESTOVA_SESSIONS_RECORD_ADDRESSFOLLOWER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "KestovaUtils/multiradarclient.h"

namespace session
{
// Listeners are notified in the order of their registration: one that registers behind a recorder knows of an address
// after the recorder has joined its groups there. Any thread.
class tAddressFollower : private iMultiRadarCheckerListener
{
public:
    tAddressFollower() { MultiRadarClient::getInstance()->addListener(this); }
    ~tAddressFollower() override { MultiRadarClient::getInstance()->removeListener(this); }
    tAddressFollower(const tAddressFollower&) = delete;
    tAddressFollower& operator=(const tAddressFollower&) = delete;

    struct tReport
    {
        unsigned int count = 0;     // reports so far
        std::uint32_t localIp = 0;  // of the last one; 0 while there is none
    };
    tReport last() const;
    // Waits for the first report, which comes soon after the registration.
    void waitForFirst(std::chrono::milliseconds timeout) const;

private:
    void OnLocalIpChanged(unsigned int localIp) override;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_reported;
    tReport m_last;  // guarded by m_mutex
};
}  // namespace session

#endif
