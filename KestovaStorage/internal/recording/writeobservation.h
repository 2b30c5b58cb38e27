// tWriteObservation: calls the write observer beside the writing, on a thread of its own.
//
// Shapes   what happens to the files is posted in its order and called in the same. Segments stay in the blocks of the
//          queue, which come back when all of their calls have returned.
// Owner    owns the blocks that were passed to release(), until then. Neither the observer nor the queue.
// Threads  one, from the first post on. One thread at a time posts; it waits once the observer is cMostBehind behind.
//          compressed() calls the observer on its own thread, after everything posted before it.
// Errors   if no thread can be started, the posting one calls the observer.
#ifndef KESTOVA_STORAGE_RECORDING_WRITEOBSERVATION_H
#define KESTOVA_STORAGE_RECORDING_WRITEOBSERVATION_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/buffers/batchqueue.h"
#include "KestovaStorage/internal/datafile/datafilewriter.h"
#include "KestovaStorage/writeobserver.h"
#include "common/worker.h"

namespace storage
{
class tWriteObservation
{
public:
    static constexpr std::size_t cMostBehind = 8 << 20;  // bytes of blocks

    // Takes a block back; called on the thread of the calls.
    using tRecycle = std::function<void(std::unique_ptr<tSegmentBlock>)>;
    explicit tWriteObservation(tRecycle recycle) : m_recycle(std::move(recycle)) {}

    void setObserver(iWriteObserver* observer) { m_observer = observer; }
    bool active() const { return m_observer != nullptr; }

    // Each does nothing without an observer.
    void fileStarted(const std::string& path, const tFileId& id);
    void written(tWrittenRun& run);  // takes its vectors, and leaves others
    void lost(std::uint64_t count);
    void fileFinished(const std::string& path);
    void waitUntilCalled();  // returns when everything posted has been called
    void compressed(const std::string& path, const std::string& compressedPath);

    // With an observer: takes a block, all of whose segments were posted.
    void release(std::unique_ptr<tSegmentBlock> block);
    // Has segments and blocks called that were posted: on their own they wake the thread once they are many, since
    // waking it for each block costs the writer more than the block.
    void callWaiting();

private:
    struct tEvent
    {
        enum
        {
            eStarted,
            eWritten,
            eLost,
            eFinished,
            eReleased
        } kind;
        std::string path{};
        tFileId id{};
        tWrittenRun run{};
        std::uint64_t count = 0;
        std::unique_ptr<tSegmentBlock> block{};
    };

    void post(tEvent event);
    bool startThread();
    void work();
    void call(tEvent& event);
    void callWritten(iWriteObserver& observer, const tWrittenRun& run);

    const tRecycle m_recycle;
    std::atomic<iWriteObserver*> m_observer{nullptr};
    // guarded by m_thread's lock
    std::deque<tEvent> m_events;
    std::size_t m_behind = 0;  // bytes of the blocks that wait
    std::uint64_t m_postedCnt = 0, m_calledCnt = 0;
    std::vector<tWrittenRun> m_spares;  // vectors to be used again

    std::vector<tWrittenSegment> m_segments;  // of the call
    tWorker m_thread;
};
}  // namespace storage

#endif
