// tReplaySession: plays a recording, with pause, speed and jumps.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/moment.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/survey.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/pace.h"
#include "sessions/replay/replayer.h"
#include "sessions/replay/replayprogress.h"

namespace session
{
struct tReplayOptions
{
    std::vector<std::string> paths;  // data files, recording folders or storage roots, played as one
    std::string suffix = ".data";
    recordings::tStreamChoice streams;
    std::optional<recordings::tMoment> start;  // of every pass; nothing: the first record
    double speed = 1.0;
    std::optional<std::uint64_t> skippedSilenceMs;  // silences of everything longer than this are skipped
    std::uint64_t passes = 1;                       // 0: unlimited
    bool net = false;                               // sends datagrams; otherwise only counts records
    std::string localIp;  // interface to send on, by address or name; empty: the system chooses
    tAddressMap map;      // other destinations to send to
};

// Plays on a thread of its own. state(), counts(), sent() and refused() from any thread, everything else from one
// thread.
class tReplaySession
{
public:
    // Looks through the files. Throws tFailure if there is nothing to play, the recording has none of the streams, or
    // no group that a rule of the map is for, or there is no such interface.
    explicit tReplaySession(const tReplayOptions& options);

    // Returns at once; playing begins at the start that the options name, when everything is open.
    void open();
    void close();  // plays and counts nothing after the return

    tReplayState state() const { return m_progress.state(); }
    recordings::tStreamCounts counts() const { return m_progress.counts(); }
    bool paused() const { return m_paused; }
    tPace pace() const { return m_pace; }

    const recordings::tSurvey& survey() const { return m_survey; }  // of what is played
    // Returns where playing begins, in ms since the epoch; outside the recording if the options say so, and open() must
    // not be called then.
    double startMs() const { return m_startMs; }
    // After state().opened.
    void togglePause();
    void setPace(tPace pace);
    void jumpTo(std::int64_t timeMs);  // to the nearest moment of the recording; a pause lasts
    // Returns the silence of everything that the replay is in.
    std::optional<recordings::tGap> silence() const;
    void skipSilence();  // jumps to the end of silence()
    void skipLong();     // the same, if the options say so and everything before the silence has been played
    // After state().ended: plays from the start again. Returns false after the last pass.
    bool nextPass();

    std::uint64_t passes() const { return m_passes; }                // begun
    std::uint64_t sent() const { return m_replayer->sent(); }        // datagrams
    std::uint64_t refused() const { return m_replayer->refused(); }  // by the network
    // Returns how many records are damaged in the files or could not be played.
    std::uint64_t damaged() const { return m_survey.damaged + m_replayer->unplayed(); }

private:
    using tSteady = std::chrono::steady_clock;

    void begin(const tReplayState& state);

    const tReplayOptions m_options;
    const std::string m_localIp;
    const recordings::tSurvey m_survey;
    const double m_startMs;
    tPace m_pace;
    bool m_paused = false;
    std::uint64_t m_passes = 0;                        // set by begin(), before state().opened
    std::optional<tSteady::time_point> m_silentSince;  // as skipLong() found it
    tReplayProgress m_progress;
    std::unique_ptr<iReplayer> m_replayer;  // last: its threads use m_progress
};
}  // namespace session

#endif
