// tGate: a door that calls can be held at.
#ifndef KESTOVA_TESTS_GATE_H
#define KESTOVA_TESTS_GATE_H

#include <atomic>

class tGate
{
public:
    void pass() { m_open.wait(false); }
    void open()
    {
        m_open = true;
        m_open.notify_all();
    }

private:
    std::atomic<bool> m_open{false};
};

#endif
