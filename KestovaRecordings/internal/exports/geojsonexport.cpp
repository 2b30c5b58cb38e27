// geoJsonExporter: a line a ship.
#include <cmath>
#include <map>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/exports/decodedstreams.h"
#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/internal/exports/targetpoint.h"
#include "KestovaRecordings/internal/partfile.h"
#include "KestovaRecordings/internal/subject.h"

namespace recordings
{
namespace
{
constexpr double cPerDegree = 1e7;

// Where a ship was, in 1 / cPerDegree of a degree.
struct tFix
{
    std::uint64_t timeMs;
    std::int32_t latitude, longitude;

    double latitudeDeg() const { return latitude / cPerDegree; }
    double longitudeDeg() const { return longitude / cPerDegree; }
};

struct tShip
{
    std::string name;
    std::vector<tFix> fixes;
};

// The coordinates of a line, and beside them the times, in as many parts as it is cut into.
class tLine
{
public:
    explicit tLine(const std::vector<tFix>& fixes)
    {
        begin();
        for (std::size_t i = 0; i < fixes.size(); ++i)
        {
            const tFix& to = fixes[i];
            if (i != 0 && std::abs(to.longitudeDeg() - fixes[i - 1].longitudeDeg()) > 180)
                cut(fixes[i - 1], to);
            add(to.longitudeDeg(), to.latitudeDeg(), to.timeMs);
        }
        end();
    }
    bool isCut() const { return m_parts > 1; }
    const std::string& coordinates() const { return m_coordinates; }
    const std::string& times() const { return m_times; }

private:
    // Ends a part at 180 degrees and begins the next one on the other side.
    void cut(const tFix& from, const tFix& to)
    {
        const double side = from.longitude < 0 ? -180 : 180;
        const double there = to.longitudeDeg() + 2 * side;  // seen from the side where the ship was
        const double width = there - from.longitudeDeg();
        const double share = width == 0 ? 0 : (side - from.longitudeDeg()) / width;
        const double latitude = from.latitudeDeg() + share * (to.latitudeDeg() - from.latitudeDeg());
        const std::uint64_t timeMs =
            from.timeMs + static_cast<std::uint64_t>(share * static_cast<double>(to.timeMs - from.timeMs));
        add(side, latitude, timeMs);
        end();
        begin();
        add(-side, latitude, timeMs);
    }
    void begin()
    {
        m_coordinates += m_parts == 0 ? "[" : ",[";
        m_times += m_parts == 0 ? "[" : ",[";
        ++m_parts;
        m_isFirst = true;
    }
    void end()
    {
        m_coordinates += ']';
        m_times += ']';
    }
    void add(double longitude, double latitude, std::uint64_t timeMs)
    {
        m_coordinates += m_isFirst ? "[" : ",[";
        m_times += m_isFirst ? "" : ",";
        m_isFirst = false;
        appendDegrees(longitude, m_coordinates);
        m_coordinates += ',';
        appendDegrees(latitude, m_coordinates);
        m_coordinates += ']';
        appendNumber(timeMs, m_times);
    }

    std::string m_coordinates, m_times;
    std::size_t m_parts = 0;
    bool m_isFirst = true;
};

// A single position is a point, which has one time.
std::string geometryOf(const tShip& ship, std::string& times)
{
    if (ship.fixes.size() == 1)
    {
        std::string point = R"({"type":"Point","coordinates":[)";
        appendDegrees(ship.fixes[0].longitudeDeg(), point);
        point += ',';
        appendDegrees(ship.fixes[0].latitudeDeg(), point);
        times = "[" + std::to_string(ship.fixes[0].timeMs) + "]";
        return point + "]}";
    }
    const tLine line(ship.fixes);
    times = line.isCut() ? "[" + line.times() + "]" : line.times();
    return line.isCut() ? R"({"type":"MultiLineString","coordinates":[)" + line.coordinates() + "]}"
                        : R"({"type":"LineString","coordinates":)" + line.coordinates() + "}";
}

class tGeoJsonExporter final : public iExporter, private tDecodedSink
{
public:
    explicit tGeoJsonExporter(const std::string& path) : m_path(path), m_file(path), m_streams({}, *this) {}

