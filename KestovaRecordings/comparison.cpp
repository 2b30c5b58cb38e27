#include "KestovaRecordings/comparison.h"

#include <algorithm>
#include <memory>

#include "KestovaRecordings/captureframes.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/comparisonwalk.h"
#include "KestovaRecordings/internal/offsetsearch.h"

namespace recordings
{
namespace
{
class tComparer
{
public:
    tComparer(const tCompareOptions& options, const std::function<bool(const tCompareProgress&)>& goOn)
        : m_options(options), m_goOn(goOn), m_captureA(isCapture(options.a)), m_captureB(isCapture(options.b)),
          m_content(!options.ignoreTime)
    {
        if (m_captureA && m_captureB && !options.streams.includesAll())
            throw tFailure("both are captures, which do not name streams: none can be chosen");
        m_state.withLate = options.toleranceMs.has_value();
    }

    tRecordingComparison run();

private:
    tMessageInputOptions inputOptions(bool ofA) const;
    void open();
    bool findOffset();
    bool goOn(bool searching) const;
    tRecordingComparison result(const tComparisonWalk& walk) const;
    void addStream(tStreamNumber number, const tStreamComparison& stream, tRecordingComparison& to) const;
    void name(tStreamNumber number, tStreamDifference& row) const;
    void addLate(const tStreamComparison& stream, double offsetUs, tStreamDifference& row) const;
    bool isChosen(tStreamNumber number) const;
    // The side that is a recording.
    const tMessageInputResult& recorded() const { return (m_captureA ? m_b : m_a)->result(); }

    const tCompareOptions& m_options;
    const std::function<bool(const tCompareProgress&)>& m_goOn;
    const bool m_captureA, m_captureB;
    const tMessageContent m_content;
    tComparisonState m_state;
    std::unique_ptr<tMessageFeed> m_a, m_b;
};

tMessageInputOptions tComparer::inputOptions(bool ofA) const
{
    tMessageInputOptions options;
    options.path = ofA ? m_options.a : m_options.b;
    options.suffix = m_options.suffix;
    options.byAddress = m_captureA || m_captureB;
    options.streams = m_options.streams;
    if (ofA)
        options.mapGroup = m_options.mapGroup;
    return options;
}

void tComparer::open()
{
    m_a = std::make_unique<tMessageFeed>(openMessageInput(inputOptions(true)));
    m_b = std::make_unique<tMessageFeed>(openMessageInput(inputOptions(false)));
}

bool tComparer::goOn(bool searching) const
{
    return m_goOn({searching, (m_a->fraction() + m_b->fraction()) / 2});
}

// Returns false if it is cancelled. Leaves both sides at their beginning.
bool tComparer::findOffset()
{
    bool far = false;
    tOffsetSearch search(*m_a, *m_b, m_content, [&] { return goOn(far); });
    m_a->keep();
    m_b->keep();
    auto found = search.inBeginnings();
    const bool isAll = m_a->atEnd() && m_b->atEnd();
    const bool begins = found || isAll;
    if (isAll && !found)
        found = search.farther();
    if (begins)
    {
        m_a->rewind();
        m_b->rewind();
    }
    else
    {
        far = true;
        m_a->forget();
        m_b->forget();
        found = search.farther();
    }
    if (search.cancelled())
        return false;
    m_state.offsetUs = found ? *found : search.ofFirstMessages();
    if (!begins)
        open();
    return true;
}

tRecordingComparison tComparer::run()
{
    open();
    if (!findOffset())
        return {};
    tComparisonWalk walk(*m_a, *m_b, m_content, m_state);
    if (!walk.run([this] { return goOn(false); }))
        return {};
    return result(walk);
}

tRecordingComparison tComparer::result(const tComparisonWalk& walk) const
{
    tRecordingComparison result;
    for (const tMessageFeed* const feed : {m_a.get(), m_b.get()})
        for (const tLeftOut& one : feed->result().leftOut)
            result.leftOut.push_back(one);
    result.damagedA = m_a->result().damaged;
    result.damagedB = m_b->result().damaged;
    if (m_state.offsets.count() != 0)
    {
        const double median = m_state.offsets.medianUs();
        const auto deviations = m_state.offsets.deviationsFrom(median);
        result.clock = tClockDifference{median, deviations.p50Us, deviations.p99Us, deviations.maxUs};
    }
    for (const auto& [number, stream] : walk.streams())
        if (isChosen(number))
            addStream(number, stream, result);
    std::ranges::sort(result.streams, {}, [](const tStreamDifference& row) { return streamNumber(row.key); });
    result.complete = true;
    return result;
}

// A capture has every group, chosen or not: what a recording has as another stream is left out, what it does not have
// at all is a difference.
bool tComparer::isChosen(tStreamNumber number) const
{
    return m_captureA == m_captureB || !recorded().notChosen.contains(number) || recorded().kinds.contains(number);
}

void tComparer::addStream(tStreamNumber number, const tStreamComparison& stream, tRecordingComparison& to) const
{
    const tStreamComparison::tCounts& counts = stream.counts();
    tStreamDifference row;
    row.key = streamOf(number);
    name(number, row);
    row.same = counts.same;
    row.onlyA = counts.onlyA;
    row.onlyB = counts.onlyB;
    row.changed = counts.changed;
    row.moved = counts.moved;
    if (counts.first)
        row.first = tDifferencePlace{counts.first->aUs, counts.first->bUs};
    if (m_state.withLate && to.clock)
        addLate(stream, to.clock->offsetUs, row);
    to.streams.push_back(row);
}

// Aligned by group, a stream has the name that the recording gives it.
void tComparer::name(tStreamNumber number, tStreamDifference& row) const
{
    if (!m_captureA && !m_captureB)
        return;
    row.named = false;
    if (m_captureA && m_captureB)
        return;
    const auto kind = recorded().kinds.find(number);
    row.named = kind != recorded().kinds.end() || number == 0;
    if (kind != recorded().kinds.end())
        row.key.kind = kind->second;
}

void tComparer::addLate(const tStreamComparison& stream, double offsetUs, tStreamDifference& row) const
{
    tTimePair first{};
    row.late = stream.offsets().countBeyond(offsetUs, static_cast<double>(*m_options.toleranceMs) * 1000.0, first);
    if (row.late != 0 && (!row.first || (row.first->aUs && first.aUs < *row.first->aUs)))
        row.first = tDifferencePlace{first.aUs, first.bUs};
}
}  // namespace

bool tRecordingComparison::equal() const
{
    return complete && leftOut.empty() && damagedA + damagedB == 0 &&
           std::ranges::none_of(streams, &tStreamDifference::differs);
}

tRecordingComparison compareRecordings(const tCompareOptions& options,
                                       const std::function<bool(const tCompareProgress&)>& goOn)
{
    return tComparer(options, goOn).run();
}
}  // namespace recordings
