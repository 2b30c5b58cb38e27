#include "KestovaStorage/internal/package/parseworker.h"

#include <utility>

void tParseWorker::start(tParser parser)
{
    m_parser = std::move(parser);
    m_worker.start([this] { run(); });
}

void tParseWorker::receive(const char* bytes, std::size_t len)
{
    const std::lock_guard receiving(m_receiveMutex);
    const tCopying copying(*this);
    m_buffer.append(bytes, len);
}

tParseWorker::tCopying::tCopying(tParseWorker& worker) : m_stream(worker)
{
    const auto held = m_stream.m_worker.lock();
    m_stream.m_copying = true;
}

tParseWorker::tCopying::~tCopying()
{
    auto held = m_stream.m_worker.lock();
    m_stream.m_copying = false;
    if (m_stream.m_turn != eTurn::eWaiting || m_stream.m_buffer.empty())
        return;
    m_stream.m_buffer.take();
    m_stream.m_turn = eTurn::eHanded;
    held.unlock();
    m_stream.m_worker.notify();
}

void tParseWorker::clear()
{
    const std::lock_guard receiving(m_receiveMutex);
    const auto held = m_worker.lock();
    m_buffer.clear();
    if (m_turn != eTurn::eHanded)
        return;
    m_buffer.takeBack();
    m_buffer.cutBackParsed();  // it sleeps on, and would not do so itself
    m_turn = eTurn::eWaiting;
}

void tParseWorker::run()
{
    while (waitForBytes())
    {
        const std::size_t done = m_parser(m_buffer.bytes(), m_buffer.len());
        if (m_buffer.len() - done > tReceiveBuffer::cHeadroom)
            return;  // a parser that ended before its bytes did
        m_buffer.done(done);
    }
}

bool tParseWorker::waitForBytes()
{
    auto held = m_worker.lock();
    if (takeBytes())
        return m_worker.running();
    cutBack(held);
    if (takeBytes())
        return m_worker.running();
    m_turn = eTurn::eWaiting;
    const bool running = m_worker.wait(held, [this] { return m_turn == eTurn::eHanded; });
    m_turn = eTurn::eBusy;
    return running;
}

bool tParseWorker::takeBytes()
{
    if (m_copying || m_buffer.empty())
        return false;
    m_buffer.take();
    return true;
}

// Before a sleep; the kernel needs long to free large regions, so that is done without the lock.
void tParseWorker::cutBack(tWorker::tLock& held)
{
    if (m_copying || m_buffer.memory() <= tReceiveBuffer::cKeptSize)
        return;
    tByteRegion unneeded = m_buffer.cutBackReceived();
    held.unlock();
    unneeded.resize(0);
    m_buffer.cutBackParsed();
    held.lock();
}
