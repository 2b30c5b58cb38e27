// Texts of sizes, rates and durations, and their parsers.
#ifndef KESTOVA_SESSIONS_REPORT_UNITS_H
#define KESTOVA_SESSIONS_REPORT_UNITS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace session
{
std::string sizeText(std::uint64_t bytes);            // "512 B", "1.5 kB", "2.3 GB": powers of 1000
std::string rateText(double bytesPerSecond);          // "0.9 MB/s"
std::string durationText(std::uint64_t ms);           // "00:01:30.250"
std::string percentText(double fraction);             // "42.3 %"
double perSecond(std::uint64_t n, std::uint64_t ms);  // returns 0 for 0 ms

// Returns the value of a text that is one number, finite and not negative; nothing for any other.
std::optional<double> plainNumber(std::string_view text);

// Returns the ms of "10", "2.5", "10s", "250ms", "5m", "2h", "3d", "2w", "00:01:30". Throws std::invalid_argument with
// a sentence for the user.
std::uint64_t parseDuration(const std::string& text);

// Returns the metres of "6nm", "11112m", "3km", "11112": above 0. Throws std::invalid_argument with a sentence for the
// user.
double parseDistance(const std::string& text);

// Returns the bytes of "500", "750K", "1.5G", "2TB": powers of 1000 as sizeText() has them; of 1024 with an i, as in
// "64GiB". Throws std::invalid_argument with a sentence for the user.
std::uint64_t parseSize(const std::string& text);
}  // namespace session

#endif
