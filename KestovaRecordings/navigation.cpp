#include "KestovaRecordings/navigation.h"

#include <algorithm>

#include "KestovaRecordings/internal/groupsentences.h"
#include "KestovaRecordings/internal/subject.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cTrackedMs = 30'000, cAisMs = 360'000;
constexpr std::size_t cMostTargets = 10'000;

bool isHeard(const tTarget& target, std::uint64_t nowMs)
{
    return target.lastMs + (target.isAis ? cAisMs : cTrackedMs) >= nowMs;
}

// Values that a sentence does not repeat stay: a station sends its name apart from its position.
template <typename tValue>
void update(std::optional<tValue>& value, const std::optional<tValue>& next)
{
    if (next)
        value = next;
}

void update(tTarget& target, const tSentence& sentence, std::uint64_t timeMs)
{
    target.lastMs = timeMs;
    update(target.position, pointIn(sentence));
    update(target.distanceNm, sentence.distanceNm);
    update(target.bearingDeg, sentence.bearingDeg);
    if (sentence.bearingDeg)
        target.bearingReference = sentence.bearingReference;
    update(target.courseDeg, sentence.courseDeg);
    update(target.speedKn, sentence.speedKn);
    update(target.headingDeg, sentence.headingDeg);
    if (sentence.targetStatus != 0)
        target.status = sentence.targetStatus;
    if (sentence.shipName)
        target.name = *sentence.shipName;
}

// Passes the sentences of a message on with the message's time.
class tToNavigation final : public iSentenceSink
{
public:
    explicit tToNavigation(tNavigation& navigation) : m_navigation(navigation) {}

    void read(std::uint64_t timeMs, const tPackageContents& package)
    {
        m_timeMs = timeMs;
        m_sentences.read(timeMs, package, *this);
    }

private:
    void onSentence(const tSentence& sentence) override { m_navigation.add(sentence, m_timeMs); }

    tNavigation& m_navigation;
    tGroupSentences m_sentences;
    std::uint64_t m_timeMs = 0;
};
}  // namespace

void tNavigation::add(const tSentence& sentence, std::uint64_t timeMs)
{
    const eSubject subject = subjectOf(sentence);
    if (subject == eSubject::eNobody)
        return;
    if (subject == eSubject::eOwnShip)
        return addOwn(sentence, timeMs);
    const bool isAis = subject == eSubject::eStation;
    if (tTarget* const target = targetFor({isAis, isAis ? *sentence.mmsi : *sentence.target}, timeMs))
        update(*target, sentence, timeMs);
}

void tNavigation::addOwn(const tSentence& sentence, std::uint64_t timeMs)
{
    m_own.position.set(pointIn(sentence), timeMs);
    m_own.headingDeg.set(sentence.headingDeg, timeMs);
    m_own.courseDeg.set(sentence.courseDeg, timeMs);
    m_own.speedKn.set(sentence.speedKn, timeMs);
    m_own.depthM.set(sentence.depthM, timeMs);
}

tTarget* tNavigation::targetFor(const tKey& key, std::uint64_t timeMs)
{
    if (m_targets.size() >= cMostTargets && m_targets.find(key) == m_targets.end())
    {
        std::erase_if(m_targets, [&](const auto& one) { return !isHeard(one.second, timeMs); });
        if (m_targets.size() >= cMostTargets)
            return nullptr;
    }
    tTarget& target = m_targets[key];
    target.isAis = key.first;
    target.number = key.second;
    return &target;
}

std::vector<tTarget> tNavigation::targets(std::uint64_t nowMs) const
{
    std::vector<tTarget> heard;
    for (const auto& [key, target] : m_targets)
    {
        if (isHeard(target, nowMs))
            heard.push_back(target);
    }
    return heard;
}

tNavigation navigationAt(const tTimeRange& recording, std::uint64_t atMs)
{
    tNavigation navigation;
    tToNavigation sentences(navigation);
    recording.forEachPackage(
        atMs - std::min(atMs, cAisMs), atMs,
        [](tReadWriteType kind) { return kind != eImageStream && kind != eOriginalImage; },
        [&](std::uint64_t timeMs, const tPackageContents& package) {
            sentences.read(timeMs, package);
            return true;
        });
    return navigation;
}
}  // namespace recordings
