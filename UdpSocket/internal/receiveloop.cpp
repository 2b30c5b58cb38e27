#include "UdpSocket/internal/receiveloop.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <limits>
#include <poll.h>
#include <utility>

namespace net
{
namespace
{
using namespace std::chrono_literals;
using tClock = tGroupSocket::tClock;

// How long a last pass may take.
constexpr auto cLastPass = 200ms;
// A time that is so much before the last one is that of a system clock that was set back.
constexpr std::int64_t cClockSetBack_ns = 20'000'000;

std::int64_t systemTime_ns()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// What arrived later than now arrived before the system clock was set back.
bool isDue(std::int64_t arrived_ns, std::int64_t due_ns)
{
    return arrived_ns <= due_ns || arrived_ns > systemTime_ns();
}

bool watch(int epoll, int descriptor, tGroupSocket* socket)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = socket;  // null: the thread's own wake-up
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

// The earliest on top of a heap.
bool laterThan(const tGroupSocket* a, const tGroupSocket* b)
{
    return a->nextArrived_ns() > b->nextArrived_ns();
}
}  // namespace

bool tReceiveLoop::start()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_started)
        return true;
    m_epoll = tDescriptor(::epoll_create1(EPOLL_CLOEXEC));
    m_started = m_epoll.valid() && m_thread.prepare() && watch(m_epoll.get(), m_thread.wakeUp(), nullptr) &&
                m_thread.start("kestova-udp", [this] { run(); });
    return m_started;
}

bool tReceiveLoop::add(tGroupSocket& socket)
{
    m_gathering.limit(socket.receiveBufferSize());
    ++m_watched;
    if (watch(m_epoll.get(), socket.descriptor(), &socket))
        return true;
    --m_watched;
    return false;
}

void tReceiveLoop::remove(std::unique_ptr<tGroupSocket> socket)
{
    const bool inside = m_thread.isSelf();
    if (m_gathering.enabled() && !inside)
        socket->endAt(tClock::now() + cLastPass);
    else
        socket->end();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_removed.push_back(std::move(socket));
    const std::uint64_t number = ++m_removedCnt;
    if (inside)
        m_self = shared_from_this();
    m_thread.wake();
    if (!inside)
        m_ended.wait(lock, [&] { return m_endedCnt >= number; });
}

void tReceiveLoop::run()
{
    while (!m_thread.stopping())
    {
        tRemoved removed = takeRemoved();
        collect(removed.empty());
        const std::size_t sockets = m_active.size();
        const std::size_t received = pass();
        for (const auto& socket : removed)
            drain(*socket);
        if (!destroy(std::move(removed)))
            return;
        pause(received, sockets);
    }
}

tReceiveLoop::tRemoved tReceiveLoop::takeRemoved()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_removed, {});
}

// Returns false if the loop itself has ended with the last of its holders: nothing of it may be touched any more.
bool tReceiveLoop::destroy(tRemoved removed)
{
    if (removed.empty())
        return true;
    const std::size_t count = removed.size();
    for (const auto& socket : removed)
        std::erase(m_active, socket.get());
    removed.clear();  // closing a socket ends its watch
    m_watched -= count;
    std::shared_ptr<tReceiveLoop> self;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_endedCnt += count;
        if (m_removed.empty())
            self = std::move(m_self);
        m_ended.notify_all();
    }
    const std::weak_ptr<tReceiveLoop> alive = self;
    const bool mayEnd = self != nullptr;
    self.reset();
    return !mayEnd || !alive.expired();
}

// ---- a pass ----

// Adds the sockets that have something to m_active and sets up to when a pass delivers; with `wait`, sleeps until there
// is something or somebody wakes the thread. The time is taken before the sockets are looked at: of what had arrived by
// then, nothing is in a socket that was not found.
void tReceiveLoop::collect(bool wait)
{
    const auto ordered = [this] { return m_watched.load(std::memory_order_relaxed) > 1; };
    const bool sleep = wait && m_active.empty();
    if (ordered())
    {
        m_due_ns = systemTime_ns();
        if (poll(0) || !sleep)
            return;
    }
    poll(sleep ? -1 : 0);
    const bool several = ordered();  // others may have been added meanwhile
    m_due_ns = several ? systemTime_ns() : std::numeric_limits<std::int64_t>::max();
    if (several)
        poll(0);
}

