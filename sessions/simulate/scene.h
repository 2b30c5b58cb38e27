// tScene: the waters around the simulated radar: own ship under way along a coast, targets, a rough sea.
//
// Metres, x to the east and y to the north of own ship's start; times in seconds since the start. Everything is a pure
// function of the seed and the time.
#ifndef KESTOVA_SESSIONS_SIMULATE_SCENE_H
#define KESTOVA_SESSIONS_SIMULATE_SCENE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace session
{
constexpr std::size_t cEchoSamples = 512;
constexpr unsigned int cSpokesPerRevolution = 4096;
constexpr std::uint32_t cRangeMetres = 11'112;  // six nautical miles

using tEchoes = std::array<std::uint8_t, cEchoSamples>;

// The position and movement of a vessel.
struct tMotion
{
    double x, y;        // metres
    double speed;       // metres a second
    double courseDeg;   // true, 0 to 360
    double headingDeg;  // of the bow, true, 0 to 360
};

struct tGeoPosition
{
    double latitude, longitude;  // degrees, north and east positive
};

class tScene
{
public:
    explicit tScene(std::uint64_t seed);

    tMotion ownShip(double time) const;
    std::size_t targetCount() const { return m_targets.size(); }
    tMotion target(std::size_t i, double time) const;
    std::uint32_t mmsi(std::size_t i) const { return m_targets[i].mmsi; }
    double depthMetres(double time) const;

    // Computes the echoes of the spoke of this number.
    void echoes(std::uint64_t spokeNumber, double time, tEchoes& samples) const;

    static tGeoPosition position(const tMotion& motion);

private:
    // A target follows an ellipse that moves with own ship, so that it stays in range in a long simulation.
    struct tTarget
    {
        double centreX, centreY, radiusX, radiusY, period, phase;
        double lengthMetres;
        std::uint32_t mmsi;
    };
    static constexpr std::size_t cCoastPoints = 4096;  // one every 16 m; then the coast repeats

    double coastAt(double y) const;
    void paintTarget(std::size_t i, unsigned int azimuth, double time, tEchoes& samples) const;

    std::uint64_t m_seed;
    std::vector<tTarget> m_targets;
    std::array<float, cCoastPoints> m_coast{};
    std::array<float, cEchoSamples> m_clutter{};
};
}  // namespace session

#endif
