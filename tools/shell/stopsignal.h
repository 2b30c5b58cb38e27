// Ctrl-C and its relatives, as something a command can wait for.
#ifndef KESTOVA_TOOLS_SHELL_STOPSIGNAL_H
#define KESTOVA_TOOLS_SHELL_STOPSIGNAL_H

#include <chrono>

namespace tool
{
// SIGINT, SIGTERM and SIGHUP ask the command to end. One object a process; any thread.
class tStopSignal
{
public:
    tStopSignal();
    ~tStopSignal();
    tStopSignal(const tStopSignal&) = delete;
    tStopSignal& operator=(const tStopSignal&) = delete;

    bool requested() const;
    bool requestedAgain() const;  // a second signal: whoever still tidies up should hurry
    // Waits at most that long; true as soon as the end is asked for.
    bool wait(std::chrono::milliseconds period) const;
};
}  // namespace tool

#endif
