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

tParseWorker::tCopying::tCopying(tParseWorker& worker) : m_worker(worker)
{
    const auto held = m_worker.m_worker.lock();
    m_worker.m_copying = true;
}

tParseWorker::tCopying::~tCopying()
{
    auto held = m_worker.m_worker.lock();
    m_worker.m_copying = false;
    if (m_worker.m_parserState != eParserState::eWaiting || m_worker.m_buffer.empty())
        return;
    m_worker.m_buffer.take();
    m_worker.m_parserState = eParserState::eHanded;
    held.unlock();
    m_worker.m_worker.notify();
}

void tParseWorker::clear()
{
    const std::lock_guard receiving(m_receiveMutex);
    const auto held = m_worker.lock();
    m_buffer.clear();
    if (m_parserState != eParserState::eHanded)
        return;
    m_buffer.takeBack();
    m_buffer.shrinkParsed();  // the thread keeps waiting and would not do it itself
    m_parserState = eParserState::eWaiting;
}

void tParseWorker::run()
{
    while (waitForBytes())
    {
        const std::size_t done = m_parser(m_buffer.bytes(), m_buffer.len());
        if (m_buffer.len() - done > tReceiveBuffer::cHeadroom)
            return;  // the parser ended before its bytes
        m_buffer.done(done);
    }
}

bool tParseWorker::waitForBytes()
{
    auto held = m_worker.lock();
    if (takeBytes())
        return m_worker.running();
    shrinkBuffer(held);
    if (takeBytes())
        return m_worker.running();
    m_parserState = eParserState::eWaiting;
    const bool running = m_worker.wait(held, [this] { return m_parserState == eParserState::eHanded; });
    m_parserState = eParserState::eBusy;
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
void tParseWorker::shrinkBuffer(tWorker::tLock& held)
{
    if (m_copying || m_buffer.memory() <= tReceiveBuffer::cKeptSize)
        return;
    tByteRegion surplus = m_buffer.shrinkReceived();
    held.unlock();
    surplus.resize(0);
    m_buffer.shrinkParsed();
    held.lock();
}
