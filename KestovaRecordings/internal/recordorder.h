// tRecordOrder: the records of several recordings in one order, as runs of records that follow each other in a file.
//
// Shapes   recordings that overlap in time are merged: the record with the lowest time, with the microseconds that are
//          known, comes next; of equal ones that of the first recording. By time, every file's records are sorted by
//          time, and records of equal time stay as they were recorded; otherwise each recording keeps its order, and
//          only the next records of the recordings are compared.
// Owner    a file is open from its first record until nobody holds it any more.
// Threads  one at a time.
// Errors   a file that cannot be opened any more is left out.
#ifndef KESTOVA_RECORDINGS_INTERNAL_RECORDORDER_H
#define KESTOVA_RECORDINGS_INTERNAL_RECORDORDER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <tuple>
#include <vector>

#include "KestovaRecordings/internal/inputfiles.h"
#include "KestovaStorage/datafile.h"

namespace recordings
{
struct tOpenInput
{
    explicit tOpenInput(const tInputFile& from) : input(from) {}

    const tInputFile& input;
    storage::tDataFile file;
};

struct tRecordRun
{
    std::shared_ptr<tOpenInput> from;
    std::size_t first = 0, count = 0;  // records of the file
};

struct tOrderOptions
{
    bool byTime = false;
    std::uint64_t fromMs = 0, toMs = UINT64_MAX;             // records outside are passed over; the end is excluded
    std::function<std::int64_t(const tInputFile&)> shiftMs;  // of a file's times when they are compared; may be empty
};

class tRecordOrder
{
public:
    // `inputs` outlives the object.
    tRecordOrder(const tInputFiles& inputs, tOrderOptions options);
    ~tRecordOrder();
    tRecordOrder(const tRecordOrder&) = delete;
    tRecordOrder& operator=(const tRecordOrder&) = delete;

    // Returns the next run, of `limit` records at most; false behind the last.
    bool next(tRecordRun& run, std::size_t limit);

    std::uint64_t total() const { return m_total; }      // of the records of all files that may hold some of the span
    std::uint64_t passed() const { return m_passed; }    // so far
    std::uint64_t damaged() const { return m_damaged; }  // index records that are left out, of the files so far
    const std::vector<tLeftOut>& leftOut() const { return m_leftOut; }

private:
    // Where a track stands; the lowest comes next.
    struct tKey
    {
        std::uint64_t timeMs = 0;
        int us = 0;
        std::size_t track = 0;
        bool operator<(const tKey& other) const
        {
            return std::tie(timeMs, us, track) < std::tie(other.timeMs, other.us, other.track);
        }
    };
    class tTrack;

    std::unique_ptr<tTrack> takeFirst();
    void openDue();
    void push(std::unique_ptr<tTrack> track);
    tKey limitOfRun() const;
    static bool laterFirst(const std::unique_ptr<tTrack>& a, const std::unique_ptr<tTrack>& b);

    const tInputFiles& m_inputs;
    const tOrderOptions m_options;
    std::vector<std::unique_ptr<tTrack>> m_waiting;  // the earliest last
    std::vector<std::unique_ptr<tTrack>> m_open;     // a heap, the first one in front
    std::uint64_t m_total = 0, m_passed = 0, m_damaged = 0;
    std::vector<tLeftOut> m_leftOut;
};
}  // namespace recordings

#endif
