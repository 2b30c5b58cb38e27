#include "sessions/simulate/nmea.h"

#include <cmath>
#include <ctime>
#include <fmt/format.h>
#include <numbers>

namespace session
{
namespace
{
constexpr double cKnotsPerMetreASecond = 1.943844;
constexpr double cMetresPerMile = 1852.0;

std::tm utc(std::uint64_t timeMs)
{
    const auto seconds = static_cast<std::time_t>(timeMs / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return parts;
}

std::string clockField(std::uint64_t timeMs)
{
    const std::tm parts = utc(timeMs);
    return fmt::format("{:02}{:02}{:02}.{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec, timeMs % 1000 / 10);
}

// Returns "5406.0000,N": degrees in `width` digits, then minutes. Counts in ten-thousandths of a minute, so that
// rounding never gives 60 minutes.
std::string angleField(double degrees, int width, char positive, char negative)
{
    const auto units = std::llround(std::abs(degrees) * 600'000.0);
    return fmt::format("{:0{}}{:02}.{:04},{}", units / 600'000, width, units / 10'000 % 60, units % 10'000,
                       degrees < 0.0 ? negative : positive);
}

std::string positionFields(const tMotion& ship)
{
    const tGeoPosition where = tScene::position(ship);
    return angleField(where.latitude, 2, 'N', 'S') + "," + angleField(where.longitude, 3, 'E', 'W');
}

// Returns a bearing rounded to a tenth of a degree, below 360.0.
double tenths(double degrees)
{
    return static_cast<double>(std::llround(degrees * 10.0) % 3600) / 10.0;
}

// Returns the closest point of approach: its distance in metres, and the seconds until then.
std::pair<double, double> closestApproach(const tMotion& ship, const tMotion& target)
{
    const auto radians = [](double degrees) { return degrees * std::numbers::pi / 180.0; };
    const double x = target.x - ship.x;
    const double y = target.y - ship.y;
    const double velocityX =
        target.speed * std::sin(radians(target.courseDeg)) - ship.speed * std::sin(radians(ship.courseDeg));
    const double velocityY =
        target.speed * std::cos(radians(target.courseDeg)) - ship.speed * std::cos(radians(ship.courseDeg));
    const double squared = velocityX * velocityX + velocityY * velocityY;
    const double seconds = squared < 1e-6 ? 0.0 : -(x * velocityX + y * velocityY) / squared;
    return {std::hypot(x + velocityX * seconds, y + velocityY * seconds), seconds};
}
}  // namespace

std::string nmeaSentence(char start, const std::string& body)
{
    unsigned int checksum = 0;
    for (const char c : body)
        checksum ^= static_cast<unsigned char>(c);
    return fmt::format("{}{}*{:02X}\r\n", start, body, checksum);
}

std::string positionSentence(const tMotion& ship, std::uint64_t timeMs)
{
    const std::tm parts = utc(timeMs);
    return nmeaSentence('$', fmt::format("GPRMC,{},A,{},{:.1f},{:.1f},{:02}{:02}{:02},,,A", clockField(timeMs),
                                         positionFields(ship), ship.speed * cKnotsPerMetreASecond,
                                         tenths(ship.courseDeg), parts.tm_mday, parts.tm_mon + 1, parts.tm_year % 100));
}

std::string fixSentence(const tMotion& ship, std::uint64_t timeMs)
{
    return nmeaSentence('$',
                        fmt::format("GPGGA,{},{},1,09,0.9,12.0,M,40.1,M,,", clockField(timeMs), positionFields(ship)));
}

std::string depthSentence(double metres)
{
    return nmeaSentence('$', fmt::format("SDDBT,{:.1f},f,{:.1f},M,{:.1f},F", metres / 0.3048, metres, metres / 1.8288));
}

std::string headingSentence(double degrees)
{
    return nmeaSentence('$', fmt::format("HEHDT,{:.1f},T", tenths(degrees)));
}

std::string trackedTargetSentence(unsigned int number, const tMotion& ship, const tMotion& target, std::uint64_t timeMs)
{
    const double x = target.x - ship.x;
    const double y = target.y - ship.y;
    const double bearing = std::fmod(std::atan2(x, y) * 180.0 / std::numbers::pi + 360.0, 360.0);
    const auto [nearest, seconds] = closestApproach(ship, target);
    return nmeaSentence('$', fmt::format("RATTM,{:02},{:.2f},{:.1f},T,{:.1f},{:.1f},T,{:.2f},{:.1f},N,T{},T,,{},A",
                                         number, std::hypot(x, y) / cMetresPerMile, tenths(bearing),
                                         target.speed * cKnotsPerMetreASecond, tenths(target.courseDeg),
                                         nearest / cMetresPerMile, seconds / 60.0, number, clockField(timeMs)));
}
}  // namespace session
