#include "KestovaRecordings/internal/messagefeed.h"

#include <utility>

namespace recordings
{
namespace
{
constexpr std::size_t cReadyBytes = 2 << 20;  // reading waits when so much is ready
constexpr std::size_t cSpareBlocks = 4;
constexpr std::size_t cSpareBytes = 4 * tMessageBlock::cBytes;  // larger blocks are returned to the system
}  // namespace

tMessageFeed::tMessageFeed(std::unique_ptr<iMessageInput> input) : m_input(std::move(input))
{
    m_reader.start([this] { readAll(); });
}

tMessageFeed::~tMessageFeed()
{
    m_reader.stop();
}

void tMessageFeed::readAll()
{
    std::exception_ptr failure;
    try
    {
        tMessageWriter writer(*this);
        m_input->read(writer);
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    m_reader.wake([&] {
        m_ended = true;
        m_failure = failure;
    });
}

bool tMessageFeed::deliver(tMessageBlock& block)
{
    tMessageBlock empty;
    {
        tWorker::tLock held = m_reader.lock();
        if (!m_reader.wait(held, [this] { return m_readyBytes < cReadyBytes; }))
            return false;
        m_readyBytes += block.capacity();
        m_ready.push_back(std::move(block));
        if (!m_spare.empty())
        {
            empty = std::move(m_spare.back());
            m_spare.pop_back();
        }
    }
    m_reader.notify();
    block = std::move(empty);
    return true;
}

bool tMessageFeed::nextBlock(std::chrono::milliseconds longest)
{
    if (m_atEnd)
        return false;
    if (!m_again.empty())
    {
        tMessageBlock block = std::move(m_again.front());
        m_again.pop_front();
        enter(std::move(block));
        return true;
    }
    tWorker::tLock held = m_reader.lock();
    const auto isReady = [this] { return !m_ready.empty() || m_ended; };
    if (!isReady() && !m_reader.waitUntil(held, tWorker::tClock::now() + longest, isReady))
        return false;
    if (m_ready.empty())
    {
        m_atEnd = true;
        if (m_failure)
            std::rethrow_exception(std::exchange(m_failure, nullptr));
        return false;
    }
    tMessageBlock block = std::move(m_ready.front());
    m_ready.pop_front();
    m_readyBytes -= block.capacity();
    held.unlock();
    m_reader.notify();
    enter(std::move(block));
    return true;
}

void tMessageFeed::enter(tMessageBlock block)
{
    std::swap(m_block, block);
    m_at = 0;
    m_message = m_block.message(0);
    if (m_keeps)
        m_kept.push_back(std::move(block));
    else
        release(std::move(block));
}

void tMessageFeed::release(tMessageBlock block)
{
    block.clear();
    const tWorker::tLock held = m_reader.lock();
    if (m_spare.size() < cSpareBlocks && block.capacity() <= cSpareBytes)
        m_spare.push_back(std::move(block));
}

void tMessageFeed::forget()
{
    m_keeps = false;
    m_kept.clear();
}

void tMessageFeed::rewind()
{
    m_keeps = false;
    m_again = std::exchange(m_kept, {});
    m_again.push_back(std::exchange(m_block, {}));
    m_at = 0;
    std::erase_if(m_again, [](const tMessageBlock& block) { return block.count() == 0; });
    m_atEnd = m_atEnd && m_again.empty();
}
}  // namespace recordings
