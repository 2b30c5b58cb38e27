#include "tools/shell/keys.h"

#include <array>
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
constexpr std::array<std::pair<std::string_view, eKey>, 14> cSequences{{
    {" ", eKey::ePause},
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

tKeyboard::tKeyboard()
{
    auto before = std::make_unique<termios>();
    // The kernel stops a background job that changes its terminal: leaves it unchanged then.
    if (isatty(STDERR_FILENO) == 0 || tcgetattr(STDIN_FILENO, before.get()) != 0 ||
        tcgetpgrp(STDIN_FILENO) != getpgrp())
        return;
    termios raw = *before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0)
        m_before = std::move(before);
}

tKeyboard::~tKeyboard()
{
    if (active())
        tcsetattr(STDIN_FILENO, TCSANOW, m_before.get());
}

std::vector<eKey> tKeyboard::pressed()
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (!active() || poll(&input, 1, 0) != 1)
        return {};
    std::array<char, 64> bytes;
    const ssize_t got = read(STDIN_FILENO, bytes.data(), bytes.size());
    return got > 0 ? m_decoder.decode({bytes.data(), static_cast<std::size_t>(got)}) : std::vector<eKey>();
}
}  // namespace tool
