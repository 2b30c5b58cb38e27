// tTimeline: the play order of the segments of many files.
//
// Every segment has a key of 64 bits: its time in ms shifted left by 16, plus its place among the segments of that
// time in the order of opening (files in the order given, records in the order of recording). If one millisecond
// holds more than 65,536 segments, the others get the next free keys.
//
// Shapes   the files' indexes stay where they are, in memory or on disk, and are merged while they are walked: nothing
//          is kept per segment. Only if a millisecond might overflow, every key is written out, in 16 bytes a segment.
// Owner    refers to the indexes; those in memory it may sort by time. They must stay until clear().
// Threads  none; built by one thread, then read by any.
#ifndef KESTOVA_STORAGE_PLAYBACK_TIMELINE_H
#define KESTOVA_STORAGE_PLAYBACK_TIMELINE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "KestovaStorage/internal/playback/timelinefile.h"

namespace storage
{
struct tTimelineSegment
{
    std::uint64_t key;
    std::uint32_t file;    // number of the file, in the order given
    std::uint32_t record;  // number of the record in that file's index
};

class tTimeline
{
public:
    using tCancelled = std::function<bool()>;
    using tReadBlock = tTimelineRecords::tReadBlock;

    // Replaces the timeline. Stops early, with an unusable one, once `cancelled` returns true. `readBlock` is called
    // now and by every walk, for files whose index is not in memory.
    void build(std::vector<tTimelineFile> files, const tCancelled& cancelled, tReadBlock readBlock = nullptr);
    void clear();

    std::size_t size() const { return m_size; }
    std::uint64_t firstKey() const { return m_firstKey; }  // 0 without segments
    std::uint64_t lastKey() const { return m_lastKey; }

    // Walks the segments from the first key that is not below a start on. Valid until the timeline changes.
    class tCursor
    {
    public:
        tCursor(const tTimeline& timeline, std::uint64_t startKey);
        bool next(tTimelineSegment& segment);  // false at the end
        // Returns the index record of the segment that next() has given.
        const tIndexSlot& record() const { return m_record; }

    private:
        struct tHead  // the next record of one file
        {
            std::uint64_t time;
            std::uint32_t file;
            std::uint32_t record;
            bool operator>(const tHead& other) const
            {
                return time != other.time ? time > other.time : file > other.file;
            }
        };
        void advance(tHead head);
        bool nextMerged(tTimelineSegment& segment);

        const tTimeline* m_timeline;
        tTimelineRecords m_records;
        tIndexSlot m_record{};
        std::size_t m_place = 0;       // in the written-out keys
        std::vector<tHead> m_heads;    // a heap, the earliest on top
        std::uint64_t m_time = 0;      // of the segment before
        std::uint64_t m_sameTime = 0;  // segments of that time so far
    };

private:
    bool mayOverflow() const;
    void sortFiles();
    void writeKeysOut(const tCancelled& cancelled);
    void measure();

    std::vector<tTimelineFile> m_files;
    tReadBlock m_readBlock;
    std::vector<tTimelineSegment> m_keys;  // written out, in play order; else empty
    bool m_keysWritten = false;
    std::size_t m_size = 0;
    std::uint64_t m_firstKey = 0;
    std::uint64_t m_lastKey = 0;
};
}  // namespace storage

#endif
