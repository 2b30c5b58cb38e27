// tCircleSpokes: one radar's circle spoke loop. While it is stopped it keeps the last revolutions of spokes; while it
// turns it emits them repeatedly, one pass over the buffer every 2 s.
//
// Threads  one while it turns. feed(), start(), halt() and wait() belong to the owner, one at a time; the observer is
//          called on the loop's thread.
// Owner    the observer is not owned.
#ifndef KESTOVA_STORAGE_REPLAY_SPOKELOOP_H
#define KESTOVA_STORAGE_REPLAY_SPOKELOOP_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "KestovaStorage/internal/replay/revolutionbarrier.h"
#include "KestovaStorage/internal/replay/spokebuffer.h"
#include "common/worker.h"

namespace Kestova
{
class iCircleSpokeObserver
{
public:
    virtual ~iCircleSpokeObserver() = default;
    virtual void UpdateCircleSpokeReplay(const tSpokeString& spoke) = 0;
};

class tCircleSpokes
{
public:
    static constexpr std::chrono::milliseconds cPass{2000};

    explicit tCircleSpokes(iCircleSpokeObserver* observer, tRevolutionBarrier& sync = tRevolutionBarrier::shared())
        : m_observer(observer), m_zeroSync(sync)
    {}
    ~tCircleSpokes();

    bool turning() const { return m_replaying; }
    // Keeps the spoke; not while the loop turns.
    void feed(tSpokeString spoke);
    std::size_t size() const { return m_spokeBuff.size(); }
    // Begins to turn if there are spokes and an observer; reports on standard error if no thread can be started. Does
    // nothing to a loop that turns.
    void start();
    void halt();  // signals the loop to stop; call wait() before anything else
    void wait();
    void setPrintFlag(bool on) { m_printFlag = on; }  // lines for tracing; not while the loop turns

private:
    using tTime = tWorker::tClock::time_point;

    void turn();
    bool emitPass(tTime& passStart);
    bool startsRevolution(const tSpokeString& spoke, bool firstOfPass);
    bool sleepUntil(tTime due);
    void waitAtZero(tTime& passStart);
    void emit(const tSpokeString& spoke);

    iCircleSpokeObserver* const m_observer;
    tRevolutionBarrier& m_zeroSync;
    bool m_printFlag = false;
    std::atomic<bool> m_replaying{false};
    tSpokeBuffer m_spokeBuff;             // used by the loop's thread while it turns, by the owner otherwise
    std::optional<std::uint32_t> m_last;  // azimuth emitted last; none at the start
    bool m_syncedInPass = false;          // waited at zero within the pass, behind its first spoke
    tWorker m_loop;
};

// The loops of one replayer by their numbers. Any thread.
class tSpokeLoops
{
public:
    static constexpr int cMaxLoops = 256;

    explicit tSpokeLoops(iCircleSpokeObserver* observer) : m_observer(observer) {}

    // Adds the spoke to loop `number`, creating the loop if it is missing. Drops spokes of numbers from cMaxLoops on,
    // and reports the first one.
    void feed(int number, tSpokeString spoke);
    void run(bool on);

private:
    iCircleSpokeObserver* const m_observer;
    std::mutex m_mutex;
    std::map<int, std::unique_ptr<tCircleSpokes>> m_circleSpokeLoops;  // guarded by m_mutex
    bool m_refusalReported = false;                                    // guarded by m_mutex
};
}  // namespace Kestova

#endif
