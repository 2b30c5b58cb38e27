// tModifyGate: the one observer that may edit datagrams, called from many receive threads and replaced at any time.
//
// Owner    the observer is not owned. Frames live on the stack of their call; nothing is allocated.
// Threads  any. No lock is held while the observer runs; without an observer a call costs one atomic read.
#ifndef KESTOVA_INTERNAL_MODIFYGATE_H
#define KESTOVA_INTERNAL_MODIFYGATE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "KestovaStorage/radarmsgpackage.h"

namespace Kestova
{
class iRadarRecDataModifyObserver;

class tModifyGate
{
public:
    tModifyGate() = default;
    tModifyGate(const tModifyGate&) = delete;
    tModifyGate& operator=(const tModifyGate&) = delete;

    // Replaces the observer; null removes it. Waits until no call to an earlier one is under way, unless it is called
    // from inside such a call.
    void set(iRadarRecDataModifyObserver* observer);
    bool open() const { return m_modifyObserver.load(std::memory_order_acquire) != nullptr; }
    // Shows a datagram to the observer, if there is one.
    void pass(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len);
    // Whether the calling thread is inside a call of this gate's observer.
    bool inside() const;

private:
    // One call under way.
    struct tFrame
    {
        const tModifyGate* gate = nullptr;
        const tFrame* outer = nullptr;  // the call that this thread was already inside, of any gate
        std::uint64_t generation = 0;   // of the observer that is called
        tFrame* previous = nullptr;     // of all frames of the gate
        tFrame* next = nullptr;
    };
    class tCall;

    static const tFrame*& innermost();
    bool callsBefore(std::uint64_t generation) const;

    mutable std::mutex m_mutex;
    std::condition_variable m_left;
    std::atomic<iRadarRecDataModifyObserver*> m_modifyObserver{nullptr};  // changed under m_mutex
    std::uint64_t m_generation = 0;                                       // guarded by m_mutex; one more at each change
    tFrame* m_frames = nullptr;                                           // guarded by m_mutex
    int m_waiting = 0;                                                    // guarded by m_mutex
};
}  // namespace Kestova

#endif
