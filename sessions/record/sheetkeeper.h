// tSheetKeeper: writes the sheets of a recording while it is recorded: when it starts, every ten seconds, after a file
// is finished, and after it is compressed.
//
// Owner    outlives the storage object that it observes.
// Threads  the observer's calls come on threads of the storage object; a thread of its own writes the sheets, from
//          start() to finish(). describe(), update() and takeProblem() may be called from any thread.
// Errors   a sheet that cannot be written is a problem, which takeProblem() returns; recording goes on.
#ifndef KESTOVA_SESSIONS_RECORD_SHEETKEEPER_H
#define KESTOVA_SESSIONS_RECORD_SHEETKEEPER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "KestovaRecordings/missingmessages.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/writeobserver.h"
#include "common/worker.h"
#include "sessions/record/clockwatch.h"
#include "sessions/record/lostjoins.h"
#include "sessions/record/recorder.h"

namespace session
{
constexpr std::chrono::milliseconds cSheetPeriod{10'000};

class tSheetKeeper : public storage::iWriteObserver
{
public:
    // `facts` is what every sheet of the recording says: radar, interface, the source of the times.
    explicit tSheetKeeper(recordings::tSheet facts, std::chrono::milliseconds period = cSheetPeriod);
    ~tSheetKeeper() override;
    tSheetKeeper(const tSheetKeeper&) = delete;
    tSheetKeeper& operator=(const tSheetKeeper&) = delete;

    void describe(const std::string& interface);  // from now on
    // After the first file has been created: returns when its sheet is written. Before that nothing is written: a
    // recording that cannot start leaves no sheet.
    void start();
    // Takes the state of the recorder; several times a second, and before a file is finished.
    void update(const tRecorderState& state);
    // Writes what is left. After the last file is finished, and compressed if that is to be.
    void finish();
    // Returns the receive time of GPS sentences minus the time in them, of the present file, in ms; nothing while that
    // is not known.
    std::optional<double> clockOffsetMs() const;
    // Returns the numbered messages that never came since the recording began.
    recordings::tMissingCounts missingOnWire() const;
    // Returns why a sheet could not be written since the last call; empty if all were.
    std::string takeProblem();

    void FileStarted(const char* path, const storage::tFileId& id) override;
    void SegmentsWritten(const storage::tWrittenSegment* segments, std::size_t count) override;
    void SegmentsLost(std::uint64_t count) override;
    void FileFinished(const char* path) override;
    void FileCompressed(const char* path, const char* compressedPath) override;

private:
    struct tFile;
    using tFilePtr = std::shared_ptr<tFile>;
    using tDropped = std::map<recordings::tStreamKey, std::uint64_t>;
    struct tFinished
    {
        tFilePtr file;
        recordings::tSheet sheet;
    };

    recordings::tSheet composed(const tFile& file, std::uint64_t nowMs) const;
    void addLosses(recordings::tSheet& sheet) const;
    std::uint64_t queueLost() const;
    void accountFor();
    bool hasWork() const;
    void writeOn();
    void writeWhatIsDue();
    void writePresent();
    void writeFinished(tFinished finished);
    void addLateLosses();
    template <typename tQueue>
    bool take(tQueue& queue, typename tQueue::value_type& first);
    template <typename tWork>
    void attempt(tWork work);

    const std::chrono::milliseconds m_period;

    // Guarded by the worker's lock; of a file what tFile says.
    recordings::tSheet m_facts;
    tFilePtr m_file;                   // null while none is open
    std::deque<tFinished> m_finished;  // their sheets are not yet written
    std::deque<std::string> m_compressed;
    recordings::tMissingMessages m_wire;         // of the present file
    recordings::tMissingCounts m_missingBefore;  // of finished files
    tDropped m_dropped, m_droppedBefore;  // by the kernel: as of the last update, and what finished files account for
    std::uint64_t m_lost = 0, m_diskLost = 0;  // messages of all files: in all, and by the disk
    std::uint64_t m_queueLostBefore = 0;       // what finished files account for
    tLostJoins m_joins;
    tClockSteps m_steps{tClocks::now()};
    std::string m_problem, m_lastProblem;
    std::string m_lastFile;  // that was finished
    bool m_firstWritten = false;

    // Of the worker, and of start() and finish() while it does not run.
    bool m_kept = false;  // the file before is
    bool m_started = false;
    tWorker::tClock::time_point m_next;
    tWorker m_worker;
};
}  // namespace session

#endif
