// tCallbackGate: the way to an observer that may be replaced, or taken away, while calls go through.
//
// Owner    the observer is not owned. The frames of calls under way live on the stacks of their threads; nothing is
//          allocated.
// Threads  any. No lock is held during a call; without an observer a call costs one atomic read.
#ifndef KESTOVA_COMMON_CALLBACKGATE_H
#define KESTOVA_COMMON_CALLBACKGATE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

// What does not depend on the observer's type: who is inside which gate.
class tCallbackGateFrames
{
protected:
    // One call under way.
    struct tFrame
    {
        const tCallbackGateFrames* gate = nullptr;
        const tFrame* outer = nullptr;  // the call that this thread was already inside, of any gate
        std::uint64_t generation = 0;   // of the observer that is called
        tFrame* previous = nullptr;     // of all frames of the gate
        tFrame* next = nullptr;
    };

    static const tFrame*& innermost()
    {
        static thread_local const tFrame* frame = nullptr;
        return frame;
    }

    // Under m_mutex.
    void link(tFrame& frame)
    {
        frame.generation = m_generation;
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
    bool callsBefore(std::uint64_t generation) const
    {
        const tFrame* frame = m_frames;
        while (frame != nullptr && frame->generation >= generation)
            frame = frame->next;
        return frame != nullptr;
    }

public:
    // Whether the calling thread is inside a call of this gate's observer.
    bool inside() const
    {
        const tFrame* frame = innermost();
        while (frame != nullptr && frame->gate != this)
            frame = frame->outer;
        return frame != nullptr;
    }

protected:
    std::mutex m_mutex;
    std::condition_variable m_left;
    std::uint64_t m_generation = 0;  // guarded by m_mutex; one more at each change of the observer
    tFrame* m_frames = nullptr;      // guarded by m_mutex
    int m_waiting = 0;               // guarded by m_mutex
};

template <typename tObserver>
class tCallbackGate : public tCallbackGateFrames
{
public:
    tCallbackGate() = default;
    tCallbackGate(const tCallbackGate&) = delete;
    tCallbackGate& operator=(const tCallbackGate&) = delete;

    // Replaces the observer; null removes it. Waits until no call to an earlier one is under way, unless it is called
    // from inside a call: two observers that wait here for each other would never leave.
    void set(tObserver* observer)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_observer != observer)
        {
            m_observer = observer;
            ++m_generation;
        }
        if (inside())
            return;
        ++m_waiting;
        m_left.wait(lock, [this, current = m_generation] { return !callsBefore(current); });
        --m_waiting;
    }

    bool open() const { return m_observer.load(std::memory_order_acquire) != nullptr; }

    // Runs `call` with the observer, if there is one.
    template <typename tCall>
    void through(tCall call)
    {
        if (!open())
            return;
        const tPassage passage(*this);
        if (tObserver* const observer = passage.observer())
            call(*observer);
    }

private:
    // In the list of frames for as long as one call lasts.
    class tPassage
    {
    public:
        explicit tPassage(tCallbackGate& gate) : m_gate(gate)
        {
            m_frame.gate = &gate;
            m_frame.outer = innermost();
            {
                const std::lock_guard<std::mutex> lock(gate.m_mutex);
                m_called = gate.m_observer;
                gate.link(m_frame);
            }
            innermost() = &m_frame;
        }
        ~tPassage()
        {
            innermost() = m_frame.outer;
            const std::lock_guard<std::mutex> lock(m_gate.m_mutex);
            m_gate.unlink(m_frame);
            if (m_gate.m_waiting != 0)
                m_gate.m_left.notify_all();  // under the lock: the gate may be gone as soon as set() returns
        }
        tPassage(const tPassage&) = delete;
        tPassage& operator=(const tPassage&) = delete;

        tObserver* observer() const { return m_called; }

    private:
        tCallbackGate& m_gate;
        tFrame m_frame;
        tObserver* m_called = nullptr;
    };

    std::atomic<tObserver*> m_observer{nullptr};  // changed under m_mutex
};

#endif
