// compareRecordings: what differs between two recordings, stream by stream, aligned by content.
//
// Each side is a recording (a data file, a recording folder, a storage root) or a capture. What is compared are
// messages: of a package its payload, of any other segment all its bytes; numbers and times of packages do not count.
// A stream is compared with the one of the same kind and group; if one side is a capture, with the one of the same
// group.
//
// How messages are aligned: a longest common subsequence, found in windows. From a difference on, the messages of both
// sides wait (a hash of 64 bits and a time each) until 64 in a row agree again, which is first looked for after 1,024
// on either side. So one lost message is one difference, also among identical ones, where the times decide which of
// them is missing; a block that only one side has may have any length, as long as it does not stand where both sides
// differ otherwise, too. Messages that changed places count as moved if they are within one window.
//
// Where the two begin to agree: the first messages of either side are looked for in the whole other one, so that a part
// of a recording is found in it, whatever the clocks were. If nothing agrees, both are read twice; then every message
// is `changed`, as far as the other side has one at its place, or in one of them only.
//
// Memory, whatever the size of the recordings: 262,144 messages a side wait at most, 131,072 of one stream (16 bytes
// each, some 80 while they are aligned), 2 MiB of messages a side are read ahead, 4 MiB at the beginning; some
// 100 KiB a stream with a tolerance. Beyond that, the index of each open data file, and what the longest message takes.
// If more wait, the older side's oldest half has no counterpart.
#ifndef KESTOVA_RECORDINGS_COMPARISON_H
#define KESTOVA_RECORDINGS_COMPARISON_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

namespace recordings
{
struct tCompareOptions
{
    std::string a{}, b{};
    std::string suffix = ".data";
    tStreamChoice streams{};
    // Returns the group that one of A is in B; none: the same.
    std::function<NetAddress(const NetAddress&)> mapGroup{};
    // No time is compared, that which a replay puts into image state messages included. Excludes a tolerance.
    bool ignoreTime = false;
    std::optional<std::uint64_t> toleranceMs{};  // times are judged
};

// The place of a difference; in microseconds since the epoch, nothing on a side that has no message there.
struct tDifferencePlace
{
    std::optional<std::int64_t> aUs, bUs;
};

// The messages of A are same, changed, moved and onlyA; those of B are same, changed, moved and onlyB.
struct tStreamDifference
{
    tStreamKey key;          // its group as in B; its kind means nothing if `named` is false
    bool named = true;       // false: both sides are captures
    std::uint64_t same = 0;  // equal, in the same order
    std::uint64_t onlyA = 0, onlyB = 0;
    std::uint64_t changed = 0;  // of other bytes at the same place
    std::uint64_t moved = 0;    // of the same bytes at another place; 1 for two that are exchanged
    std::uint64_t late = 0;     // of `same`: farther from the median offset than the tolerance, on either side
    std::optional<tDifferencePlace> first;

    bool differs() const { return onlyA + onlyB + changed + moved + late != 0; }
};

// Of all messages that are the same: B's time less A's, and how far the others are from the median. In microseconds.
struct tClockDifference
{
    double offsetUs = 0, deviationP50Us = 0, deviationP99Us = 0, deviationMaxUs = 0;
};

struct tRecordingComparison
{
    std::vector<tStreamDifference> streams;    // in the order of tables
    std::optional<tClockDifference> clock;     // nothing if no message is the same
    std::vector<tLeftOut> leftOut;             // files of either side; captures that end too early
    std::uint64_t damagedA = 0, damagedB = 0;  // messages that could not be read whole
    bool complete = false;                     // false: cancelled; then nothing else is set

    // Whether both sides were read whole and no stream differs.
    KESTOVA_API bool equal() const;
};

struct tCompareProgress
{
    bool searching;   // for the place where both sides begin to agree, which is far
    double fraction;  // of both sides that has been read, from 0 to 1
};

// Calls `goOn` every few milliseconds; false cancels. Reads on two threads of its own. Throws tFailure if a side cannot
// be read at all, or streams are chosen and both sides are captures, which do not name streams. Any thread.
KESTOVA_API tRecordingComparison compareRecordings(const tCompareOptions& options,
                                                   const std::function<bool(const tCompareProgress&)>& goOn);
}  // namespace recordings

#endif
