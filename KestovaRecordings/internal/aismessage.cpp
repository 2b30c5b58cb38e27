#include "KestovaRecordings/internal/aismessage.h"

#include <algorithm>
#include <string>

#include "KestovaRecordings/internal/sentencefields.h"

namespace recordings
{
namespace
{
// Where a message has what most have, as offsets in bits; 0: not at all.
struct tPlaces
{
    unsigned type;
    unsigned speed, longitude, latitude, course, heading, name;
};
constexpr tPlaces cPlaces[] = {
    {1, 50, 61, 89, 116, 128, 0},    {2, 50, 61, 89, 116, 128, 0}, {3, 50, 61, 89, 116, 128, 0},
    {4, 0, 79, 107, 0, 0, 0},        {5, 0, 0, 0, 0, 0, 112},      {18, 46, 57, 85, 112, 124, 0},
    {19, 46, 57, 85, 112, 124, 143}, {21, 0, 164, 192, 0, 0, 43},  {24, 0, 0, 0, 0, 0, 40}};

class tAisBits
{
public:
    tAisBits(std::string_view payload, unsigned fillBits)
        : m_payload(payload), m_size(payload.size() * 6 - std::min<std::size_t>(fillBits, payload.size() * 6))
    {}

    // Returns the number of `width` bits (at most 30) at an offset; nothing beyond the message.
    std::optional<std::uint32_t> number(std::size_t at, unsigned width) const
    {
        if (at + width > m_size)
            return std::nullopt;
        std::uint32_t value = 0;
        for (std::size_t bit = at; bit < at + width; ++bit)
            value = value << 1 | (sixBits(m_payload[bit / 6]) >> (5 - bit % 6) & 1u);
        return value;
    }
    std::optional<std::int32_t> signedNumber(std::size_t at, unsigned width) const
    {
        const auto value = number(at, width);
        if (!value)
            return std::nullopt;
        return static_cast<std::int32_t>(*value << (32 - width)) >> (32 - width);
    }
    std::optional<std::string> text(std::size_t at, std::size_t characters) const
    {
        std::string text;
        for (std::size_t i = 0; i < characters; ++i)
        {
            const auto six = number(at + 6 * i, 6);
            if (!six)
                return std::nullopt;
            if (*six == 0)
                break;
            text.push_back(static_cast<char>(*six < 32 ? *six + 64 : *six));
        }
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }

private:
    static unsigned sixBits(char c)
    {
        const unsigned value = static_cast<unsigned char>(c) - 48u;
        return (value > 40 ? value - 8 : value) & 0x3F;
    }

    std::string_view m_payload;
    std::size_t m_size;
};

void readPosition(const tAisBits& bits, const tPlaces& places, tSentence& sentence)
{
    constexpr double cUnitsPerDegree = 600'000;
    const auto longitude = bits.signedNumber(places.longitude, 28), latitude = bits.signedNumber(places.latitude, 27);
    if (!longitude || !latitude)
        return;
    const double east = *longitude / cUnitsPerDegree, north = *latitude / cUnitsPerDegree;
    if (east < -180 || east > 180 || north < -90 || north > 90)  // 181 and 91: not known
        return;
    sentence.longitudeDeg = east;
    sentence.latitudeDeg = north;
}

void readMotion(const tAisBits& bits, const tPlaces& places, tSentence& sentence)
{
    constexpr std::uint32_t cNoSpeed = 1023, cCourses = 3600, cHeadings = 360;
    if (const auto speed = bits.number(places.speed, 10); speed && *speed != cNoSpeed)
        sentence.speedKn = *speed / 10.0;
    if (const auto course = bits.number(places.course, 12); course && *course < cCourses)
        sentence.courseDeg = *course / 10.0;
    if (const auto heading = bits.number(places.heading, 9); heading && *heading < cHeadings)
        sentence.headingDeg = *heading;
}

// Of a base station.
void readTime(const tAisBits& bits, tSentence& sentence)
{
    const auto year = bits.number(38, 14), month = bits.number(52, 4), day = bits.number(56, 5);
    const auto hour = bits.number(61, 5), minute = bits.number(66, 6), second = bits.number(72, 6);
    if (!second || *hour > 23 || *minute > 59 || *second > 59)
        return;
    if (const auto date = dateMs(*year, *month, *day))
        sentence.utcMs = *date + ((*hour * 60 + *minute) * 60 + *second) * 1000;
}

void readName(const tAisBits& bits, const tPlaces& places, tSentence& sentence)
{
    const bool isPartB = places.type == 24 && bits.number(38, 2) != 0u;
    if (isPartB)
        return;
    const auto name = bits.text(places.name, 20);
    if (name && !name->empty())
        sentence.shipName = name;
}
}  // namespace

void readAisMessage(std::string_view payload, unsigned fillBits, tSentence& sentence)
{
    const tAisBits bits(payload, fillBits);
    sentence.aisType = bits.number(0, 6);
    sentence.mmsi = bits.number(8, 30);
    for (const tPlaces& places : cPlaces)
    {
        if (sentence.aisType != places.type)
            continue;
        if (places.longitude != 0)
            readPosition(bits, places, sentence);
        if (places.speed != 0)
            readMotion(bits, places, sentence);
        if (places.name != 0)
            readName(bits, places, sentence);
        if (places.type == 4)
            readTime(bits, sentence);
    }
}
}  // namespace recordings
