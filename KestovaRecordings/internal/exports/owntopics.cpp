#include "KestovaRecordings/internal/exports/owntopics.h"

#include <cmath>
#include <limits>
#include <numbers>

#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/internal/exports/targetpoint.h"
#include "KestovaRecordings/internal/subject.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cBetweenNs = 1'000'000'000;

template <typename tNumber>
void putValue(const char* key, const std::optional<tNumber>& value, std::string& to)
{
    if (!value)
        return;
    to += key;
    appendNumber(*value, to);
}

void appendTarget(const tTarget& target, const tGeoPoint& point, std::string& to)
{
    to += R"({"type":"Feature","properties":{"kind":)";
    to += target.isAis ? R"("ais","mmsi":)" : R"("arpa","target":)";
    appendNumber(target.number, to);
    if (!target.name.empty())
    {
        to += ",\"name\":";
        appendJson(asciiText(target.name), to);
    }
    putValue(",\"course_deg\":", target.courseDeg, to);
    putValue(",\"speed_kn\":", target.speedKn, to);
    to += R"(},"geometry":{"type":"Point","coordinates":[)";
    appendDegrees(point.longitudeDeg, to);
    to += ',';
    appendDegrees(point.latitudeDeg, to);
    to += "]}}";
}
}  // namespace

void tOwnTopics::write(const tSentence& sentence, const tDecodedPlace& place)
{
    if (subjectOf(sentence) != eSubject::eOwnShip)
        return;
    if (const auto point = pointIn(sentence))
        writeFix(*point, timesOf(place));
    if (sentence.headingDeg)
        writeHeading(*sentence.headingDeg, timesOf(place));
}

void tOwnTopics::writeFix(const tGeoPoint& point, const mcap::tTimes& times)
{
    m_message.clear();
    m_message.header(times.logNs, "own");
    m_message.number(std::int8_t{0}).number(std::uint16_t{0});  // a fix; of which service is not known
    m_message.number(point.latitudeDeg).number(point.longitudeDeg);
    m_message.number(std::numeric_limits<double>::quiet_NaN());  // altitude
    for (int i = 0; i < 9; ++i)
        m_message.number(0.0);
    m_message.number(std::uint8_t{0});  // the covariance is not known
    m_fix.write(times, m_message.bytes());
}

// Counter-clockwise from east, as ROS counts.
void tOwnTopics::writeHeading(double headingDeg, const mcap::tTimes& times)
{
    const double yaw = std::numbers::pi / 2 - headingDeg * std::numbers::pi / 180;
    m_message.clear();
    m_message.header(times.logNs, "map").number(0.0).number(0.0).number(std::sin(yaw / 2)).number(std::cos(yaw / 2));
    m_heading.write(times, m_message.bytes());
}

void tTargetsTopic::write(const tSentence& sentence, const tDecodedPlace& place, const tNavigation& navigation)
{
    const eSubject subject = subjectOf(sentence);
    if (subject == eSubject::eTracked || subject == eSubject::eStation)
        m_changed = timesOf(place);
    if (m_changed && place.timeUs * 1000 >= m_lastNs + cBetweenNs)
        writeAll(navigation);
}

void tTargetsTopic::finish(const tNavigation& navigation)
{
    if (m_changed)
        writeAll(navigation);
}

void tTargetsTopic::writeAll(const tNavigation& navigation)
{
    std::string text = R"({"type":"FeatureCollection","features":[)";
    bool isFirst = true;
    for (const tTarget& target : navigation.targets(m_changed->logNs / 1'000'000))
    {
        const auto point = pointOf(target, navigation.own());
        if (!point)
            continue;
        text += isFirst ? "" : ",";
        isFirst = false;
        appendTarget(target, *point, text);
    }
    m_message.clear();
    m_message.text(text + "]}");
    m_topic.write(*m_changed, m_message.bytes());
    m_lastNs = m_changed->logNs;
    m_changed.reset();
}
}  // namespace recordings
