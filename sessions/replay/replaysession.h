// tReplaySession: plays a recording, with pause, speed and jumps.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/moment.h"
#include "KestovaRecordings/streamchoice.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/pace.h"
#include "sessions/replay/replayer.h"
#include "sessions/replay/replayprogress.h"

namespace session
{
struct tReplayOptions
{
    std::string path;  // data file, or folder with data files
    std::string suffix = ".data";
    recordings::tStreamChoice streams;
    std::optional<recordings::tMoment> start;  // of every pass; nothing: the first record
    double speed = 1.0;
    std::uint64_t passes = 1;  // 0: unlimited
    bool net = false;          // sends datagrams; otherwise only counts records
    std::string localIp;       // interface to send on, by address or name; empty: the system chooses
    tAddressMap map;           // other destinations to send to
};

// Plays on a thread of its own. state(), counts(), sent() and refused() from any thread, everything else from one
// thread.
class tReplaySession
{
public:
    // Throws tFailure if there is nothing to play, or no such interface.
    explicit tReplaySession(const tReplayOptions& options);

    // Returns at once; playing begins at the start that the options name, when everything is open.
    void open();
    void close();  // plays and counts nothing after the return

    tReplayState state() const { return m_progress.state(); }
    recordings::tStreamCounts counts() const { return m_progress.counts(); }
    bool paused() const { return m_paused; }
    tPace pace() const { return m_pace; }

    // After state().opened. Plays nothing if the start is later than the last record.
    std::uint64_t startMs() const { return m_startMs; }
    void togglePause();
    void setPace(tPace pace);
    void jumpTo(std::int64_t timeMs);  // to the nearest moment of the recording; ends a pause
    // After state().ended: plays from the start again. Returns false after the last pass.
    bool nextPass();

    std::uint64_t passes() const { return m_passes; }                // begun
    std::uint64_t sent() const { return m_replayer->sent(); }        // datagrams
    std::uint64_t refused() const { return m_replayer->refused(); }  // by the network
    // Returns how many records are damaged in the files or could not be played. Reads the files' indexes.
    std::uint64_t countDamaged() const;

private:
    void begin(const tReplayState& state);

    const tReplayOptions m_options;
    const std::string m_localIp;
    const std::vector<std::string> m_files;
    tPace m_pace;
    bool m_paused = false;
    std::uint64_t m_startMs = 0;  // set by begin(), before state().opened
    std::uint64_t m_passes = 0;   // as m_startMs
    tReplayProgress m_progress;
    std::unique_ptr<iReplayer> m_replayer;  // last: its threads use m_progress
};
}  // namespace session

#endif
