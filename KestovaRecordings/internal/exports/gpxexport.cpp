// gpxExporter: own ship's track.
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/exports/decodedstreams.h"
#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/internal/partfile.h"
#include "KestovaRecordings/internal/subject.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cLongestGapMs = 60'000;
constexpr char cHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                         "<gpx version=\"1.1\" creator=\"kestova\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n"
                         "<trk>\n<name>own ship</name>\n";

// Several sentences give one fix: of those of one millisecond the first counts.
class tGpxExporter final : public iExporter, private tDecodedSink
{
public:
    explicit tGpxExporter(const std::string& path) : m_path(path), m_file(path), m_streams({}, *this)
    {
        m_file.write(cHead);
    }

    bool take(const tExportedPackage& package) override
    {
        m_streams.read(package);
        return true;
    }
    void finish() override
    {
        if (m_points == 0)
            throw tFailure(m_path + " was not written: no sentence gives own ship's position");
        m_file.write("</trkseg>\n</trk>\n</gpx>\n");
        m_file.finish();
    }
    std::vector<tExportedPart> written() const override { return {{"trkpt", m_points}, {"trkseg", m_segments}}; }

private:
    void onSentence(const tSentence& sentence, const tDecodedPlace& place) override
    {
        const auto point = subjectOf(sentence) == eSubject::eOwnShip ? pointIn(sentence) : std::nullopt;
        if (!point || (m_points != 0 && place.timeMs == m_lastMs))
            return;
        m_text.clear();
        if (m_points == 0 || place.timeMs - m_lastMs > cLongestGapMs)
        {
            m_text += m_points == 0 ? "<trkseg>\n" : "</trkseg>\n<trkseg>\n";
            ++m_segments;
        }
        m_text += "<trkpt lat=\"";
        appendDegrees(point->latitudeDeg, m_text);
        m_text += "\" lon=\"";
        appendDegrees(point->longitudeDeg, m_text);
        m_text.append("\"><time>").append(utcText(place.timeMs)).append("</time></trkpt>\n");
        m_file.write(m_text);
        m_lastMs = place.timeMs;
        ++m_points;
    }

    const std::string m_path;
    tPartFile m_file;
    tDecodedStreams m_streams;
    std::string m_text;
    std::uint64_t m_points = 0, m_segments = 0, m_lastMs = 0;
};
}  // namespace

tExporter gpxExporter(const std::string& path)
{
    return std::make_unique<tGpxExporter>(path);
}
}  // namespace recordings
