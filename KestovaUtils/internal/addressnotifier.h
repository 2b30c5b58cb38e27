// tAddressNotifier: notifies listeners of the local address, one call after another on one thread.
//
// Order    a listener receives every change in order, beginning with the address at the time of add().
// Threads  add(), remove() and changed() from any thread, also from inside a call; the thread starts with the first
//          listener. No lock is held during a call.
// Removal  after remove() no call to that listener is under way, except the one that remove() is called from.
#ifndef KESTOVA_UTILS_ADDRESSNOTIFIER_H
#define KESTOVA_UTILS_ADDRESSNOTIFIER_H

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "KestovaUtils/multiradarclient.h"
#include "common/observers.h"
#include "common/worker.h"

namespace utils
{
class tAddressNotifier
{
public:
    // Ignores a listener that was added before.
    void add(iMultiRadarCheckerListener* listener);
    void remove(iMultiRadarCheckerListener* listener);
    void changed(std::uint32_t localIp);

private:
    struct tEntry
    {
        iMultiRadarCheckerListener* listener;
        std::deque<std::uint32_t> pending;  // addresses not yet reported to it
    };
    struct tNotice
    {
        iMultiRadarCheckerListener* listener = nullptr;
        std::uint32_t localIp = 0;
    };

    void startThread();
    void notifyUntilStopped();
    std::vector<tEntry>::iterator find(iMultiRadarCheckerListener* listener);
    bool take(tNotice& notice);

    std::mutex m_startMutex;
    bool m_started = false;         // guarded by m_startMutex
    std::vector<tEntry> m_entries;  // guarded by the worker's lock
    std::uint32_t m_localIp = 0;    // guarded by the worker's lock
    tObserverCalls m_calls;
    tWorker m_worker;
};
}  // namespace utils

#endif
