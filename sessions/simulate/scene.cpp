#include "sessions/simulate/scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "sessions/simulate/random.h"

namespace session
{
namespace
{
constexpr double cTurn = 2.0 * std::numbers::pi;
constexpr double cShipSpeed = 6.2;  // 12 knots, northward along the coast
constexpr double cCoastStep = 16.0;
constexpr double cSampleMetres = static_cast<double>(cRangeMetres) / static_cast<double>(cEchoSamples);
constexpr std::size_t cTargets = 8;
constexpr double cBeamHalfWidth = 7.0;  // spokes: the antenna's beam is 1.2 degrees wide

double degrees(double radians)
{
    const double turned = std::fmod(radians * 360.0 / cTurn, 360.0);
    return turned < 0.0 ? turned + 360.0 : turned;
}

std::uint8_t clamped(double strength)
{
    return static_cast<std::uint8_t>(std::clamp(strength, 0.0, 255.0));
}
}  // namespace

tScene::tScene(std::uint64_t seed) : m_seed(seed)
{
    tRandom random(seed);
    std::array<double, 12> phases{};
    for (double& phase : phases)
        phase = random.between(0.0, cTurn);
    for (std::size_t i = 0; i < cCoastPoints; ++i)
    {
        double x = 5200.0;
        for (std::size_t wave = 0; wave < phases.size(); ++wave)
        {
            const double cycles =
                static_cast<double>(wave * wave + 3);  // whole cycles: the coast's end joins its beginning
            const double angle = cTurn * cycles * static_cast<double>(i) / static_cast<double>(cCoastPoints);
            x += 1400.0 / static_cast<double>(wave + 1) * std::sin(angle + phases[wave]);
        }
        m_coast[i] = static_cast<float>(std::max(x, 1200.0));
    }
    for (std::size_t i = 0; i < cEchoSamples; ++i)
        m_clutter[i] = static_cast<float>(150.0 * std::exp(-static_cast<double>(i) * cSampleMetres / 1100.0));
    for (std::size_t i = 0; i < cTargets; ++i)
    {
        m_targets.push_back({random.between(-4500.0, 500.0), random.between(-5500.0, 5500.0),
                             random.between(300.0, 1200.0), random.between(500.0, 3000.0),
                             random.between(1500.0, 4000.0), random.between(0.0, cTurn), random.between(30.0, 180.0),
                             211'000'000 + static_cast<std::uint32_t>(random.next() % 1'000'000)});
    }
}

tMotion tScene::ownShip(double time) const
{
    // The bow yaws by up to three degrees in the sea.
    const double heading = 3.0 * std::sin(cTurn * time / 23.0) + 360.0;
    return {0.0, cShipSpeed * time, cShipSpeed, 0.0, std::fmod(heading, 360.0)};
}

tMotion tScene::target(std::size_t i, double time) const
{
    const tTarget& t = m_targets[i];
    const double rate = cTurn / t.period;
    const double angle = rate * time + t.phase;
    const double velocityX = t.radiusX * rate * std::cos(angle);
    const double velocityY = cShipSpeed - t.radiusY * rate * std::sin(angle);
    const double course = degrees(std::atan2(velocityX, velocityY));
    return {t.centreX + t.radiusX * std::sin(angle), cShipSpeed * time + t.centreY + t.radiusY * std::cos(angle),
            std::hypot(velocityX, velocityY), course, course};
}

double tScene::depthMetres(double time) const
{
    return 6.0 + 0.004 * coastAt(ownShip(time).y) + 0.3 * std::sin(cTurn * time / 7.0);
}

double tScene::coastAt(double y) const
{
    const auto point = static_cast<std::int64_t>(std::floor(y / cCoastStep));
    return static_cast<double>(m_coast[static_cast<std::size_t>(point) % cCoastPoints]);
}

void tScene::echoes(std::uint64_t spokeNumber, double time, tEchoes& samples) const
{
    const unsigned int azimuth = static_cast<unsigned int>(spokeNumber % cSpokesPerRevolution);
    const double bearing = cTurn * azimuth / cSpokesPerRevolution;
    const double stepX = cSampleMetres * std::sin(bearing);
    const double stepY = cSampleMetres * std::cos(bearing);
    double x = 0.0;
    double y = ownShip(time).y;
    tRandom random(m_seed ^ (spokeNumber + 1) * 0x9e3779b97f4a7c15u);
    std::uint64_t noise = 0;
    for (std::size_t i = 0; i < cEchoSamples; ++i, noise >>= 8)
    {
        if (i % 8 == 0)
            noise = random.next();
        const double speckle = static_cast<double>(noise & 0xff) / 255.0;
        x += stepX;
        y += stepY;
        const double inland = x - coastAt(y);
        const double echo = inland > 0.0 ? 235.0 * std::exp(-inland / 900.0) * (0.6 + 0.4 * speckle)
                                         : static_cast<double>(m_clutter[i]) * speckle * speckle + 10.0 * speckle;
        samples[i] = clamped(echo);
    }
    for (std::size_t i = 0; i < m_targets.size(); ++i)
        paintTarget(i, azimuth, time, samples);
}

void tScene::paintTarget(std::size_t i, unsigned int azimuth, double time, tEchoes& samples) const
{
    const tMotion motion = target(i, time);
    const double x = motion.x;
    const double y = motion.y - ownShip(time).y;
    const double range = std::hypot(x, y);
    const double centre = degrees(std::atan2(x, y)) * cSpokesPerRevolution / 360.0;
    const double apart = std::remainder(centre - azimuth, static_cast<double>(cSpokesPerRevolution));
    const double lengthMetres = m_targets[i].lengthMetres;
    const double halfWidth = cBeamHalfWidth + lengthMetres / 2.0 / range * cSpokesPerRevolution / cTurn;
    if (std::abs(apart) >= halfWidth || range >= cRangeMetres)
        return;
    const double strength = 255.0 * (1.0 - apart / halfWidth * (apart / halfWidth));
    const auto first = static_cast<std::size_t>(std::max(0.0, (range - lengthMetres / 2.0) / cSampleMetres));
    const auto last = static_cast<std::size_t>((range + lengthMetres / 2.0) / cSampleMetres);
    for (std::size_t sample = first; sample <= std::min(last, cEchoSamples - 1); ++sample)
        samples[sample] = std::max(samples[sample], clamped(strength));
}

tGeoPosition tScene::position(const tMotion& motion)
{
    constexpr double cStartLatitude = 54.10;
    constexpr double cStartLongitude = 10.80;
    constexpr double cMetresPerDegree = 111'320.0;
    const double latitude = cStartLatitude + motion.y / cMetresPerDegree;
    return {latitude, cStartLongitude + motion.x / (cMetresPerDegree * std::cos(cStartLatitude * cTurn / 360.0))};
}
}  // namespace session