// Returns whether there was something.
bool tReceiveLoop::poll(int timeout_ms)
{
    m_events.resize(m_watched.load(std::memory_order_relaxed) + 1);
    const int ready = ::epoll_wait(m_epoll.get(), m_events.data(), static_cast<int>(m_events.size()), timeout_ms);
    for (int i = 0; i < ready; ++i)
    {
        auto* const socket = static_cast<tGroupSocket*>(m_events[static_cast<std::size_t>(i)].data.ptr);
        if (socket == nullptr)
            m_thread.takeWakeUp();
        else if (!std::exchange(socket->active, true))
            m_active.push_back(socket);
    }
    return ready > 0;
}

// Returns the number of datagrams delivered.
std::size_t tReceiveLoop::pass()
{
    for (tGroupSocket* const socket : m_active)
    {
        socket->fresh = !socket->pending();
        if (socket->fresh)
            receive(*socket);
    }
    const std::size_t delivered = merge();
    for (tGroupSocket* const socket : m_active)
    {
        socket->active = socket->pending();
        if (socket->active)
            socket->keep();
    }
    std::erase_if(m_active, [](const tGroupSocket* socket) { return !socket->active; });
    return delivered;
}

std::size_t tReceiveLoop::merge()
{
    std::size_t delivered = 0;
    m_heap.clear();
    std::copy_if(m_active.begin(), m_active.end(), std::back_inserter(m_heap),
                 [](const tGroupSocket* socket) { return socket->pending(); });
    std::make_heap(m_heap.begin(), m_heap.end(), laterThan);
    while (!m_heap.empty() && isDue(m_heap.front()->nextArrived_ns(), m_due_ns))
    {
        std::pop_heap(m_heap.begin(), m_heap.end(), laterThan);
        tGroupSocket& socket = *m_heap.back();
        socket.deliverNext(inOrder(socket.nextArrived_ns()));
        ++delivered;
        // What was left of the pass before may have filled no batch long ago.
        if (!socket.pending() && (socket.mayHaveMore() || !std::exchange(socket.fresh, true)))
            receive(socket);
        if (socket.pending())
            std::push_heap(m_heap.begin(), m_heap.end(), laterThan);
        else
            m_heap.pop_back();
    }
    return delivered;
}

// Delivers what is left of a socket that ends, whatever its time: until the kernel stamps, that is the time of reading.
void tReceiveLoop::drain(tGroupSocket& socket)
{
    while (!socket.ended() && (socket.pending() || socket.receive()))
        socket.deliverNext(inOrder(socket.nextArrived_ns()));
}

// The kernel may have had a datagram in hand, stamped but not yet received, when a pass began that delivered later
// ones: it gets their time, so that times never fall unless the system clock is set back.
std::int64_t tReceiveLoop::inOrder(std::int64_t arrived_ns)
{
    if (arrived_ns > m_latest_ns || arrived_ns < m_latest_ns - cClockSetBack_ns)
        m_latest_ns = arrived_ns;
    return m_latest_ns;
}

// No error of the kernel ends reception. One that persists, such as a lack of memory, must not become a busy loop.
void tReceiveLoop::receive(tGroupSocket& socket)
{
    constexpr int cPause_ms = 5;
    if (!socket.receive() && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
        m_thread.wait(-1, cPause_ms);
}

void tReceiveLoop::pause(std::size_t received, std::size_t sockets)
{
    if (!m_gathering.enabled())
        return;
    const auto now = tClock::now();
    const auto pause = m_gathering.pauseAfter(received, sockets, now - std::exchange(m_passEnd, now));
    if (pause.count() == 0)
        return;
    pollfd wakeUp{m_thread.wakeUp(), POLLIN, 0};
    const timespec time{0, pause.count()};
    ::ppoll(&wakeUp, 1, &time, nullptr);
}
}  // namespace net
