#include "bindings/c/gatherer.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "KestovaRecordings/turn.h"
#include "KestovaRecordings/turnat.h"

namespace binding
{
using namespace recordings;

namespace
{
constexpr std::size_t cMostSpokes = 65'536, cMostBytes = std::size_t{512} << 20;  // of a turn
constexpr std::size_t cMostGroups = 256;                                          // whose sentences are read
constexpr double cDegreesPerTurn = 360;

bool isImage(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage;
}
}  // namespace

tGatherer::tGatherer(const std::vector<utils::tSpokeLayout>& layouts, std::set<tGroup> groups, const tSpan& span,
                     std::uint32_t every)
    : m_spokes(layouts), m_groups(std::move(groups)), m_span(span), m_every(every)
{}

void tGatherer::read(std::uint64_t timeMs, const tPackageContents& package)
{
    m_timeMs = timeMs;
    const tGroup group(package.ip, package.port);
    const bool mayHaveSpokes = m_group ? *m_group == group : m_groups.empty() || m_groups.count(group) != 0;
    if (mayHaveSpokes)
    {
        m_isSpoke = false;
        m_spokes.read(package.payload, {timeMs, 0}, *this);
        if (m_isSpoke)
            m_group = group;
        if (m_group)
            return;
    }
    if (!isImage(package.info.rwType) && (m_sentences.size() < cMostGroups || m_sentences.count(group) != 0))
        m_sentences[group].read(package.payload, timeMs, *this);
}

void tGatherer::finish()
{
    m_spokes.finish(*this);
    if (m_sweep && m_sweep->spokes() != 0)
        end(false, -1);
    m_isOver = true;
}

tGatherer::tSweepPtr tGatherer::take()
{
    if (m_ready.empty())
        return nullptr;
    tSweepPtr sweep = std::move(m_ready.front());
    m_ready.pop_front();
    return sweep;
}

void tGatherer::begin(bool atZero)
{
    // One that did not begin at 0 may turn out to be incomplete: it is handed out, whatever its number.
    m_isDue = !atZero || m_every == 0 || m_complete % m_every == 0;
    m_sweep = std::make_unique<kestova_sweep>(m_isDue && m_every != 0, m_rows + m_rows / 64 + 1);
    m_sweep->beganAtZero = atZero;
    m_missingBefore = m_loss.missing();
}

void tGatherer::end(bool atZero, double bearing)
{
    kestova_sweep& sweep = *m_sweep;
    sweep.complete = (sweep.beganAtZero && atZero) || sweep.covered() >= cWholeTurn;
    sweep.missing = static_cast<std::uint32_t>(m_loss.missing() - std::min(m_loss.missing(), m_missingBefore));
    sweep.endBearing = bearing;
    m_rows = sweep.spokes();
    const bool isDue = m_isDue && (!sweep.complete || m_every == 0 || m_complete % m_every == 0);
    m_complete += sweep.complete ? 1 : 0;
    if (isDue)
        m_ready.push_back(std::move(m_sweep));
    m_sweep.reset();
}

tSpokePlace tGatherer::placeOf(std::uint64_t timeMs) const
{
    const tLast<double>& heading = m_navigation.own().headingDeg;
    constexpr float cNone = std::numeric_limits<float>::quiet_NaN();
    if (!heading.value)
        return {timeMs, cNone, std::numeric_limits<double>::quiet_NaN()};
    const bool isOld = heading.timeMs + cHeadingForMs < timeMs;
    return {timeMs, isOld ? cNone : static_cast<float>(*heading.value), *heading.value / cDegreesPerTurn};
}

void tGatherer::onSpoke(const tSpoke& spoke, const tMessagePlace& place)
{
    m_isSpoke = true;
    const bool atZero = m_crossings.goTo(spoke.bearingFrom);
    if (m_sweep && atZero)
        end(true, spoke.bearingFrom);
    m_isOver = m_isOver || static_cast<std::int64_t>(place.timeMs) >= m_span.endMs;
    if (m_isOver || !m_span.includes(place.timeMs))
        return;
    if (m_sweep && (m_sweep->spokes() >= cMostSpokes || m_sweep->bytes() >= cMostBytes))
        end(false, -1);
    if (!m_sweep)
        begin(atZero);
    m_sweep->add(spoke, placeOf(place.timeMs));
}

void tGatherer::onSentence(const tSentence& sentence)
{
    m_navigation.add(sentence, m_timeMs);
}

void tGatherer::onSequence(std::uint64_t number, unsigned bits)
{
    m_isSpoke = true;
    m_loss.add(number, bits);
}

void tGatherer::onSummary(std::string_view)
{
    m_isSpoke = true;
    m_loss.addUnnumbered();
}
}  // namespace binding
