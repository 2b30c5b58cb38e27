// tReceiveLoop: a thread that receives from any number of sockets.
//
// Order    datagrams of several sockets are delivered in the order of their arrival: a pass receives from every socket
//          that has some, and merges those that had arrived when it began; the others wait for the next pass. (The
//          kernel begins to stamp a moment after the first socket of the machine asks for it; until then a datagram
//          has the time at which it was read.)
// Gathers  a loop with a longest pause lets datagrams gather between two passes (gathering.h). A socket that is removed
//          from it gets a last pass, so that nothing that had arrived before is lost.
// Owner    held by shared pointers. A removed socket is the loop's, which destroys it on its thread. The last holder
//          ends the thread, and may be the thread itself, inside a call to a listener.
// Threads  the loop's thread calls the listeners; start(), add() and remove() may be called from any.
#ifndef KESTOVA_NET_RECEIVELOOP_H
#define KESTOVA_NET_RECEIVELOOP_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <sys/epoll.h>
#include <vector>

#include "UdpSocket/internal/gathering.h"
#include "UdpSocket/internal/groupsocket.h"
#include "UdpSocket/internal/pollthread.h"
#include "common/descriptor.h"

namespace net
{
class KESTOVA_HIDDEN tReceiveLoop : public std::enable_shared_from_this<tReceiveLoop>
{
public:
    explicit tReceiveLoop(tGathering::tDuration longestPause) : m_gathering(longestPause) {}
    ~tReceiveLoop() { m_thread.stop(); }
    tReceiveLoop(const tReceiveLoop&) = delete;
    tReceiveLoop& operator=(const tReceiveLoop&) = delete;

    // Starts the thread unless it runs. Returns false, with errno set, if that fails.
    bool start();
    // Receives from an open socket from now on. Returns false, with errno set, if that fails.
    bool add(tGroupSocket& socket);
    // Takes the socket. Waits for a call to its listener that is under way; none follows. From inside a call of this
    // loop it returns at once.
    void remove(std::unique_ptr<tGroupSocket> socket);

private:
    using tSockets = std::vector<tGroupSocket*>;
    using tRemoved = std::vector<std::unique_ptr<tGroupSocket>>;

    void run();
    tRemoved takeRemoved();
    bool destroy(tRemoved removed);
    void collect(bool wait);
    bool poll(int timeout_ms);
    std::size_t pass();
    std::size_t merge();
    void drain(tGroupSocket& socket);
    std::int64_t inOrder(std::int64_t arrived_ns);
    void receive(tGroupSocket& socket);
    void pause(std::size_t received, std::size_t sockets);

    tGathering m_gathering;
    bool m_started = false;  // guarded by m_mutex
    tDescriptor m_epoll;     // never changed once started
    std::mutex m_mutex;
    std::condition_variable m_ended;
    tRemoved m_removed;              // guarded by m_mutex
    std::uint64_t m_removedCnt = 0;  // guarded by m_mutex: sockets ever removed
    std::uint64_t m_endedCnt = 0;    // guarded by m_mutex: of these, destroyed
    std::shared_ptr<tReceiveLoop>
        m_self;  // guarded by m_mutex; until the thread has destroyed what was removed inside a call
    std::atomic<std::size_t> m_watched{0};  // sockets added and not yet destroyed
    // The thread's own:
    std::vector<epoll_event> m_events;
    tSockets m_active;             // sockets of the present pass; between passes, those with datagrams left
    tSockets m_heap;               // of the active ones, those with datagrams left, the earliest on top
    std::int64_t m_due_ns = 0;     // what arrives later waits for the next pass
    std::int64_t m_latest_ns = 0;  // the time of the last datagram delivered
    tGroupSocket::tClock::time_point m_passEnd = tGroupSocket::tClock::now();  // of the last pass
    tPollThread m_thread;
};
}  // namespace net

#endif
