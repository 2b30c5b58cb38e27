#include "KestovaRecordings/internal/turnreader.h"

#include <algorithm>

namespace recordings
{
namespace
{
constexpr double cDegreesPerTurn = 360;
}

tTurnReader::tTurnReader(const std::vector<utils::tSpokeLayout>& layouts, eUp up, std::optional<tGroup> group)
    : m_spokes(layouts), m_up(up), m_group(group)
{}

void tTurnReader::read(std::uint64_t timeMs, const tPackageContents& package)
{
    m_timeMs = timeMs;
    const tGroup group(package.ip, package.port);
    if (!m_group || *m_group == group)
    {
        m_isSpoke = false;
        m_spokes.read(package.payload, {timeMs, 0}, *this);
        if (m_isSpoke)
            m_group = group;
        if (m_group)
            return;
    }
    if (!isImage(package.info.rwType))
        m_sentences.read(timeMs, package, *this);
}

void tTurnReader::beginTurn()
{
    m_result.turn.clear();
    m_result.missing = 0;
    m_missingBefore = m_loss.missing();
    m_result.isHeadingOld = false;
}

// Returns own ship's heading, in turns, if bearings from the bow are to count from north.
double tTurnReader::turnedBy(const tSpoke& spoke, std::uint64_t timeMs)
{
    m_result.up = m_result.reference = spoke.reference;
    const tLast<double>& heading = m_result.navigation.own().headingDeg;
    if (m_up != eUp::eNorth || spoke.reference != utils::eReferenceBow || !heading.value)
        return 0;
    m_result.up = utils::eReferenceNorth;
    m_result.isHeadingOld = m_result.isHeadingOld || heading.timeMs + cHeadingForMs < timeMs;
    return *heading.value / cDegreesPerTurn;
}

void tTurnReader::onSpoke(const tSpoke& spoke, const tMessagePlace& place)
{
    m_isSpoke = true;
    const double turned = turnedBy(spoke, place.timeMs);
    if (m_before)
        m_before(spoke, turned);
    m_result.turn.add(spoke, turned, place.timeMs);
}

// Spokes that came before the first heading are turned by that one.
void tTurnReader::onSentence(const tSentence& sentence)
{
    tNavigation& navigation = m_result.navigation;
    const bool isFirst = sentence.headingDeg && !navigation.own().headingDeg.value;
    navigation.add(sentence, m_timeMs);
    const std::optional<double> heading = navigation.own().headingDeg.value;
    if (!isFirst || !heading || m_up != eUp::eNorth || m_result.up != utils::eReferenceBow)
        return;
    m_result.isHeadingOld = m_result.turn.firstMs() + cHeadingForMs < m_timeMs;
    m_result.turn.rotate(*heading / cDegreesPerTurn);
    m_result.up = utils::eReferenceNorth;
}

void tTurnReader::onSequence(std::uint64_t number, unsigned bits)
{
    m_isSpoke = true;
    m_result.isNumbered = true;
    m_loss.add(number, bits);
    m_result.missing = m_loss.missing() - std::min(m_loss.missing(), m_missingBefore);
}

void tTurnReader::onSummary(std::string_view)
{
    m_isSpoke = true;
    m_loss.addUnnumbered();
}
}  // namespace recordings
