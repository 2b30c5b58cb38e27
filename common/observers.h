// Calls to observers that may be removed while they are being called.
//
//   tObserverGate   calls one observer, which may be replaced
//   tObserverList   calls many observers, one after another
//   tObserverCalls  used by both: the calls that are under way
//
// Promise  when a removal has returned, no call to that observer is under way and none follows. Called from inside a
//          call of the same gate or list it returns at once: two observers that remove each other would wait forever.
// Owner    observers are not owned. A call allocates nothing.
// Threads  any. No lock is held during a call.
#ifndef KESTOVA_COMMON_OBSERVERS_H
#define KESTOVA_COMMON_OBSERVERS_H

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class tObserverCalls
{
public:
    using tLock = std::unique_lock<std::mutex>;

    // A caller: the observer that it calls at the moment, or null, and its thread.
    struct tFrame
    {
        std::atomic<const void*> observer{nullptr};
        std::uint64_t version = 0;  // of the observers that the caller has seen; changed by its thread, under m_mutex
        std::thread::id thread;     // guarded by m_mutex, as are the links
        tFrame* previous = nullptr;
        tFrame* next = nullptr;
    };

    // One call, from construction to destruction.
    class tCall
    {
    public:
        // `observer()` returns the one to call, or null; it runs with the lock held.
        template <typename tChoice>
        tCall(tObserverCalls& calls, tChoice observer) : m_calls(calls)
        {
            const tLock held = calls.lock();
            m_frame.observer = observer();
            calls.update(m_frame);
            calls.link(m_frame);
        }
        ~tCall()
        {
            const tLock held = m_calls.lock();
            m_calls.unlink(m_frame);
            if (m_calls.m_waiting != 0)
                m_calls.m_ended
                    .notify_all();  // under the lock: *m_calls may be destroyed once the removal has returned
        }
        tCall(const tCall&) = delete;
        tCall& operator=(const tCall&) = delete;

    private:
        tObserverCalls& m_calls;
        tFrame m_frame;
    };

    tObserverCalls() = default;
    tObserverCalls(const tObserverCalls&) = delete;
    tObserverCalls& operator=(const tObserverCalls&) = delete;

    tLock lock() const { return tLock(m_mutex); }
    std::uint64_t version() const { return m_version; }

    // Returns whether the calling thread is inside a call.
    bool inside() const
    {
        const tLock held = lock();
        return isInside();
    }
    // Waits for the calls to `observer` that are under way; from inside a call it returns at once.
    void wait(const void* observer)
    {
        tLock held = lock();
        change();
        waitFor(held, observer);
    }

    // ---- for owners that hold the lock ----

    // Marks a change of the observers: calls that begin later see it.
    void change() { ++m_version; }
    // Waits for the calls that began before the last change, to `observer` or, if it is null, to any.
    void waitFor(tLock& held, const void* observer)
    {
        if (isInside())
            return;
        ++m_waiting;
        m_ended.wait(held, [this, observer, current = version()] { return !underWay(observer, current); });
        --m_waiting;
    }
    void update(tFrame& frame)
    {
        frame.version = m_version;
        frame.thread = std::this_thread::get_id();
    }
    void link(tFrame& frame)
    {
        frame.next = m_frames;
        if (frame.next != nullptr)
            frame.next->previous = &frame;
        m_frames = &frame;
    }
    void unlink(const tFrame& frame)
    {
        (frame.previous != nullptr ? frame.previous->next : m_frames) = frame.next;
        if (frame.next != nullptr)
            frame.next->previous = frame.previous;
    }

    // ---- for a linked frame, without the lock ----

    void begin(tFrame& frame, const void* observer) { frame.observer = observer; }
    void end(tFrame& frame)
    {
        frame.observer = nullptr;
        if (m_waiting == 0)
            return;
        const tLock held = lock();  // a waiter that tested before the call ended waits by now
        m_ended.notify_all();
    }

private:
    template <typename tMatch>
    bool anyFrame(tMatch matches) const
    {
        const tFrame* frame = m_frames;
        while (frame != nullptr && !matches(*frame, frame->observer.load()))
            frame = frame->next;
        return frame != nullptr;
    }
    bool isInside() const
    {
        return anyFrame([self = std::this_thread::get_id()](const tFrame& frame, const void* called) {
            return called != nullptr && frame.thread == self;
        });
    }
    bool underWay(const void* observer, std::uint64_t before) const
    {
        return anyFrame([=](const tFrame& frame, const void* called) {
            return called != nullptr && frame.version < before && (observer == nullptr || called == observer);
        });
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_ended;
    std::atomic<std::uint64_t> m_version{1};  // changed under m_mutex
    std::atomic<unsigned int> m_waiting{0};   // changed under m_mutex
    tFrame* m_frames = nullptr;               // guarded by m_mutex
};

// Without an observer a call costs one atomic read.
template <typename tObserver>
class tObserverGate
{
public:
    // Replaces the observer; null removes it. Returns when no call to an earlier one is under way.
    void set(tObserver* observer)
    {
        tObserverCalls::tLock held = m_calls.lock();
        if (m_observer != observer)
        {
            m_observer = observer;
            m_calls.change();
        }
        m_calls.waitFor(held, nullptr);
    }

    bool open() const { return m_observer.load(std::memory_order_acquire) != nullptr; }
    bool inside() const { return m_calls.inside(); }  // the calling thread is inside a call of this gate

    // Runs `call` with the observer, if there is one.
    template <typename tFunction>
    void through(tFunction call)
    {
        if (!open())
            return;
        tObserver* observer = nullptr;
        const tObserverCalls::tCall underWay(m_calls, [&] { return observer = m_observer; });
        if (observer != nullptr)
            call(*observer);
    }

    // A thread that calls often, while it lives. through() is not reentrant, and takes no lock while the observer
    // stays. A removal waits for the next through() or rest(): the thread rests before it waits for anything.
    class tCaller
    {
    public:
        explicit tCaller(tObserverGate& gate) : m_gate(gate)
        {
            const tObserverCalls::tLock held = gate.m_calls.lock();
            gate.m_calls.link(m_frame);
        }
        ~tCaller()
        {
            rest();
            const tObserverCalls::tLock held = m_gate.m_calls.lock();
            m_gate.m_calls.unlink(m_frame);
        }
        tCaller(const tCaller&) = delete;
        tCaller& operator=(const tCaller&) = delete;

        template <typename tFunction>
        void through(tFunction call)
        {
            while (!m_calling || m_frame.version != m_gate.m_calls.version())
                renew();
            if (m_observer != nullptr)
                call(*m_observer);
        }
        void rest()
        {
            if (m_calling)
                m_gate.m_calls.end(m_frame);
            m_calling = false;
        }

    private:
        // Published first, checked second, as in tObserverList.
        void renew()
        {
            rest();
            {
                const tObserverCalls::tLock held = m_gate.m_calls.lock();
                m_observer = m_gate.m_observer;
                m_gate.m_calls.update(m_frame);
            }
            m_gate.m_calls.begin(m_frame, m_observer);
            m_calling = true;
        }

        tObserverGate& m_gate;
        tObserverCalls::tFrame m_frame;
        tObserver* m_observer = nullptr;  // of m_frame's version
        bool m_calling = false;           // the frame names the observer
    };

private:
    std::atomic<tObserver*> m_observer{nullptr};  // changed under the lock of m_calls
    tObserverCalls m_calls;
};

// The list is copied when it changes. A calling thread keeps its copy, and before every call it checks whether that is
// still the newest: a removed observer is not called again, not even for the present event.
template <typename tObserver>
class tObserverList
{
    using tObservers = std::vector<tObserver*>;

public:
    // One calling thread, for its whole life. each() is not reentrant, and takes no lock while nothing changes.
    class tCaller
    {
    public:
        explicit tCaller(tObserverList& list) : m_list(list)
        {
            const tObserverCalls::tLock held = list.m_calls.lock();
            list.m_calls.link(m_frame);
        }
        ~tCaller()
        {
            const tObserverCalls::tLock held = m_list.m_calls.lock();
            m_list.m_calls.unlink(m_frame);
        }
        tCaller(const tCaller&) = delete;
        tCaller& operator=(const tCaller&) = delete;

        // call(observer) for every observer, in the order of registration.
        template <typename tFunction>
        void each(tFunction call)
        {
            if (!isNewest())
                refresh();
            for (tObserver* const observer : *m_observers)
            {
                // Published first, checked second; a removal changes the list first and reads the frames second:
                // one of the two sees the other.
                m_list.m_calls.begin(m_frame, observer);
                if (isNewest() || m_list.contains(observer))
                    call(observer);
                m_list.m_calls.end(m_frame);
            }
        }

    private:
        bool isNewest() const { return m_frame.version == m_list.m_calls.version(); }
        void refresh()
        {
            const tObserverCalls::tLock held = m_list.m_calls.lock();
            m_observers = m_list.m_newest;
            m_list.m_calls.update(m_frame);
        }

        tObserverList& m_list;
        tObserverCalls::tFrame m_frame;
        std::shared_ptr<const tObservers> m_observers;  // of m_frame's version; none before the first event
    };

    void add(tObserver* observer)
    {
        const tObserverCalls::tLock held = m_calls.lock();
        tObservers list = *m_newest;
        list.push_back(observer);
        publish(std::move(list));
    }
    // Removes every entry equal to `observer`; returns when no call to it is under way. Null: does nothing.
    void remove(tObserver* observer)
    {
        if (observer == nullptr)
            return;
        tObserverCalls::tLock held = m_calls.lock();
        tObservers list = *m_newest;
        std::erase(list, observer);
        publish(std::move(list));
        m_calls.waitFor(held, observer);
    }

private:
    void publish(tObservers list)
    {
        m_newest = std::make_shared<const tObservers>(std::move(list));
        m_calls.change();
    }
    bool contains(const tObserver* observer) const
    {
        const tObserverCalls::tLock held = m_calls.lock();
        return std::find(m_newest->begin(), m_newest->end(), observer) != m_newest->end();
    }

    std::shared_ptr<const tObservers> m_newest = std::make_shared<const tObservers>();  // guarded by m_calls' lock
    tObserverCalls m_calls;
};

#endif
