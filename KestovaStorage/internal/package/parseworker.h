// tParseWorker: a received byte stream, and the thread that parses it.
//
// Shapes   the parser gets all bytes received so far, contiguous, behind those that its last call left over. Bytes are
//          copied without the lock that the parser needs: a receiver that finds the parser waiting hands the bytes over
//          itself, so that a stream at full rate never makes the parser queue for them.
// Threads  start() and stop() belong to the owner, everything else to any thread, the parser's calls included.
// Errors   receive() throws std::bad_alloc; none of those bytes is received then.
#ifndef KESTOVA_STORAGE_PACKAGE_PARSEWORKER_H
#define KESTOVA_STORAGE_PACKAGE_PARSEWORKER_H

#include <cstddef>
#include <functional>
#include <mutex>

#include "KestovaStorage/internal/buffers/receivebuffer.h"
#include "common/worker.h"

class tParseWorker
{
public:
    // Returns the number of bytes consumed. The thread ends if a parser leaves more than tReceiveBuffer::cHeadroom,
    // which is more than any unfinished package has.
    using tParser = std::function<std::size_t(const char* bytes, std::size_t len)>;

    void start(tParser parser);
    // Waits for the parser's call under way.
    void stop() { m_worker.stop(); }
    bool isSelf() const { return m_worker.isSelf(); }
    bool running() const { return m_worker.running(); }

    void receive(const char* bytes, std::size_t len);
    // Drops the bytes that the parser has not got yet.
    void clear();

private:
    // The state of the parse thread.
    enum class eParserState
    {
        eBusy,     // parses, or takes more bytes itself before it waits
        eWaiting,  // waits until bytes are handed over
        eHanded    // bytes were handed over, the thread has not woken yet
    };

    // Marks a receiver that copies; at the end it hands the received bytes to a waiting parser.
    class tCopying
    {
    public:
        explicit tCopying(tParseWorker& worker);
        ~tCopying();
        tCopying(const tCopying&) = delete;
        tCopying& operator=(const tCopying&) = delete;

    private:
        tParseWorker& m_worker;
    };

    void run();
    bool waitForBytes();
    bool takeBytes();
    void shrinkBuffer(tWorker::tLock& held);

    std::mutex m_receiveMutex;  // held over a whole receive(): keeps chunks whole and in order
    tReceiveBuffer m_buffer;    // receiving side: m_receiveMutex; take(): worker's lock while no receiver copies
    alignas(64) tParser m_parser;
    bool m_copying = false;                            // guarded by m_worker.lock(): a receiver fills the buffer
    eParserState m_parserState = eParserState::eBusy;  // guarded by m_worker.lock()
    alignas(64) tWorker m_worker;
};

#endif
