// tKeyboard: the keys that control a replay at a terminal.
#ifndef KESTOVA_TOOLS_SHELL_KEYS_H
#define KESTOVA_TOOLS_SHELL_KEYS_H

#include <string>
#include <vector>

namespace tool
{
enum class eKey
{
    ePause,
    eForward,     // right arrow
    eBack,        // left arrow
    eFarForward,  // up arrow
    eFarBack,     // down arrow
    eFaster,
    eSlower,
    eSkip,
    eNote,
    eQuit
};

// Decodes the bytes of a terminal into keys and skips others. Keeps an incomplete sequence for the next call.
class tKeyDecoder
{
public:
    std::vector<eKey> decode(const std::string& bytes);

private:
    std::string m_rest;
};

// While it exists, the terminal delivers keys at once and does not show them. Ctrl-C still interrupts, and Ctrl-Z
// stops: the terminal is as before while the command is stopped or in the background. One object a process, one thread.
class tKeyboard
{
public:
    tKeyboard();  // does nothing unless standard input and standard error are terminals
    ~tKeyboard();
    tKeyboard(const tKeyboard&) = delete;
    tKeyboard& operator=(const tKeyboard&) = delete;

    bool active() const { return m_active; }
    std::vector<eKey> pressed();  // returns those since the last call; never waits

private:
    bool m_active = false;
    tKeyDecoder m_decoder;
};
}  // namespace tool

#endif
