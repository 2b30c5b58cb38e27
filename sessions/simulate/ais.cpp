// The AIS class A position report: 168 bits, six to a character.
#include <array>
#include <cmath>

#include "sessions/simulate/nmea.h"

namespace session
{
namespace
{
constexpr std::size_t cReportBits = 168;

// The bits of a report: fields in its order, highest bit first.
class tBitField
{
public:
    void add(std::int64_t value, std::size_t width)
    {
        for (std::size_t bit = width; bit-- > 0;)
            m_bits[m_used++] = static_cast<unsigned char>(static_cast<std::uint64_t>(value) >> bit & 1u);
    }

    // Returns six bits a character: 0 to 39 from '0' on, 40 to 63 from '`' on.
    std::string armoured() const
    {
        std::string text;
        for (std::size_t i = 0; i < cReportBits; i += 6)
        {
            int value = 0;
            for (std::size_t bit = 0; bit < 6; ++bit)
                value = value << 1 | m_bits[i + bit];
            text += static_cast<char>(value < 40 ? value + 48 : value + 56);
        }
        return text;
    }

private:
    std::array<unsigned char, cReportBits> m_bits{};
    std::size_t m_used = 0;
};
}  // namespace

std::string aisPositionSentence(std::uint32_t mmsi, const tMotion& vessel, std::uint64_t timeMs)
{
    const tGeoPosition where = tScene::position(vessel);
    tBitField report;
    report.add(1, 6);  // message type: scheduled position report
    report.add(0, 2);  // repeat indicator
    report.add(mmsi, 30);
    report.add(0, 4);                                            // under way using engine
    report.add(0, 8);                                            // rate of turn
    report.add(std::llround(vessel.speed * 1.943844 * 10), 10);  // tenths of a knot
    report.add(1, 1);                                            // position better than 10 m
    report.add(std::llround(where.longitude * 600'000.0), 28);   // ten-thousandths of a minute
    report.add(std::llround(where.latitude * 600'000.0), 27);
    report.add(std::llround(vessel.courseDeg * 10) % 3600, 12);
    report.add(std::llround(vessel.headingDeg) % 360, 9);
    report.add(static_cast<std::int64_t>(timeMs / 1000 % 60), 6);
    report.add(0, 2 + 3 + 1 + 19);  // manoeuvre, spare, RAIM, radio state
    return nmeaSentence('!', "AIVDM,1,1,,A," + report.armoured() + ",0");
}
}  // namespace session
