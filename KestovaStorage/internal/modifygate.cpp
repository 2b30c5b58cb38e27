#include "KestovaStorage/internal/modifygate.h"

#include "KestovaStorage/radardatasaver.h"

namespace Kestova
{
// Enters the gate's frame list for as long as one call lasts.
class tModifyGate::tCall
{
public:
    explicit tCall(tModifyGate& gate) : m_gate(gate)
    {
        m_frame.gate = &gate;
        m_frame.outer = innermost();
        {
            const std::lock_guard<std::mutex> lock(gate.m_mutex);
            m_observer = gate.m_modifyObserver;
            m_frame.generation = gate.m_generation;
            m_frame.next = gate.m_frames;
            if (m_frame.next)
                m_frame.next->previous = &m_frame;
            gate.m_frames = &m_frame;
        }
        innermost() = &m_frame;
    }
    ~tCall()
    {
        innermost() = m_frame.outer;
        const std::lock_guard<std::mutex> lock(m_gate.m_mutex);
        (m_frame.previous ? m_frame.previous->next : m_gate.m_frames) = m_frame.next;
        if (m_frame.next)
            m_frame.next->previous = m_frame.previous;
        if (m_gate.m_waiting != 0)
            m_gate.m_left.notify_all();
    }
    tCall(const tCall&) = delete;
    tCall& operator=(const tCall&) = delete;

    iRadarRecDataModifyObserver* observer() const { return m_observer; }

private:
    tModifyGate& m_gate;
    tFrame m_frame;
    iRadarRecDataModifyObserver* m_observer = nullptr;
};

void tModifyGate::set(iRadarRecDataModifyObserver* observer)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_modifyObserver != observer)
    {
        m_modifyObserver = observer;
        ++m_generation;
    }
    if (inside())
        return;  // two observers that wait here for each other's call would never leave
    ++m_waiting;
    m_left.wait(lock, [this, current = m_generation] { return !callsBefore(current); });
    --m_waiting;
}

void tModifyGate::pass(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len)
{
    if (!open())
        return;
    const tCall call(*this);
    if (iRadarRecDataModifyObserver* observer = call.observer())
        observer->UpdateRecDataModify(info, groupAddr, port, data, len);
}

bool tModifyGate::inside() const
{
    for (const tFrame* frame = innermost(); frame; frame = frame->outer)
        if (frame->gate == this)
            return true;
    return false;
}

const tModifyGate::tFrame*& tModifyGate::innermost()
{
    static thread_local const tFrame* frame = nullptr;
    return frame;
}

bool tModifyGate::callsBefore(std::uint64_t generation) const
{
    for (const tFrame* frame = m_frames; frame; frame = frame->next)
        if (frame->generation < generation)
            return true;
    return false;
}
}  // namespace Kestova
