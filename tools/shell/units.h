// Texts of sizes, rates, durations and moments, and their parsers.
#ifndef KESTOVA_TOOLS_SHELL_UNITS_H
#define KESTOVA_TOOLS_SHELL_UNITS_H

#include <cstdint>
#include <string>

#include "KestovaRecordings/moment.h"

namespace tool
{
std::string sizeText(std::uint64_t bytes);            // "512 B", "1.5 kB", "2.3 GB": powers of 1000
std::string rateText(double bytesPerSecond);          // "0.9 MB/s"
std::string durationText(std::uint64_t ms);           // "00:01:30.250"
std::string localTimeText(std::uint64_t ms);          // "2024-05-17 08:30:00.250"
std::string percentText(double fraction);             // "42.3 %"
double perSecond(std::uint64_t n, std::uint64_t ms);  // returns 0 for 0 ms

// Returns the ms of "10", "2.5", "10s", "250ms", "5m", "2h", "00:01:30". Throws std::invalid_argument with a sentence
// for the user.
std::uint64_t parseDuration(const std::string& text);

// Returns the moment of "0.5" (fraction), "90s" or "00:01:30" (offset), "2024-05-17 08:30:00.250" (local time) or a
// number of ms since the epoch. Throws std::invalid_argument with a sentence for the user.
recordings::tMoment parseMoment(const std::string& text);
}  // namespace tool

#endif
