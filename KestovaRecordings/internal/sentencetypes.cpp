#include "KestovaRecordings/internal/sentencetypes.h"

#include <string_view>

namespace recordings
{
namespace
{
constexpr double cKmPerNm = 1.852, cStatuteMilesPerNm = 1.150779448, cMetresPerFoot = 0.3048, cMetresPerFathom = 1.8288;

void readPosition(const tSentenceFields& fields, std::size_t at, tSentence& sentence)
{
    const auto latitude = fields.latitude(at), longitude = fields.longitude(at + 2);
    if (!latitude || !longitude)
        return;
    sentence.latitudeDeg = latitude;
    sentence.longitudeDeg = longitude;
}

void readTimeOfDay(const tSentenceFields& fields, std::size_t at, std::uint64_t timeMs, tSentence& sentence)
{
    if (const auto time = fields.msOfDay(at))
        sentence.utcMs = nearestMs(*time, timeMs);
}

// A number that is none below zero.
std::optional<double> amount(const tSentenceFields& fields, std::size_t at)
{
    const auto value = fields.number(at);
    return value && *value >= 0 ? value : std::nullopt;
}

// A date without a century is one from 1980 to 2079, as the epoch of GPS has it.
unsigned fullYear(unsigned year)
{
    return year < 80 ? 2000 + year : 1900 + year;
}

void readRmc(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    const auto time = fields.msOfDay(1);
    const std::string_view date = fields.text(9);
    const auto day = digitsAt(date, 0, 2), month = digitsAt(date, 2, 2), year = digitsAt(date, 4, 2);
    if (time && day && month && year)
    {
        if (const auto midnight = dateMs(fullYear(*year), *month, *day))
            sentence.utcMs = *midnight + *time;
    }
    else if (date.empty())
        readTimeOfDay(fields, 1, timeMs, sentence);
    if (fields.letter(2) != 'A')
        return;
    readPosition(fields, 3, sentence);
    sentence.speedKn = amount(fields, 7);
    sentence.courseDeg = fields.degrees(8);
}

void readGga(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    readTimeOfDay(fields, 1, timeMs, sentence);
    if (fields.whole(6).value_or(0) != 0)
        readPosition(fields, 2, sentence);
}

void readGll(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    readTimeOfDay(fields, 5, timeMs, sentence);
    if (fields.letter(6) == 'A')
        readPosition(fields, 1, sentence);
}

// Mode N: the data is not valid.
void readVtg(const tSentenceFields& fields, std::uint64_t, tSentence& sentence)
{
    if (fields.letter(9) == 'N')
        return;
    if (fields.letter(2) == 'T')
        sentence.courseDeg = fields.degrees(1);
    if (fields.letter(6) == 'N')
        sentence.speedKn = amount(fields, 5);
}

void readZda(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    if (fields.text(2).empty() && fields.text(3).empty() && fields.text(4).empty())
        return readTimeOfDay(fields, 1, timeMs, sentence);
    const auto time = fields.msOfDay(1);
    const auto day = fields.whole(2), month = fields.whole(3), year = fields.whole(4);
    if (!time || !day || !month || !year)
        return;
    if (const auto midnight = dateMs(*year, *month, *day))
        sentence.utcMs = *midnight + *time;
}

void readHdt(const tSentenceFields& fields, std::uint64_t, tSentence& sentence)
{
    if (fields.letter(2) == 'T')
        sentence.headingDeg = fields.degrees(1);
}

void readThs(const tSentenceFields& fields, std::uint64_t, tSentence& sentence)
{
    if (fields.letter(2) != 'V')
        sentence.headingDeg = fields.degrees(1);
}

// The offset leads from the transducer to the waterline (positive) or to the keel (negative).
void readDpt(const tSentenceFields& fields, std::uint64_t, tSentence& sentence)
{
    if (const auto depth = amount(fields, 1))
        sentence.depthM = *depth + fields.number(2).value_or(0);
}

void readDbt(const tSentenceFields& fields, std::uint64_t, tSentence& sentence)
{
    if (fields.letter(4) == 'M' && amount(fields, 3))
        sentence.depthM = amount(fields, 3);
    else if (fields.letter(2) == 'f' && amount(fields, 1))
        sentence.depthM = *fields.number(1) * cMetresPerFoot;
    else if (fields.letter(6) == 'F' && amount(fields, 5))
        sentence.depthM = *fields.number(5) * cMetresPerFathom;
}

// Units a nautical mile, for distance and speed of a tracked target.
double perMile(char unit)
{
    return unit == 'K' ? cKmPerNm : unit == 'S' ? cStatuteMilesPerNm : 1.0;
}

char statusIn(char letter)
{
    return std::string_view("LQT").find(letter) != std::string_view::npos ? letter : '\0';
}

void readTtm(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    sentence.target = fields.whole(1);
    sentence.targetStatus = statusIn(fields.letter(12));
    const double units = perMile(fields.letter(10));
    if (const auto distance = fields.number(2); distance && *distance >= 0)
        sentence.distanceNm = *distance / units;
    sentence.bearingDeg = fields.degrees(3);
    if (sentence.bearingDeg && fields.letter(4) == 'T')
        sentence.bearingReference = utils::eReferenceNorth;
    else if (sentence.bearingDeg && fields.letter(4) == 'R')
        sentence.bearingReference = utils::eReferenceBow;
    if (const auto speed = amount(fields, 5))
        sentence.speedKn = *speed / units;
    if (fields.letter(7) == 'T')
        sentence.courseDeg = fields.degrees(6);
    readTimeOfDay(fields, 14, timeMs, sentence);
}

void readTll(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    sentence.target = fields.whole(1);
    sentence.targetStatus = statusIn(fields.letter(8));
    readPosition(fields, 2, sentence);
    readTimeOfDay(fields, 7, timeMs, sentence);
}

struct tReader
{
    std::string_view type;
    void (*read)(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence);
};
constexpr tReader cReaders[] = {{"RMC", readRmc}, {"GGA", readGga}, {"GLL", readGll}, {"VTG", readVtg},
                                {"ZDA", readZda}, {"HDT", readHdt}, {"THS", readThs}, {"DPT", readDpt},
                                {"DBT", readDbt}, {"TTM", readTtm}, {"TLL", readTll}};
}  // namespace

void readSentenceType(const tSentenceFields& fields, std::uint64_t timeMs, tSentence& sentence)
{
    for (const tReader& reader : cReaders)
    {
        if (sentence.type == reader.type)
            return reader.read(fields, timeMs, sentence);
    }
}
}  // namespace recordings
