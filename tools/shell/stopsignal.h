// tStopSignal: waits for Ctrl-C and the other signals that end a command.
#ifndef KESTOVA_TOOLS_SHELL_STOPSIGNAL_H
#define KESTOVA_TOOLS_SHELL_STOPSIGNAL_H

#include <chrono>

namespace tool
{
// SIGINT, SIGTERM and SIGHUP request the end of the command. One object a process; any thread.
class tStopSignal
{
public:
    tStopSignal();
    ~tStopSignal();
    tStopSignal(const tStopSignal&) = delete;
    tStopSignal& operator=(const tStopSignal&) = delete;

    bool requested() const;
    bool requestedAgain() const;  // by a second signal: waits end, too
    // Waits for `period` at most. Returns true as soon as a signal comes.
    bool wait(std::chrono::milliseconds period) const;
};
}  // namespace tool

#endif
