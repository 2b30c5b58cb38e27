// tRecordSession: one recording from its first file to its last, whatever it records.
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
#include "sessions/record/recording.h"

namespace session
{
struct tRecordOptions
{
    std::vector<NetAddress> groups;     // empty: the streams of a radar
    tRadarChoice radar;                 // without groups
    recordings::tStreamChoice streams;  // of the radar
    std::string localIp;                // interface to receive on, by address or name; empty: the system chooses
    std::string root;                   // storage root, made if it is missing
    bool compress = false;              // each file when it is finished
};

// What finish() waits for.
enum class eFinishing
{
    eReceiving,   // for what was sent before and still lies in the kernel; a second at most
    eWriting,     // for the disk
    eCompressing  // of the last files
};

// One thread at a time. Datagrams are recorded from construction on, on threads of their own.
class tRecordSession
{
public:
    // The file is open and every group joined when it returns. Throws tFailure; nothing is left behind then.
    explicit tRecordSession(const tRecordOptions& options);

    // Takes the state of the recording. Call it several times a second: a file that came and went between two calls
    // is missing in files().
    void look();
    const tRecordingState& state() const { return m_state; }  // of the last look()
    const std::vector<std::string>& files() const { return m_files; }
    std::uint32_t compressing() const { return m_recording->compressing(); }

    // Receives until it is quiet, leaves the groups, writes and finishes the file, waits for compression. Calls
    // `waiting` several times a second; false gives up the wait for the disk or leaves the last files plain. state()
    // and files() are final when it returns.
    void finish(const std::function<bool(eFinishing step)>& waiting);

private:
    void drain(const std::function<bool(eFinishing step)>& waiting);
    void write(const std::function<bool(eFinishing step)>& waiting);
    void compress(const std::function<bool(eFinishing step)>& waiting);

    std::unique_ptr<iRecording> m_recording;
    tRecordingState m_state;
    std::vector<std::string> m_files;
};
}  // namespace session

#endif
