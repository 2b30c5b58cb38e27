// The time of day that a GPS receiver reports.
#ifndef KESTOVA_SESSIONS_RECORD_GPSTIME_H
#define KESTOVA_SESSIONS_RECORD_GPSTIME_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace session
{
// Returns the time, in ms since the Unix epoch, of the first RMC or ZDA sentence of a message that has one: of a valid
// fix (RMC), with a date, and with the right checksum if it has any.
std::optional<std::uint64_t> gpsTimeIn(std::string_view message);
}  // namespace session

#endif
