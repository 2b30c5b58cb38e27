#include "sessions/record/lostjoins.h"

#include <algorithm>

namespace session
{
using recordings::tLostJoin;

namespace
{
// An interface that comes and goes for days is not listed any more.
constexpr std::size_t cMostLosses = 10'000;
}  // namespace

void tLostJoins::update(const tRecorderState& state, std::uint64_t nowMs)
{
    const std::uint64_t before = m_updatedMs != 0 ? m_updatedMs : nowMs;
    if (m_updatedMs != 0 && state.addressReports != m_addressReports)
        for (const auto& [key, count] : state.streams)
            m_lasting.try_emplace(key.address(), before);
    for (const std::string& address : state.unjoined)
        m_lasting.try_emplace(address, before);
    const auto ended = [&](const auto& loss) {
        if (std::ranges::find(state.unjoined, loss.first) != state.unjoined.end())
            return false;
        add(loss.first, loss.second, nowMs);
        return true;
    };
    std::erase_if(m_lasting, ended);
    m_addressReports = state.addressReports;
    m_updatedMs = nowMs;
}

std::vector<tLostJoin> tLostJoins::ofFile(std::uint64_t nowMs) const
{
    std::vector<tLostJoin> all = m_lost;
    for (const auto& [address, fromMs] : m_lasting)
        all.push_back({address, fromMs, std::max(fromMs, nowMs)});
    return all;
}

void tLostJoins::nextFile(std::uint64_t nowMs)
{
    m_lost.clear();
    for (auto& [address, fromMs] : m_lasting)
        fromMs = nowMs;
}

// The clock may have been set back.
void tLostJoins::add(const std::string& address, std::uint64_t fromMs, std::uint64_t toMs)
{
    if (m_lost.size() < cMostLosses)
        m_lost.push_back({address, std::min(fromMs, toMs), toMs});
}
}  // namespace session
