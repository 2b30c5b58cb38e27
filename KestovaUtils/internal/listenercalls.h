// tListenerCalls: tells listeners the local address, one call after another on one thread.
//
// Order    every listener hears every change in its order, from the address at the time it was added on.
// Threads  add(), remove() and changed() from any thread, also from inside a call; the thread starts with the first
//          listener. No lock is held during a call.
// Removal  after remove() no call to that listener is under way, except the one that remove() is called from.
#ifndef KESTOVA_UTILS_LISTENERCALLS_H
#define KESTOVA_UTILS_LISTENERCALLS_H

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "KestovaUtils/multiradarclient.h"
#include "common/worker.h"

namespace utils
{
class tListenerCalls
{
public:
    // Adding a listener that is there already does nothing.
    void add(iMultiRadarCheckerListener* listener);
    void remove(iMultiRadarCheckerListener* listener);
    void changed(std::uint32_t localIp);

private:
    struct tEntry
    {
        iMultiRadarCheckerListener* listener;
        std::deque<std::uint32_t> untold;
    };
    struct tCall
    {
        iMultiRadarCheckerListener* listener;
        std::uint32_t localIp;
    };

    void startThread();
    void callUntilStopped();
    std::vector<tEntry>::iterator find(iMultiRadarCheckerListener* listener);
    std::optional<tCall> takeCall();

    std::mutex m_startMutex;
    bool m_started = false;  // guarded by m_startMutex
    // The rest is guarded by the worker's lock.
    std::vector<tEntry> m_entries;
    std::uint32_t m_localIp = 0;
    iMultiRadarCheckerListener* m_called = nullptr;  // the listener whose call is under way
    std::uint64_t m_calls = 0;                       // begun so far: tells one call to a listener from the next
    tWorker m_worker;
};
}  // namespace utils

#endif
