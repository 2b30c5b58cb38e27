// tKeyboard: the keys that control a replay at a terminal.
#ifndef KESTOVA_TOOLS_SHELL_KEYS_H
#define KESTOVA_TOOLS_SHELL_KEYS_H

#include <memory>
#include <string>
#include <vector>

struct termios;

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

// While it exists, the terminal delivers keys at once and does not show them. Ctrl-C still interrupts.
class tKeyboard
{
public:
    tKeyboard();  // does nothing unless standard input and standard error are terminals
    ~tKeyboard();
    tKeyboard(const tKeyboard&) = delete;
    tKeyboard& operator=(const tKeyboard&) = delete;

    bool active() const { return m_before != nullptr; }
    std::vector<eKey> pressed();  // returns those since the last call; never waits

private:
    std::unique_ptr<termios> m_before;
    tKeyDecoder m_decoder;
};
}  // namespace tool

#endif
