// polarExporter: a picture a turn as radar research has them, and the stations around it.
#include <cmath>
#include <optional>
#include <set>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/exportfolder.h"
#include "KestovaRecordings/internal/exports/decodedstreams.h"
#include "KestovaRecordings/internal/exports/exporttexts.h"
#include "KestovaRecordings/internal/exports/polarturn.h"
#include "KestovaRecordings/internal/exports/sectortopic.h"
#include "KestovaRecordings/internal/picturetexts.h"
#include "KestovaRecordings/internal/spokesteps.h"
#include "KestovaRecordings/turn.h"
#include "KestovaRecordings/zerocrossings.h"

namespace recordings
{
namespace
{
// Of several radars the first one that has spokes counts. Turns that the recording does not hold whole are left out.
class tPolarExporter final : public iExporter, private tDecodedSink
{
public:
    tPolarExporter(const std::string& folder, std::vector<utils::tSpokeLayout> layouts)
        : m_folder(folder), m_streams(std::move(layouts), *this)
    {
        m_folder.makeFolder("radar");
        m_folder.makeFolder("labels");
    }

    bool take(const tExportedPackage& package) override
    {
        m_streams.read(package);
        return true;
    }
    void finish() override
    {
        m_streams.finish();
        endTurn();
        if (m_names.empty())
            throw tFailure(m_folder.path() + " was not written: no turn of spokes is whole");
        m_folder.put("radar.timestamps", m_timestamps);
        m_folder.commit();
    }
    std::vector<tExportedPart> written() const override { return {{"radar", m_names.size()}, {"labels", m_labels}}; }

private:
    void onSentence(const tSentence& sentence, const tDecodedPlace& place) override
    {
        m_navigation.add(sentence, place.timeMs);
    }
    void onSpoke(const tSpoke& spoke, const tDecodedPlace& place) override
    {
        if (!m_radar)
            m_radar = place.stream;
        if (!(*m_radar == place.stream))
            return;
        const std::uint32_t missing = m_steps.next(spoke);
        if (m_crossings.goTo(spoke.bearingFrom))
            endTurn();
        m_reference = spoke.reference;
        m_lastMs = place.timeMs;
        m_turn.add(spoke, receivedNs(spoke, place) / 1000, missing);
    }
    void endTurn()
    {
        if (m_turn.covered() >= cWholeTurn)
            write();
        m_turn.clear();
    }

    void write()
    {
        std::uint64_t timeUs = m_turn.timeUs();
        while (!m_names.insert(timeUs).second)  // a clock that was set back
            ++timeUs;
        const std::string name = std::to_string(timeUs);
        m_folder.put("radar/" + name + ".png", m_turn.png());
        m_folder.put("labels/" + name + ".json", labels());
        m_timestamps += name + " 1\n";
    }

    // Bearings count from where those of the radar do, if own ship's heading is known, and from north otherwise.
    std::string labels()
    {
        const tOwnShip& own = m_navigation.own();
        const bool isFromBow = m_reference == utils::eReferenceBow && own.headingDeg.value;
        std::string text = "[";
        for (const tTarget& target : m_navigation.targets(m_lastMs))
        {
            const auto place = target.isAis ? placeOf(target, own) : std::nullopt;
            if (!place)
                continue;
            const double turns = (place->bearingDeg - (isFromBow ? *own.headingDeg.value : 0)) / 360;
            text += text.size() == 1 ? "\n{\"mmsi\":" : ",\n{\"mmsi\":";
            appendNumber(target.number, text);
            text += ",\"range_m\":";
            appendNumber(std::round(place->metres * 10) / 10, text);
            text += ",\"bearing\":";
            appendDegrees(turns - std::floor(turns), text);
            text += isFromBow ? ",\"reference\":\"bow\"}" : ",\"reference\":\"north\"}";
            ++m_labels;
        }
        return text + "\n]\n";
    }

    tExportFolder m_folder;
    tDecodedStreams m_streams;
    std::optional<tStreamKey> m_radar;
    tNavigation m_navigation;
    tZeroCrossings m_crossings;
    tSpokeSteps m_steps;
    tPolarTurn m_turn;
    utils::tBearingReference m_reference = utils::eReferenceUnknown;
    std::uint64_t m_lastMs = 0;  // of the spokes
    std::set<std::uint64_t> m_names;
    std::uint64_t m_labels = 0;
    std::string m_timestamps;
};
}  // namespace

tExporter polarExporter(const std::string& folder, std::vector<utils::tSpokeLayout> layouts)
{
    return std::make_unique<tPolarExporter>(folder, std::move(layouts));
}
}  // namespace recordings
