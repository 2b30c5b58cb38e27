#include "server/token.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "KestovaRecordings/failure.h"
#include "common/descriptor.h"

namespace server
{
using recordings::tFailure;

namespace
{
constexpr std::size_t cShortest = 16, cLongest = 256;
constexpr std::size_t cMostWrong = 10, cMostPeers = 10'000;
constexpr std::chrono::minutes cMemory{1};

int valueOf(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    return c == '-' ? 62 : c == '_' ? 63 : -1;
}
}  // namespace

std::string readToken(const std::string& file)
{
    const tDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat facts
    {};
    if (!opened.valid() || ::fstat(opened.get(), &facts) != 0)
        throw tFailure(file + " cannot be read: " + std::strerror(errno));
    if ((facts.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw tFailure(file + " is open to others: chmod 600 " + file);
    std::array<char, cLongest + 2> bytes{};
    std::string token(bytes.data(), opened.readAt(bytes.data(), bytes.size(), 0));
    token.resize(std::min(token.find_first_of("\r\n"), token.size()));
    const bool isVisible = std::ranges::all_of(token, [](char c) { return c > 0x20 && c < 0x7f; });
    if (token.size() < cShortest || token.size() > cLongest || !isVisible)
        throw tFailure(file + " does not begin with a token of 16 to 256 visible characters: "
                              "head -c 24 /dev/urandom | base64");
    return token;
}

bool isEqual(std::string_view a, std::string_view b)
{
    unsigned differ = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        differ |= static_cast<unsigned>(static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
    return differ == 0;
}

std::string fromBase64Url(std::string_view text)
{
    std::string result;
    unsigned bits = 0, held = 0;
    for (const char c : text.substr(0, text.find_last_not_of('=') + 1))
    {
        const int value = valueOf(c);
        if (value < 0)
            return {};
        held = (held << 6 | static_cast<unsigned>(value)) & 0xffff;
        bits += 6;
        if (bits < 8)
            continue;
        bits -= 8;
        result += static_cast<char>(held >> bits & 0xff);
    }
    return result;
}

bool tWrongTokens::isBlocked(const std::string& peer, tTime now)
{
    const std::lock_guard lock(m_mutex);
    forgetOld(now);
    const auto found = m_times.find(peer);
    return found != m_times.end() && found->second.size() >= cMostWrong;
}

void tWrongTokens::add(const std::string& peer, tTime now)
{
    const std::lock_guard lock(m_mutex);
    if (m_times.size() < cMostPeers || m_times.contains(peer))
        m_times[peer].push_back(now);
}

void tWrongTokens::forgetOld(tTime now)
{
    for (auto row = m_times.begin(); row != m_times.end();)
    {
        while (!row->second.empty() && now - row->second.front() >= cMemory)
            row->second.pop_front();
        row = row->second.empty() ? m_times.erase(row) : std::next(row);
    }
}
}  // namespace server
