// csvExporter: four tables in a folder.
#include <array>
#include <optional>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/exportfolder.h"
#include "KestovaRecordings/internal/exports/decodedstreams.h"
#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/internal/partfile.h"
#include "KestovaRecordings/internal/subject.h"

namespace recordings
{
namespace
{
const char* nameOf(utils::tBearingReference reference)
{
    constexpr const char* cNames[] = {"unknown", "bow", "north"};
    return cNames[reference];
}

// One table: lines end in CR LF, fields with a comma or a quote stand in quotes.
class tTable
{
public:
    tTable(const tExportFolder& folder, const char* name, const char* columns)
        : m_name(name), m_file(folder.fileName(name))
    {
        m_line = columns;
        write();
    }

    tTable& begin(std::uint64_t timeMs)
    {
        m_line.clear();
        appendNumber(timeMs, m_line);
        return *this;
    }
    tTable& text(std::string_view text)
    {
        m_line += ',';
        if (text.find_first_of(",\"\r\n") == std::string_view::npos)
            m_line += text;
        else
            quote(text);
        return *this;
    }
    template <typename tNumber>
    tTable& number(const std::optional<tNumber>& value)
    {
        m_line += ',';
        if (value)
            appendNumber(*value, m_line);
        return *this;
    }
    void end()
    {
        write();
        ++m_rows;
    }

    tExportedPart part() const { return {m_name, m_rows}; }
    void finish() { m_file.finish(); }

private:
    void quote(std::string_view text)
    {
        m_line += '"';
        for (const char c : text)
        {
            if (c == '"')
                m_line += '"';
            m_line += c;
        }
        m_line += '"';
    }
    void write()
    {
        m_line += "\r\n";
        m_file.write(m_line);
    }

    const std::string m_name;
    tPartFile m_file;
    std::string m_line;
    std::uint64_t m_rows = 0;
};

class tCsvExporter final : public iExporter, private tDecodedSink
{
public:
    explicit tCsvExporter(const std::string& folder)
        : m_folder(folder), m_own(m_folder, "own.csv",
                                  "time_ms,talker,type,latitude_deg,longitude_deg,speed_kn,course_deg,heading_deg,"
                                  "depth_m,utc_ms"),
          m_ais(m_folder, "ais.csv",
                "time_ms,type,mmsi,ais_type,latitude_deg,longitude_deg,speed_kn,course_deg,heading_deg,ship_name"),
          m_arpa(m_folder, "arpa.csv",
                 "time_ms,talker,type,target,target_status,distance_nm,bearing_deg,bearing_reference,latitude_deg,"
                 "longitude_deg,speed_kn,course_deg,utc_ms"),
          m_sentences(m_folder, "sentences.csv", "time_ms,stream,address,valid,sentence"), m_streams({}, *this)
    {}

    bool take(const tExportedPackage& package) override
    {
        m_streams.read(package);
        return true;
    }
    void finish() override
    {
        if (m_sentences.part().count == 0)
            throw tFailure(m_folder.path() + " was not written: no message holds a sentence");
        for (tTable* const table : {&m_own, &m_ais, &m_arpa, &m_sentences})
            table->finish();
        m_folder.commit();
    }
    std::vector<tExportedPart> written() const override
    {
        return {m_own.part(), m_ais.part(), m_arpa.part(), m_sentences.part()};
    }

private:
    void onLine(std::string_view line, bool valid, const tDecodedPlace& place) override
    {
        if (m_named == nullptr || !(*m_named == place.stream))
        {
            m_name = place.stream.name();
            m_address = place.stream.address();
            m_named = &place.stream;
        }
        m_sentences.begin(place.timeMs).text(m_name).text(m_address).text(valid ? "true" : "false");
        m_sentences.text(asciiText(line)).end();
    }
    void onSentence(const tSentence& sentence, const tDecodedPlace& place) override
    {
        if (sentence.mmsi)
            addAis(sentence, place.timeMs);
        const eSubject subject = subjectOf(sentence);
        if (subject == eSubject::eTracked)
            addTracked(sentence, place.timeMs);
        else if (subject == eSubject::eOwnShip)
            addOwn(sentence, place.timeMs);
    }
    void addOwn(const tSentence& sentence, std::uint64_t timeMs)
    {
        if (!pointIn(sentence) && !sentence.speedKn && !sentence.courseDeg && !sentence.headingDeg &&
            !sentence.depthM && !sentence.utcMs)
            return;
        m_own.begin(timeMs).text(sentence.talker).text(sentence.type);
        m_own.number(sentence.latitudeDeg).number(sentence.longitudeDeg).number(sentence.speedKn);
        m_own.number(sentence.courseDeg).number(sentence.headingDeg).number(sentence.depthM).number(sentence.utcMs);
        m_own.end();
    }
    void addAis(const tSentence& sentence, std::uint64_t timeMs)
    {
        m_ais.begin(timeMs).text(sentence.type).number(sentence.mmsi).number(sentence.aisType);
        m_ais.number(sentence.latitudeDeg).number(sentence.longitudeDeg).number(sentence.speedKn);
        m_ais.number(sentence.courseDeg).number(sentence.headingDeg);
        m_ais.text(asciiText(sentence.shipName.value_or(""))).end();
    }
    void addTracked(const tSentence& sentence, std::uint64_t timeMs)
    {
        const char status[] = {sentence.targetStatus, '\0'};
        m_arpa.begin(timeMs).text(sentence.talker).text(sentence.type).number(sentence.target).text(status);
        m_arpa.number(sentence.distanceNm).number(sentence.bearingDeg);
        m_arpa.text(sentence.bearingDeg ? nameOf(sentence.bearingReference) : "");
        m_arpa.number(sentence.latitudeDeg).number(sentence.longitudeDeg).number(sentence.speedKn);
        m_arpa.number(sentence.courseDeg).number(sentence.utcMs).end();
    }

    tExportFolder m_folder;
    tTable m_own, m_ais, m_arpa, m_sentences;
    tDecodedStreams m_streams;
    const tStreamKey* m_named = nullptr;  // the stream of which these are the texts
    std::string m_name, m_address;
};
}  // namespace

tExporter csvExporter(const std::string& folder)
{
    return std::make_unique<tCsvExporter>(folder);
}
}  // namespace recordings
