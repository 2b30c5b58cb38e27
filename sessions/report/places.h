// Texts of moments, and places in a recording: the same for every command.
#ifndef KESTOVA_SESSIONS_REPORT_PLACES_H
#define KESTOVA_SESSIONS_REPORT_PLACES_H

#include <cstdint>
#include <string>

#include "KestovaRecordings/moment.h"

namespace session
{
// Whether times that name no zone are UTC from now on, printed and parsed; local time otherwise.
void useUtc(bool on);

std::string timeText(std::uint64_t ms);  // "2024-05-17 08:30:00.250"

// Returns the moment of "+90s" (from the start; also "90s", "00:01:30"), "-90s" (from the end), "50%" or "0.5" (of the
// span), "2024-05-17 08:30:00.250", "2024-05-17T08:30:00Z" or with another zone, or a number of ms since the epoch.
// Throws std::invalid_argument with a sentence for the user.
recordings::tMoment parseMoment(const std::string& text);

// Returns the ms since the epoch of a time as parseMoment() takes it, of "2024-05-17" (its beginning), or of "2h",
// "3d": that long before `nowMs`. Throws std::invalid_argument with a sentence for the user.
std::uint64_t parseWhen(const std::string& text, std::uint64_t nowMs);
}  // namespace session

#endif
