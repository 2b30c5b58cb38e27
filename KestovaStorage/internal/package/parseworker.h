// tParseWorker: a received byte stream, and the thread that parses it.
//
// Shapes   the parser sees all bytes that were received when it looks, contiguous, behind those that it left over the
//          time before. Bytes are copied without the lock that the parser needs: a receiver that finds the parser
//          waiting hands the bytes over itself, so that a stream at full rate never makes the parser queue for them.
// Threads  start() and stop() belong to the owner, everything else to any thread, the parser's calls included.
// Errors   std::bad_alloc leaves receive(); nothing of those bytes is received then.
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
    // Returns how many of the bytes are done with. One that leaves over more than tReceiveBuffer::cHeadroom, more than
    // any unfinished package has, wants no more: the thread ends.
    using tParser = std::function<std::size_t(const char* bytes, std::size_t len)>;

    void start(tParser parser);
    // Waits for the parser's call under way.
    void stop() { m_worker.stop(); }
    bool isSelf() const { return m_worker.isSelf(); }
    bool running() const { return m_worker.running(); }

    void receive(const char* bytes, std::size_t len);
    // Forgets what was received and is not yet with the parser.
    void clear();

private:
    // What the parser has.
    enum class eTurn
    {
        eBusy,     // it works, or looks for more by itself before it sleeps
        eWaiting,  // it sleeps until bytes are handed over
        eHanded    // bytes were handed over, it has not woken yet
    };

    // A receiver at its copy; at the end it hands over what there is to a parser that waits.
    class tCopying
    {
    public:
        explicit tCopying(tParseWorker& worker);
        ~tCopying();
        tCopying(const tCopying&) = delete;
        tCopying& operator=(const tCopying&) = delete;

    private:
        tParseWorker& m_stream;
    };

    void run();
    bool waitForBytes();
    bool takeBytes();
    void cutBack(tWorker::tLock& held);

    std::mutex m_receiveMutex;  // held over a whole receive(): keeps chunks whole and in order
    tReceiveBuffer m_buffer;    // receiving side: m_receiveMutex; take(): worker's lock while no receiver copies
    alignas(64) tParser m_parser;
    bool m_copying = false;       // guarded by m_worker.lock(): a receiver fills the buffer
    eTurn m_turn = eTurn::eBusy;  // guarded by m_worker.lock()
    alignas(64) tWorker m_worker;
};

#endif
