// tReplayRun: one run of kestova replay: keys, progress line and report of a session.
#ifndef KESTOVA_TOOLS_COMMANDS_REPLAYRUN_H
#define KESTOVA_TOOLS_COMMANDS_REPLAYRUN_H

#include <cstdint>
#include <string>

#include "sessions/replay/replaysession.h"
#include "tools/shell/keys.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
class tConsole;

class tReplayRun
{
public:
    // `start` and `end` are the texts of the options. Throws tFailure if there is nothing to play.
    tReplayRun(const session::tReplayOptions& options, std::string start, std::string end, bool json,
               tConsole& console);
    int run();

private:
    void checkPlaces() const;
    bool waitForOpening();
    void playAll();
    bool playToEnd();
    bool handleKeys();
    void press(eKey key);
    void note();
    std::string progressLine() const;
    std::string silenceText(const session::tReplayState& state) const;
    std::string noteText(const session::tReplayState& state) const;
    std::string speedText() const;
    int report(bool ended);
    tJson json(bool ended) const;
    std::string text() const;

    const session::tReplayOptions& m_options;
    const std::string m_start, m_end;
    const bool m_asJson;
    tConsole& m_console;
    tStopSignal m_stop;
    tKeyboard m_keyboard;
    session::tReplaySession m_session;
};
}  // namespace tool

#endif
