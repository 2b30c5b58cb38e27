// tReplaySession: plays a recording, with pause, speed and jumps.
#ifndef KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H
#define KESTOVA_SESSIONS_REPLAY_REPLAYSESSION_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/moment.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaRecordings/survey.h"
#include "sessions/replay/addressmap.h"
#include "sessions/replay/lateness.h"
#include "sessions/replay/livesource.h"
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
    std::optional<recordings::tMoment> end;    // of every pass, which ends before this moment; nothing: the last record
    bool follow = false;    // plays what is being recorded, until its recorder ends, and into files that follow
    bool topSpeed = false;  // as fast as it goes, every record, in order; without pace
    double speed = 1.0;
    std::optional<std::uint64_t> skippedSilenceMs;  // silences of everything longer than this are skipped
    std::uint64_t passes = 1;                       // 0: unlimited
    bool net = false;                               // sends datagrams; otherwise only counts records
    std::string localIp;                    // interface to send on, by address or name; empty: the system chooses
    tAddressMap map;                        // other destinations to send to
    std::optional<tReplayedCat240> cat240;  // where spokes go in the public standard, in place of as they were recorded
};

// Plays on a thread of its own. state(), counts(), truth(), sent() and refused() from any thread, everything else from
// one thread.
//
// Passes   begin at the first record at or after the start and end before the first one at or after the end, each when
//          its time has come: a pass lasts from start to end, and the next one begins at once.
// Follow   plays what was there when it was opened, then every record that comes, once and in the order of recording,
//          into the files that follow. It ends when no recorder has held the last file for a second. A record that
//          comes later than it is due is played at once, and what follows keeps that distance from the recorder. Jumps
//          lead to what was there at the opening, and what has come since is then played again.
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
    tPaceTruth truth() const { return m_lateness.truth(); }

    const recordings::tSurvey& survey() const { return m_survey; }  // of what is played
    // Returns where playing begins, in ms since the epoch; outside the recording if the options say so, and open() must
    // not be called then.
    double startMs() const { return m_startMs; }
    // Returns where each pass ends, nothing for the last record; open() must not be called if it is not behind
    // startMs().
    std::optional<double> endMs() const { return m_endMs; }
    // Returns what is followed, nothing without the option.
    std::string followed() const { return m_source ? m_source->followed() : ""; }
    // After state().opened.
    void togglePause();
    void setPace(tPace pace);
    void jumpTo(std::int64_t timeMs);  // to the nearest moment of the recording; a pause lasts
    // Returns the silence of everything that the replay is in.
    std::optional<recordings::tGap> silence() const;
    void skipSilence();  // jumps to the end of silence()
    void skipLong();     // the same, if the options say so and everything before the silence has been played
    // Returns the notes of all sheets in order of time, with those that noteHere() has made.
    const std::vector<recordings::tNote>& notes() const { return m_notes; }
    // Writes a note into the sheet of the file that is being played, at the clock of the recording. Throws tFailure if
    // that fails.
    recordings::tNote noteHere(const std::string& text);

    std::uint64_t passes() const { return m_passes; }                // begun
    std::uint64_t sent() const { return m_replayer->sent(); }        // datagrams
    std::uint64_t refused() const { return m_replayer->refused(); }  // by the network
    recordings::tCat240Tally cat240() const { return m_replayer->cat240(); }
    // Returns how many records are damaged in the files or could not be played.
    std::uint64_t damaged() const
    {
        return m_survey.damaged + m_replayer->unplayed() + (m_source ? m_source->damaged() : 0);
    }

private:
    using tSteady = std::chrono::steady_clock;

    void begin(const tReplayState& state);
    bool beginNextPass();

    const tReplayOptions m_options;
    const std::string m_localIp;
    const recordings::tSurvey m_survey;
    const double m_startMs;
    const std::optional<double> m_endMs;
    const std::unique_ptr<tLiveSource> m_source;  // null unless it follows
    std::vector<recordings::tNote> m_notes;
    tPace m_pace;
    bool m_paused = false;
    std::atomic<std::uint64_t> m_passes{0};            // set by begin(), before state().opened
    std::uint64_t m_openedLastMs = 0;                  // the same: jumps lead no further
    std::optional<tSteady::time_point> m_silentSince;  // as skipLong() found it
    tLateness m_lateness;
    tReplayProgress m_progress;
    std::unique_ptr<iReplayer> m_replayer;  // last: its threads use what is above
};
}  // namespace session

#endif
