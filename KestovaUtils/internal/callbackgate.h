// tCallbackGate: the way to an observer that may be taken away while calls go through.
//
// No lock is held during a call. close() lets no further call through and waits for those under way on other threads;
// called from inside a call it does not wait for that one. inside() tells whether the calling thread is in a call.
#ifndef KESTOVA_INTERNAL_CALLBACKGATE_H
#define KESTOVA_INTERNAL_CALLBACKGATE_H

#include <condition_variable>
#include <mutex>

class tCallbackGateFrames
{
protected:
    // The calls under way on this thread, innermost first.
    struct tFrame
    {
        explicit tFrame(const tCallbackGateFrames* gate) : m_gate(gate), m_outer(innermost()) { innermost() = this; }
        ~tFrame() { innermost() = m_outer; }
        tFrame(const tFrame&) = delete;
        tFrame& operator=(const tFrame&) = delete;

        const tCallbackGateFrames* m_gate;
        const tFrame* m_outer;
    };

    int ownCalls() const
    {
        int calls = 0;
        for (const tFrame* frame = innermost(); frame != nullptr; frame = frame->m_outer)
            calls += frame->m_gate == this ? 1 : 0;
        return calls;
    }

private:
    static const tFrame*& innermost()
    {
        static thread_local const tFrame* frame = nullptr;
        return frame;
    }
};

template <typename tObserver>
class tCallbackGate : private tCallbackGateFrames
{
public:
    // Sends calls to `observer` from now on; null for none. Close the gate first.
    void open(tObserver* observer)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_observer = observer;
    }

    void close()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_observer = nullptr;
        const int own = ownCalls();
        m_left.wait(lock, [&] { return m_calls <= own; });
    }

    // Runs `call` with the observer, if there is one.
    template <typename tCall>
    void through(tCall call)
    {
        tObserver* const observer = enter();
        if (observer == nullptr)
            return;
        const tLeave leave{*this};
        const tFrame frame(this);
        call(*observer);
    }

    bool inside() const { return ownCalls() != 0; }

private:
    struct tLeave
    {
        tCallbackGate& gate;
        ~tLeave() { gate.leave(); }
    };

    tObserver* enter()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_observer != nullptr)
            ++m_calls;
        return m_observer;
    }

    void leave()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_calls;
        if (m_observer == nullptr)
            m_left.notify_all();  // under the lock: the gate may be gone as soon as close() returns
    }

    std::mutex m_mutex;
    std::condition_variable m_left;
    tObserver* m_observer = nullptr;  // guarded by m_mutex
    int m_calls = 0;                  // guarded by m_mutex
};

#endif
