// tHangUp: SIGHUP as a request, in a program that no terminal can hang up on.
#ifndef KESTOVA_TOOLS_SHELL_HANGUP_H
#define KESTOVA_TOOLS_SHELL_HANGUP_H

namespace tool
{
// Where there is no controlling terminal, SIGHUP counts as a request while the object exists. Elsewhere nothing
// changes: it ends the command. Construct it behind tStopSignal, whose handler it replaces. One object a process.
class tHangUp
{
public:
    tHangUp();
    ~tHangUp();
    tHangUp(const tHangUp&) = delete;
    tHangUp& operator=(const tHangUp&) = delete;

    bool requested();  // whether SIGHUP came since the last call

private:
    const bool m_takes;
};
}  // namespace tool

#endif