    bool take(const tExportedPackage& package) override
    {
        m_streams.read(package);
        return true;
    }
    void finish() override
    {
        std::erase_if(m_ships, [](const auto& one) { return one.second.fixes.empty(); });
        if (m_ships.empty())
            throw tFailure(m_path + " was not written: no sentence gives a position");
        m_file.write("{\"type\":\"FeatureCollection\",\"features\":[");
        const char* before = "\n";
        for (const auto& [key, ship] : m_ships)
        {
            m_file.write(before);
            writeShip(key, ship);
            before = ",\n";
        }
        m_file.write("\n]}\n");
        m_file.finish();
    }
    std::vector<tExportedPart> written() const override
    {
        std::uint64_t positions = 0;
        for (const auto& [key, ship] : m_ships)
            positions += ship.fixes.size();
        return {{"ships", m_ships.size()}, {"positions", positions}};
    }

private:
    using tKey = std::pair<eSubject, std::uint32_t>;  // own ship first; mmsi or number

    void onSentence(const tSentence& sentence, const tDecodedPlace& place) override
    {
        const eSubject subject = subjectOf(sentence);
        m_navigation.add(sentence, place.timeMs);
        if (subject == eSubject::eTracked)
            return addTracked(sentence, place.timeMs);
        const bool isStation = subject == eSubject::eStation;
        if (subject == eSubject::eNobody || (!isStation && !pointIn(sentence)))
            return;
        tShip& ship = m_ships[{subject, isStation ? *sentence.mmsi : 0}];
        if (sentence.shipName)
            ship.name = *sentence.shipName;
        if (const auto point = pointIn(sentence))
            add(ship, *point, place.timeMs);
    }
    void addTracked(const tSentence& sentence, std::uint64_t timeMs)
    {
        tTarget target;
        target.position = pointIn(sentence);
        target.distanceNm = sentence.distanceNm;
        target.bearingDeg = sentence.bearingDeg;
        target.bearingReference = sentence.bearingReference;
        if (const auto point = pointOf(target, m_navigation.own()))
            add(m_ships[{eSubject::eTracked, *sentence.target}], *point, timeMs);
    }
    // Several sentences give one fix: of those of one millisecond the first counts.
    static void add(tShip& ship, const tGeoPoint& point, std::uint64_t timeMs)
    {
        if (ship.fixes.empty() || ship.fixes.back().timeMs != timeMs)
            ship.fixes.push_back({timeMs, static_cast<std::int32_t>(std::lround(point.latitudeDeg * cPerDegree)),
                                  static_cast<std::int32_t>(std::lround(point.longitudeDeg * cPerDegree))});
    }

    void writeShip(const tKey& key, const tShip& ship)
    {
        const auto [subject, number] = key;
        std::string text = R"({"type":"Feature","properties":{"kind":)";
        text += subject == eSubject::eOwnShip ? R"("own")" : subject == eSubject::eStation ? R"("ais")" : R"("arpa")";
        if (subject == eSubject::eStation)
            text += ",\"mmsi\":" + std::to_string(number);
        if (subject == eSubject::eTracked)
            text += ",\"target\":" + std::to_string(number);
        if (!ship.name.empty())
        {
            text += ",\"name\":";
            appendJson(asciiText(ship.name), text);
        }
        std::string times;
        const std::string geometry = geometryOf(ship, times);
        text += ",\"times_ms\":" + times + "},\"geometry\":" + geometry + "}";
        m_file.write(text);
    }

    const std::string m_path;
    tPartFile m_file;
    tDecodedStreams m_streams;
    tNavigation m_navigation;
    std::map<tKey, tShip> m_ships;
};
}  // namespace

tExporter geoJsonExporter(const std::string& path)
{
    return std::make_unique<tGeoJsonExporter>(path);
}
}  // namespace recordings
