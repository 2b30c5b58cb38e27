#include "tools/shell/keys.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace tool
{
namespace
{
constexpr std::array<std::pair<std::string_view, eKey>, 16> cSequences{{
    {" ", eKey::ePause},
    {"g", eKey::eSkip},
    {"n", eKey::eNote},
    {"+", eKey::eFaster},
    {"=", eKey::eFaster},
    {"-", eKey::eSlower},
    {"q", eKey::eQuit},
    {"Q", eKey::eQuit},
    {"\x1b[C", eKey::eForward},
    {"\x1bOC", eKey::eForward},
    {"\x1b[D", eKey::eBack},
    {"\x1bOD", eKey::eBack},
    {"\x1b[A", eKey::eFarForward},
    {"\x1bOA", eKey::eFarForward},
    {"\x1b[B", eKey::eFarBack},
    {"\x1bOB", eKey::eFarBack},
}};

std::optional<std::pair<std::string_view, eKey>> keyAt(std::string_view bytes)
{
    for (const auto& sequence : cSequences)
        if (bytes.starts_with(sequence.first))
            return sequence;
    return std::nullopt;
}

bool beginsKey(std::string_view bytes)
{
    for (const auto& sequence : cSequences)
        if (sequence.first.starts_with(bytes))
            return true;
    return false;
}

termios s_before;                 // the terminal's mode outside ours
std::atomic<bool> s_ours{false};  // the terminal is in our mode

// The kernel stops a background job that reads from its terminal or changes it.
bool inForeground()
{
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

void takeTerminal()
{
    if (s_ours || !inForeground() || tcgetattr(STDIN_FILENO, &s_before) != 0)
        return;
    termios mode = s_before;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_cc[VMIN] = 0;
    mode.c_cc[VTIME] = 0;
    s_ours = tcsetattr(STDIN_FILENO, TCSANOW, &mode) == 0;
}

// Also called by a signal handler.
void returnTerminal()
{
    if (s_ours.exchange(false) && inForeground())
        tcsetattr(STDIN_FILENO, TCSANOW, &s_before);
}

void handle(int signal, void (*handler)(int))
{
    struct sigaction action
    {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

// Ctrl-Z: stops the process as if there were no handler, and returns when it goes on.
void onStop(int)
{
    const int error = errno;
    returnTerminal();
    handle(SIGTSTP, SIG_DFL);
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    raise(SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);  // stops here
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    handle(SIGTSTP, onStop);
    errno = error;
}

// The shell has set the terminal to its own mode meanwhile; pressed() takes it again.
void onContinue(int)
{
    s_ours = false;
}
}  // namespace

std::vector<eKey> tKeyDecoder::decode(const std::string& bytes)
{
    m_rest += bytes;
    std::vector<eKey> keys;
    std::string_view left = m_rest;
    while (!left.empty())
    {
        if (const auto key = keyAt(left))
        {
            keys.push_back(key->second);
            left.remove_prefix(key->first.size());
        }
        else if (beginsKey(left))
            break;
        else
            left.remove_prefix(1);
    }
    m_rest = std::string(left);
    return keys;
}

tKeyboard::tKeyboard() : m_active(isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1)
{
    if (!m_active)
        return;
    takeTerminal();
    handle(SIGTSTP, onStop);
    handle(SIGCONT, onContinue);
}

tKeyboard::~tKeyboard()
{
    if (!m_active)
        return;
    handle(SIGTSTP, SIG_DFL);
    handle(SIGCONT, SIG_DFL);
    returnTerminal();
}

std::vector<eKey> tKeyboard::pressed()
{
    if (!m_active)
        return {};
    takeTerminal();
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (!s_ours || !inForeground() || poll(&input, 1, 0) != 1)
        return {};
    std::array<char, 64> bytes;
    const ssize_t got = read(STDIN_FILENO, bytes.data(), bytes.size());
    return got > 0 ? m_decoder.decode({bytes.data(), static_cast<std::size_t>(got)}) : std::vector<eKey>();
}
}  // namespace tool
