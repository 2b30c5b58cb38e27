#include "KestovaRecordings/internal/base64.h"

#include <array>

#include "common/byteorder.h"

namespace recordings
{
namespace
{
constexpr std::string_view cDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t cNoDigit = 0xFF;
constexpr std::size_t cNumber = sizeof(std::uint32_t);

constexpr std::array<std::uint8_t, 256> valuesOfDigits()
{
    std::array<std::uint8_t, 256> values{};
    values.fill(cNoDigit);
    for (std::size_t i = 0; i < cDigits.size(); ++i)
        values[static_cast<unsigned char>(cDigits[i])] = static_cast<std::uint8_t>(i);
    return values;
}
constexpr auto cValues = valuesOfDigits();

// Appends the bytes of the text. Returns whether it is base64.
bool decode(std::string_view text, std::string& bytes)
{
    std::uint32_t held = 0;
    unsigned int bits = 0;
    for (const char digit : text)
    {
        const std::uint8_t value = cValues[static_cast<unsigned char>(digit)];
        if (value == cNoDigit)
            return false;
        held = held << 6 | value;
        bits += 6;
        if (bits < 8)
            continue;
        bits -= 8;
        bytes.push_back(static_cast<char>(held >> bits & 0xFF));
    }
    return bits < 6;
}
}  // namespace

std::string numbersText(const std::vector<std::uint32_t>& numbers)
{
    std::string text;
    text.reserve(numbers.size() * 6 + 4);
    std::uint64_t held = 0;
    unsigned int bits = 0;
    for (const std::uint32_t number : numbers)
    {
        held = held << 32 | __builtin_bswap32(number);  // its lowest byte comes first
        for (bits += 32; bits >= 6; bits -= 6)
            text.push_back(cDigits[held >> (bits - 6) & 63]);
    }
    if (bits != 0)
        text.push_back(cDigits[held << (6 - bits) & 63]);
    while (text.size() % 4 != 0)
        text.push_back('=');
    return text;
}

std::optional<std::vector<std::uint32_t>> numbersOf(std::string_view text, std::size_t most)
{
    text = text.substr(0, text.find_last_not_of('=') + 1);
    if (text.size() * 3 / 4 > most * cNumber)
        return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() * 3 / 4);
    if (!decode(text, bytes) || bytes.size() % cNumber != 0)
        return std::nullopt;
    std::vector<std::uint32_t> numbers(bytes.size() / cNumber);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = le::load<std::uint32_t>(bytes.data() + i * cNumber);
    return numbers;
}
}  // namespace recordings
