// tReplay: one run of the replay command, from opening to report.
#ifndef KESTOVA_TOOLS_COMMANDS_REPLAYING_H
#define KESTOVA_TOOLS_COMMANDS_REPLAYING_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sessions/replay/pace.h"
#include "sessions/replay/player.h"
#include "sessions/replay/replaysession.h"
#include "tools/shell/keys.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
class tConsole;

struct tReplayOptions
{
    std::string path;
    std::string suffix = ".data";
    std::vector<std::string> streams;
    std::string start;
    double speed = 1.0;
    std::uint64_t passes = 1;  // 0: until the end is asked for
    bool json = false;
    bool net = false;
    std::string localIp;            // dotted, or empty: the system chooses
    std::vector<std::string> maps;  // rules of tAddressMap
};

class tReplay
{
public:
    tReplay(const tReplayOptions& options, std::vector<std::string> files, tConsole& console);
    int run();

private:
    void begin(const tReplayState& state);
    bool waitForOpening();
    void playAll();
    bool playToEnd();
    bool steer();
    void press(eKey key);
    void togglePause();
    void setPace(tPace pace);
    void jumpTo(std::int64_t timeMs);
    void showProgress();
    std::uint64_t countDamaged() const;
    int report();
    tJson json(std::uint64_t damaged) const;
    std::string text() const;

    const tReplayOptions& m_options;
    const std::vector<std::string> m_files;
    tConsole& m_console;
    tStopSignal m_stop;
    tSteering m_steering;
    tPace m_pace;
    bool m_paused = false;
    std::uint64_t m_startMs = 0;  // set by begin(), before opening is over
    std::uint64_t m_passes = 0;
    bool m_ended = false;
    tReplaySession m_session;
    std::unique_ptr<iPlayer> m_player;  // last: its threads call m_session
};
}  // namespace tool

#endif
