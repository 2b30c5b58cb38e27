// tMessageFeed: the messages of an input, read ahead on a thread of its own.
//
// Shapes   message() is the one that comes next; it and its bytes are valid until advance(). Up to 2 MiB, or one longer
//          message, waits. While kept, messages that have gone by stay in memory, so that rewind() can begin again.
// Owner    owns the input; the destructor ends the reading.
// Threads  starts one; the operations belong to one other thread.
// Errors   what reading throws is thrown by wait() in its place among the messages.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MESSAGEFEED_H
#define KESTOVA_RECORDINGS_INTERNAL_MESSAGEFEED_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <vector>

#include "KestovaRecordings/internal/messageinput.h"
#include "KestovaRecordings/internal/messages.h"
#include "common/worker.h"

namespace recordings
{
class tMessageFeed : private iMessageSink
{
public:
    explicit tMessageFeed(std::unique_ptr<iMessageInput> input);
    ~tMessageFeed() override;
    tMessageFeed(const tMessageFeed&) = delete;
    tMessageFeed& operator=(const tMessageFeed&) = delete;

    // Waits for the next message. Returns false if none came within `longest`; then atEnd() tells why.
    bool wait(std::chrono::milliseconds longest) { return m_at < m_block.count() || nextBlock(longest); }
    bool atEnd() const { return m_atEnd; }
    const tMessage& message() const { return m_message; }
    void advance()
    {
        if (++m_at < m_block.count())
            m_message = m_block.message(m_at);
    }

    void keep() { m_keeps = true; }
    void forget();  // keeps no longer
    // Returns to the first message that was kept, and keeps no longer.
    void rewind();

    double fraction() const { return m_fraction; }                           // that has been read, from 0 to 1
    const tMessageInputResult& result() const { return m_input->result(); }  // at the end

private:
    bool deliver(tMessageBlock& block) override;
    void advanceTo(double fraction) override { m_fraction = fraction; }
    void readAll();
    bool nextBlock(std::chrono::milliseconds longest);
    void enter(tMessageBlock block);
    void release(tMessageBlock block);

    const std::unique_ptr<iMessageInput> m_input;
    tMessageBlock m_block;  // the present one
    std::size_t m_at = 0;   // the present message in it
    tMessage m_message;
    bool m_atEnd = false, m_keeps = false;
    std::deque<tMessageBlock> m_kept, m_again;  // that have gone by; that come before all others
    std::atomic<double> m_fraction{0.0};

    // Guarded by the lock of m_reader.
    std::deque<tMessageBlock> m_ready;
    std::vector<tMessageBlock> m_spare;
    std::size_t m_readyBytes = 0;
    bool m_ended = false;
    std::exception_ptr m_failure;

    tWorker m_reader;
};
}  // namespace recordings

#endif
