// tRecordSession: one recording from its first file to its last, of a radar or of groups.
#ifndef KESTOVA_SESSIONS_RECORD_RECORDSESSION_H
#define KESTOVA_SESSIONS_RECORD_RECORDSESSION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/netaddress.h"
#include "sessions/radarchoice.h"
#include "sessions/record/recorder.h"

namespace session
{
struct tRecordOptions
{
    std::vector<NetAddress> groups;     // empty: the streams of a radar
    tRadarChoice radar;                 // without groups
    recordings::tStreamChoice streams;  // of the radar
    std::string localIp;                // interface to receive on, by address or name; empty: the system chooses
    std::string root;                   // storage root; created if it is missing
    bool compress = false;              // each file when it is finished
};

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
    explicit tRecordSession(const tRecordOptions& options);

    // Reads the state of the recorder. Call it several times a second: files() misses a file that begins and ends
    // between two calls.
    void updateState();
    const tRecorderState& state() const { return m_state; }  // of the last updateState()
    const std::vector<std::string>& files() const { return m_files; }
    std::uint32_t compressing() const { return m_recorder->compressing(); }

    // Receives until no datagram comes any more, leaves the groups, writes and finishes the file, waits for
    // compression. Calls `waiting` several times a second; if that returns false, ends the wait for the disk, or leaves
    // the last files plain. state() and files() are final when it returns.
    void finish(const std::function<bool(eFinishing step)>& waiting);

private:
    void drain(const std::function<bool(eFinishing step)>& waiting);
    void write(const std::function<bool(eFinishing step)>& waiting);
    void compress(const std::function<bool(eFinishing step)>& waiting);

    std::unique_ptr<iRecorder> m_recorder;
    tRecorderState m_state;
    std::vector<std::string> m_files;
};
}  // namespace session

#endif
