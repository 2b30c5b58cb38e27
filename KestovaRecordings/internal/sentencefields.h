// tSentenceFields: the fields of a sentence, separated by commas, and what their texts say.
#ifndef KESTOVA_RECORDINGS_SENTENCEFIELDS_H
#define KESTOVA_RECORDINGS_SENTENCEFIELDS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace recordings
{
class tSentenceFields
{
public:
    // `body` is what lies between the start of the sentence and "*"; field 0 is the address.
    explicit tSentenceFields(std::string_view body);

    std::string_view text(std::size_t i) const { return i < m_count ? m_fields[i] : std::string_view(); }
    char letter(std::size_t i) const { return text(i).size() == 1 ? text(i)[0] : '\0'; }
    std::optional<double> number(std::size_t i) const;
    std::optional<double> degrees(std::size_t i) const;  // from 0 to 360
    std::optional<unsigned> whole(std::size_t i) const;
    // Fields i and i + 1: degrees and minutes, and a letter of the hemisphere.
    std::optional<double> latitude(std::size_t i) const { return angle(i, 2, 90, 'N', 'S'); }
    std::optional<double> longitude(std::size_t i) const { return angle(i, 3, 180, 'E', 'W'); }
    std::optional<std::uint32_t> msOfDay(std::size_t i) const;  // "hhmmss.sss"

private:
    static constexpr std::size_t cMost = 40;

    std::optional<double> angle(std::size_t i, std::size_t digits, double largest, char positive, char negative) const;

    std::array<std::string_view, cMost> m_fields;
    std::size_t m_count = 0;
};

// Returns the digits at a place as a number; nothing if one of them is none.
std::optional<unsigned> digitsAt(std::string_view text, std::size_t at, std::size_t count);

// Returns the time of a date, in ms since the Unix epoch; nothing if there is no such date from 1970 to 9999.
std::optional<std::uint64_t> dateMs(unsigned year, unsigned month, unsigned day);
// Returns the time of a time of day: the one nearest to `nearMs`.
std::uint64_t nearestMs(std::uint32_t msOfDay, std::uint64_t nearMs);
}  // namespace recordings

#endif
