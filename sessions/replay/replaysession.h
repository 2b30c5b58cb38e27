// tReplaySession: plays a recording and is steered while it plays.
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
#include "sessions/replay/player.h"
#include "sessions/replay/replayprogress.h"

namespace session
{
struct tReplayOptions
{
    std::string path;  // data file, or folder with data files
    std::string suffix = ".data";
    recordings::tStreamChoice streams;
    std::optional<recordings::tMoment> start;  // of every pass; none: the first record
    double speed = 1.0;
    std::uint64_t passes = 1;  // 0: without end
    bool net = false;          // sends datagrams; otherwise records are counted and go nowhere
    std::string localIp;       // interface to send on, by address or name; empty: the system chooses
    tAddressMap map;           // destinations to send to instead
};

// Plays on a thread of its own. state(), counts(), sent() and refused() from any thread, everything else from one.
class tReplaySession
{
public:
    // Throws tFailure if there is nothing to play, or no such interface.
    explicit tReplaySession(const tReplayOptions& options);

    // Returns at once; playing begins when everything is open, at the start that the options name.
    void open();
    void close();  // nothing is played or counted once it returns

    tReplayState state() const { return m_progress.state(); }
    recordings::tStreamCounts counts() const { return m_progress.counts(); }
    bool paused() const { return m_paused; }
    tPace pace() const { return m_pace; }

    // Once state().opened. Nothing is played if the start lies behind the last record.
    std::uint64_t startMs() const { return m_startMs; }
    void togglePause();
    void setPace(tPace pace);
    void jumpTo(std::int64_t timeMs);  // to the nearest moment of the recording; plays on from a pause, too
    // Once state().ended: plays from the start again. Returns false after the last pass.
    bool nextPass();

    std::uint64_t passes() const { return m_passes; }              // begun
    std::uint64_t sent() const { return m_player->sent(); }        // datagrams
    std::uint64_t refused() const { return m_player->refused(); }  // by the network
    // Records that are damaged in the files or could not be played. Reads the files' indexes.
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
    std::unique_ptr<iPlayer> m_player;  // last: its threads use m_progress
};
}  // namespace session

#endif
