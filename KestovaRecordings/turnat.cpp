#include "KestovaRecordings/turnat.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/wireloss.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cFirstWindowMs = 4'000, cLongestWindowMs = 4'194'304'000;
constexpr std::uint64_t cHeadingBeforeMs = 10'000;  // that a heading counts for
constexpr double cWhole = 0.999;                    // of a turn
constexpr double cDegreesPerTurn = 360;

bool isImage(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage;
}

// Reads the messages of a span of time, one after the other.
class tMoment final : private iSpokeSink, private iSentenceSink
{
public:
    tMoment(const std::vector<utils::tSpokeLayout>& layouts, eUp up) : m_spokes(layouts), m_up(up) {}

    void read(std::uint64_t timeMs, const tPackageContents& package)
    {
        m_timeMs = timeMs;
        const std::pair group(package.ip, package.port);
        if (!m_group || *m_group == group)
        {
            m_isSpoke = false;
            m_spokes.read(package.payload, {timeMs, 0}, *this);
            if (m_isSpoke)
                m_group = group;
            if (m_isSpoke || m_group)
                return;
        }
        if (!isImage(package.info.rwType))
            m_sentences.read(package.payload, timeMs, *this);
    }
    void finish() { m_spokes.finish(*this); }

    std::uint64_t missing() const { return m_loss.missing(); }
    tTurnAt result;

private:
    void onSpoke(const tSpoke& spoke, const tMessagePlace& place) override
    {
        m_isSpoke = true;
        result.reference = spoke.reference;
        double turned = 0;
        if (m_up == eUp::eNorth && spoke.reference == utils::eReferenceBow)
        {
            const tLast<double>& heading = result.navigation.own().headingDeg;
            if (heading.value && heading.timeMs + cHeadingBeforeMs >= place.timeMs)
                turned = *heading.value / cDegreesPerTurn;
            else
                m_allTurned = false;
        }
        result.turnedNorth = m_allTurned && spoke.reference != utils::eReferenceUnknown && m_up == eUp::eNorth;
        result.turn.add(spoke, turned, place.timeMs);
    }
    void onSequence(std::uint64_t number, unsigned bits) override
    {
        m_isSpoke = true;
        m_loss.add(number, bits);
    }
    void onSummary(std::string_view) override
    {
        m_isSpoke = true;
        m_loss.addUnnumbered();
    }
    void onSentence(const tSentence& sentence) override { result.navigation.add(sentence, m_timeMs); }

    tSpokeReader m_spokes;
    tSentenceReader m_sentences;
    tWireLoss m_loss;
    eUp m_up;
    std::optional<std::pair<std::uint32_t, std::uint16_t>> m_group;  // of the spokes
    bool m_isSpoke = false;                                          // the message that is being read
    bool m_allTurned = true;
    std::uint64_t m_timeMs = 0;
};

tMoment read(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts, eUp up, std::uint64_t fromMs,
             std::uint64_t imageFromMs, std::uint64_t toMs)
{
    tMoment moment(layouts, up);
    recording.forEachPackage(
        fromMs, toMs, [](tReadWriteType) { return true; },
        [&](std::uint64_t timeMs, const tPackageContents& package) {
            if (timeMs >= imageFromMs || !isImage(package.info.rwType))
                moment.read(timeMs, package);
        });
    moment.finish();
    return moment;
}
}  // namespace

// Looks back further until the turn is whole: nobody knows how fast an antenna turns before it has been seen.
tTurnAt turnAt(const tTimeRange& recording, const std::vector<utils::tSpokeLayout>& layouts, std::uint64_t atMs, eUp up)
{
    const auto before = [&](std::uint64_t ms) { return atMs - std::min(atMs, ms); };
    std::uint64_t window = cFirstWindowMs;
    tMoment moment = read(recording, layouts, up, before(window + cHeadingBeforeMs), before(window), atMs);
    while (moment.result.turn.covered() < cWhole && before(window) > recording.firstMs() && window < cLongestWindowMs)
    {
        window *= 4;
        moment = read(recording, layouts, up, before(window + cHeadingBeforeMs), before(window), atMs);
    }
    const std::uint64_t firstMs = moment.result.turn.firstMs();
    tTurnAt result = std::move(moment.result);
    result.missing = read(recording, layouts, up, firstMs, firstMs, atMs).missing();
    return result;
}
}  // namespace recordings
