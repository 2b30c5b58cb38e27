#include "KestovaRecordings/layoutguess.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/internal/cellsguess.h"
#include "KestovaRecordings/internal/countingfields.h"
#include "KestovaRecordings/spokereader.h"

namespace recordings
{
namespace
{
using tJson = nlohmann::ordered_json;

constexpr std::size_t cMostMessages = 20'000, cMostBytes = std::size_t{64} << 20;
constexpr std::size_t cFewestMessages = 64;
constexpr std::size_t cHeadLimit = 128;  // fields are looked for before it
constexpr std::size_t cLongestMatch = 8;
constexpr double cAlmostAll = 0.95, cMost = 0.8;
constexpr double cDayMs = 86'400'000;

class tCat240Check final : private iCat240Sink
{
public:
    bool isStandard(std::string_view message) { return readCat240(message, *this) && m_records > 0; }

private:
    void onVideo(const tCat240Video&) override { ++m_records; }
    void onSummary(const tCat240Summary&) override { ++m_records; }
    std::size_t m_records = 0;
};

tJson fieldJson(const tFieldPlace& place)
{
    return {{"at", place.at}, {"width", place.width}};
}

std::string placeText(const tFieldPlace& place)
{
    return fmt::format("{} bytes at {}", place.width, place.at);
}

class tGuess
{
public:
    tGuess(tMessages messages, std::vector<std::uint64_t> timesMs)
        : m_messages(std::move(messages)), m_timesMs(std::move(timesMs))
    {}

    // Returns false if nothing turns.
    bool run()
    {
        m_head = cHeadLimit;
        for (const std::string_view message : m_messages)
            m_head = std::min(m_head, message.size());
        if (!guessAzimuth())
            return false;
        guessTime();
        guessSequence();
        guessCellsBehind();
        guessMatch();
        m_spoke["order"] = m_bigEndian ? "big" : "little";
        if (m_azimuth.width == 1)
            noteUnsure("order", "no number is wider than a byte");
        else
            note("order", "the azimuth goes on by even steps in this order alone");
        listConstants();
        noteUnsure("reference", "what a bearing of 0 is cannot be seen in the data");
        return true;
    }

    tLayoutGuess take() { return {m_spoke.dump(), std::move(m_why), std::move(m_unsure)}; }

private:
    void note(const std::string& field, const std::string& sentence) { m_why.emplace_back(field, sentence); }
    void noteUnsure(const std::string& field, const std::string& sentence)
    {
        note(field, sentence);
        m_unsure.push_back(field);
    }

    bool guessAzimuth()
    {
        const std::vector<tCircling> found = circlingFields(m_messages, m_head);
        if (found.empty())
            return false;
        const tCircling& best = found.front();
        m_azimuth = best.place;
        m_taken.push_back(best.place);
        m_bigEndian = best.place.bigEndian;
        m_spoke["azimuth"] = fieldJson(best.place);
        if (best.mask != ~std::uint64_t{0})
            m_spoke["azimuth"]["mask"] = best.mask;
        m_spoke["azimuth"]["per_turn"] = best.period;
        std::string why = fmt::format("the {} go on by {} and around by {}, {}", placeText(best.place), best.step,
                                      best.period, best.turns == 1 ? "once" : fmt::format("{} times", best.turns));
        for (std::size_t i = 1; i < found.size(); ++i)
            why += fmt::format("; the {} go around by {} as well: these cannot be told apart",
                               placeText(found[i].place), found[i].period);
        if (!best.isWhole)
            why += "; the highest number does not fit to that";
        if (found.size() > 1 || !best.isWhole)
            noteUnsure("azimuth", why);
        else
            note("azimuth", why);
        notePerTurn(best.period);
        return true;
    }

    void notePerTurn(std::uint64_t period)
    {
        for (std::size_t at = 0; at + 2 <= m_head; ++at)
        {
            const tFieldPlace place{at, 2, m_bigEndian};
            if (!place.overlaps(m_azimuth) && isConstant(m_messages, at) && isConstant(m_messages, at + 1) &&
                place.in(m_messages.front()) == period)
                return noteUnsure("per_turn", fmt::format("the {} always say {}, too: the field may be meant",
                                                          placeText(place), period));
        }
    }

    bool isTime(const tFieldPlace& place, double unitMs) const
    {
        for (std::size_t i = 0; i < m_messages.size(); ++i)
            if (std::abs(static_cast<double>(place.in(m_messages[i])) * unitMs - static_cast<double>(m_timesMs[i])) >
                cDayMs)
                return false;
        return true;
    }

    void guessTime()
    {
        for (const unsigned width : {8u, 4u})
            for (std::size_t at = 0; at + width <= m_head; ++at)
                for (const auto& [name, unitMs] : {std::pair{"ms", 1.0}, {"s", 1000.0}, {"us", 1e-3}, {"ns", 1e-6}})
                {
                    const tFieldPlace place{at, width, m_bigEndian};
                    if (place.overlaps(m_azimuth) || !isTime(place, unitMs))
                        continue;
                    m_taken.push_back(place);
                    m_spoke["time"] = fieldJson(place);
                    m_spoke["time"]["unit"] = name;
                    return note("time", fmt::format("the {}, in {}, are within a day of when they were recorded",
                                                    placeText(place), name));
                }
        note("time", "no number is near the time at which the messages were recorded");
    }

