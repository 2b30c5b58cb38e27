// tRecordSession: one recording from its first file to its last, of a radar or of groups.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDSESSION_H
#define KESTOVA_SESSIONS_RECORD_RECORDSESSION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/prune.h"
#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/netaddress.h"
#include "sessions/localaddress.h"
#include "sessions/radarchoice.h"
#include "sessions/record/diskwatch.h"
#include "sessions/record/reclaimlog.h"
#include "sessions/record/recorder.h"
#include "sessions/record/ring.h"
#include "sessions/record/sheetkeeper.h"
#include "sessions/record/silencewatch.h"

namespace session
{
struct tRecordOptions
{
    std::vector<NetAddress> groups;     // empty: the streams of a radar
    tRadarChoice radar;                 // without groups
    recordings::tStreamChoice streams;  // of the radar
    std::string localIp;                // interface to receive on, by address or name; empty: the system chooses
    std::string spokeLayout;            // JSON; empty: as the directory says
    std::string root;                   // storage root; created if it is missing
    bool compress = false;              // each file when it is finished
    bool reclaim = false;               // deletes the oldest data files below the root while its disk is low
    recordings::tPruneLimits limits;    // deletes the oldest below the root until they hold
};

// What happens to a recording. Called from inside updateState() and finish().
class iRecordObserver
{
public:
    virtual ~iRecordObserver() = default;
    virtual void onNextFile(const std::string& file) = 0;  // after a roll-over
    // The interface has another address (ip 0: none), or the same one moved: the groups were joined anew, but for
    // `notJoined` of them.
    virtual void onAddress(const tInterface& interface, std::size_t notJoined) = 0;
    virtual void onSilence(const tSilence& silence) = 0;
    virtual void onDiskLeft(const tDiskLeft& left) = 0;  // less than 1 GiB, or than an hour
    virtual void onReclaimed(const tReclaimed& file) = 0;
    virtual void onSheetProblem(const std::string& problem) = 0;  // a sheet could not be written; each problem once
};

// Returns what these datagrams take in a file: their bytes, and what a package and an index record add to each.
std::uint64_t bytesInFile(const recordings::tStreamCount& datagrams);

// The steps of finish(), each a wait.
enum class eFinishing
{
    eReceiving,   // for datagrams that the kernel still holds; a second at most
    eWriting,     // for the disk
    eCompressing  // of the last files
};

// One thread at a time. Datagrams are recorded from construction on, on threads of their own.
class tRecordSession
{
public:
    // Opens the file and joins every group before it returns. Throws tFailure if that fails, and leaves nothing behind.
    // The observer is not owned.
    tRecordSession(const tRecordOptions& options, iRecordObserver& observer);

    // Reads the state of the recorder and notifies the observer. Call it several times a second: files() misses a file
    // that begins and ends between two calls.
    void updateState();
    // Returns the interfaces that receive: one for a radar, for groups those that the kernel chooses.
    const std::vector<tInterface>& interfaces() const { return m_interfaces; }
    // Returns the chosen streams that have had no datagram. Groups that all radars share do not count: they carry other
    // radars' messages, and queries of this recorder.
    std::vector<recordings::tStreamKey> silent() const;
    bool allSilent() const { return total(chosenStreams()).messages == 0; }
    std::uint64_t freeBytes() const { return m_freeBytes; }                   // on the disk of the root
    const std::vector<tReclaimed>& reclaimed() const { return m_reclaimed; }  // what was deleted
    const tRecorderState& state() const { return m_state; }                   // of the last updateState()
    const std::vector<std::string>& files() const { return m_files; }
    std::uint32_t compressing() const { return m_recorder->compressing(); }
    recordings::tMissingCounts missingOnWire() const { return m_sheets.missingOnWire(); }  // see tSheetKeeper
    std::optional<double> clockOffsetMs() const { return m_sheets.clockOffsetMs(); }       // see tSheetKeeper

    // Goes on in the next file, which a later updateState() notifies. Returns false if no file is open.
    bool startNextFile() { return m_recorder->startNextFile(); }

    // Receives until no datagram comes any more, leaves the groups, writes and finishes the file, waits for
    // compression. Calls `waiting` several times a second; if that returns false, ends the wait for the disk, or leaves
    // the last files plain. state() and files() are final when it returns.
    void finish(const std::function<bool(eFinishing step)>& waiting);

private:
    recordings::tStreamCounts chosenStreams() const;
    void notifyFile();
    void notifyAddress();
    void notifyDisk();
    void notifyReclaimed();
    void notifySheets();
    void drain(const std::function<bool(eFinishing step)>& waiting);
    void write(const std::function<bool(eFinishing step)>& waiting);
    void compress(const std::function<bool(eFinishing step)>& waiting);

    const tRecordOptions m_options;
    iRecordObserver& m_observer;
    tReclaimLog m_reclaimLog;  // from before the recorder's storage to behind it
    tSheetKeeper m_sheets;     // from before it, too: the storage notifies it to its end
    std::unique_ptr<iRecorder> m_recorder;
    tRecorderState m_state;
    std::vector<std::string> m_files;
    std::vector<tInterface> m_interfaces;
    unsigned int m_addressReports = 0;    // notified
    std::vector<tReclaimed> m_reclaimed;  // notified
    std::size_t m_reclaimedFiles = 0;     // of them, those of m_reclaimLog
    tSilenceWatch m_silenceWatch;
    tDiskWatch m_diskWatch;
    std::uint64_t m_freeBytes = 0;
    tRing m_ring;
};
}  // namespace session

#endif