    void guessSequence()
    {
        const std::vector<tCounting> found = countingFields(m_messages, m_head, m_bigEndian, m_taken);
        if (found.empty())
            return note("sequence", "no other number goes on by one");
        const tCounting& best = found.front();
        m_taken.push_back(best.place);
        m_spoke["sequence"] = fieldJson(best.place);
        std::string why = fmt::format("the {} go on by one", placeText(best.place));
        if (best.constantBytes != 0)
            why += fmt::format("; {} of them never change: it may be narrower", best.constantBytes);
        for (std::size_t i = 1; i < found.size(); ++i)
            why += fmt::format("; the {} do so as well: these cannot be told apart", placeText(found[i].place));
        if (best.constantBytes != 0 || found.size() > 1)
            noteUnsure("sequence", why);
        else
            note("sequence", why);
    }

    void guessCellsBehind()
    {
        std::size_t headEnd = 0;
        for (const tFieldPlace& place : m_taken)
            headEnd = std::max(headEnd, place.end());
        const tCellsGuess cells = guessCells(m_messages, headEnd);
        m_spoke["cells"] = {{"at", cells.at}};
        if (cells.toTheEnd)
            m_spoke["cells"]["count"] = "rest";
        else
            m_spoke["cells"]["count"] = cells.count(m_messages.front().size());
        m_spoke["cells"]["bits"] = cells.bits;
        m_cellsAt = cells.at;
        if (cells.isSure)
            note("cells", cells.why);
        else
            noteUnsure("cells", cells.why);
    }

    bool isFree(std::size_t at) const
    {
        return at < m_cellsAt && at < m_head &&
               std::none_of(m_taken.begin(), m_taken.end(),
                            [at](const tFieldPlace& place) { return at >= place.at && at < place.end(); });
    }

    void guessMatch()
    {
        std::size_t end = 0;
        while (end < cLongestMatch && isFree(end) && isConstant(m_messages, end))
            ++end;
        if (end == 0)
            return note("match", "the messages do not begin with bytes that are always the same");
        std::string digits;
        for (std::size_t i = 0; i < end; ++i)
            digits += fmt::format("{:02x}", static_cast<unsigned char>(m_messages.front()[i]));
        m_spoke["match"] = {{"0", digits}};
        note("match", fmt::format("all messages begin with these {} bytes", end));
        m_taken.push_back({0, static_cast<unsigned>(end), m_bigEndian});
    }

    // The range is one of them, or a setting.
    void listConstants()
    {
        std::string numbers;
        for (std::size_t at = 0; at + 2 <= std::min(m_head, m_cellsAt); ++at)
        {
            const unsigned width = at % 4 == 0 && isFree(at + 2) && isFree(at + 3) && at + 4 <= m_cellsAt ? 4 : 2;
            const tFieldPlace place{at, width, m_bigEndian};
            if (!isFree(at) || !isFree(at + 1) || place.in(m_messages.front()) == 0 || !isAllConstant(place))
                continue;
            numbers +=
                fmt::format("{}{} ({})", numbers.empty() ? ": " : ", ", placeText(place), place.in(m_messages.front()));
            at += width - 1;
        }
        noteUnsure("range", "it cannot be seen in the data" +
                                (numbers.empty() ? std::string() : "; numbers that never change" + numbers));
    }
    bool isAllConstant(const tFieldPlace& place) const
    {
        for (std::size_t at = place.at; at < place.end(); ++at)
            if (!isConstant(m_messages, at))
                return false;
        return true;
    }

    const tMessages m_messages;
    const std::vector<std::uint64_t> m_timesMs;
    tJson m_spoke = tJson::object();
    std::vector<std::pair<std::string, std::string>> m_why;
    std::vector<std::string> m_unsure;
    std::size_t m_head = 0, m_cellsAt = 0;
    tFieldPlace m_azimuth{};
    std::vector<tFieldPlace> m_taken;
    bool m_bigEndian = false;
};

// Returns the length that most messages have: the others are something else.
std::optional<std::size_t> usualLength(const std::vector<std::string>& messages)
{
    std::map<std::size_t, std::size_t> counts;
    for (const std::string& message : messages)
        ++counts[message.size()];
    const auto most = std::max_element(counts.begin(), counts.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    const bool isUsual = static_cast<double>(most->second) >= cMost * static_cast<double>(messages.size());
    return isUsual ? std::optional(most->first) : std::nullopt;
}

tLayoutGuess standardGuess()
{
    return {R"("cat240")",
            {{"source", "the messages are data blocks of ASTERIX category 240"},
             {"reference", "whether azimuth 0 is the bow or north cannot be seen in the data"}},
            {"reference"}};
}
}  // namespace

bool tLayoutGuesser::add(std::string_view message, std::uint64_t timeMs)
{
    if (m_messages.size() >= cMostMessages || m_bytes + message.size() > cMostBytes)
        return false;
    m_messages.emplace_back(message);
    m_timesMs.push_back(timeMs);
    m_bytes += message.size();
    return true;
}

std::optional<tLayoutGuess> tLayoutGuesser::guess(std::string& reason) const
{
    reason = fmt::format("{} messages are too few", m_messages.size());
    if (m_messages.size() < cFewestMessages)
        return std::nullopt;
    const auto standard = std::count_if(m_messages.begin(), m_messages.end(),
                                        [](const std::string& message) { return tCat240Check().isStandard(message); });
    if (static_cast<double>(standard) >= cAlmostAll * static_cast<double>(m_messages.size()))
        return standardGuess();
    const std::optional<std::size_t> length = usualLength(m_messages);
    tMessages messages;
    std::vector<std::uint64_t> timesMs;
    for (std::size_t i = 0; i < m_messages.size(); ++i)
    {
        if (length && m_messages[i].size() != *length)
            continue;
        messages.emplace_back(m_messages[i]);
        timesMs.push_back(m_timesMs[i]);
    }
    tGuess guess(std::move(messages), std::move(timesMs));
    reason = "no number in the messages goes around like an azimuth: a whole turn and more is wanted";
    if (!guess.run())
        return std::nullopt;
    return guess.take();
}
}  // namespace recordings
