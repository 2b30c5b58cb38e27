// tGatherer: messages in the order of recording, as sweeps.
//
// Shapes   turns from bearing 0 to bearing 0; of several radars the first one that has spokes counts.
// Errors   messages that hold neither a spoke nor a sentence are passed over. Throws std::bad_alloc.
// Threads  one at a time.
#ifndef KESTOVA_C_GATHERER_H
#define KESTOVA_C_GATHERER_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/wireloss.h"
#include "KestovaRecordings/zerocrossings.h"
#include "bindings/c/source.h"
#include "bindings/c/sweep.h"

namespace binding
{
class tGatherer final : private recordings::iSpokeSink, private recordings::iSentenceSink
{
public:
    using tSweepPtr = std::unique_ptr<kestova_sweep>;

    // Takes spokes of `groups` alone, unless that is empty; `every` as kestova_sweeps_open() says.
    tGatherer(const std::vector<utils::tSpokeLayout>& layouts, std::set<tGroup> groups, const tSpan& span,
              std::uint32_t every);

    void read(std::uint64_t timeMs, const recordings::tPackageContents& package);
    // After the last message: what is left is the last sweep.
    void finish();
    // Returns whether spokes behind the span have come: nothing follows.
    bool isOver() const { return m_isOver; }
    bool hasSpokes() const { return m_group.has_value(); }
    tSweepPtr take();  // the next sweep that is whole; null for none

private:
    void onSpoke(const recordings::tSpoke& spoke, const recordings::tMessagePlace& place) override;
    void onSequence(std::uint64_t number, unsigned bits) override;
    void onSummary(std::string_view text) override;
    void onSentence(const recordings::tSentence& sentence) override;
    void begin(bool atZero);
    void end(bool atZero, double bearing);
    tSpokePlace placeOf(std::uint64_t timeMs) const;

    recordings::tSpokeReader m_spokes;
    std::map<tGroup, recordings::tSentenceReader> m_sentences;  // fragments of one group belong together
    recordings::tWireLoss m_loss;
    recordings::tZeroCrossings m_crossings;
    recordings::tNavigation m_navigation;
    const std::set<tGroup> m_groups;
    const tSpan m_span;
    const std::uint32_t m_every;

    std::optional<tGroup> m_group;
    bool m_isSpoke = false;  // the message that is being read
    bool m_isOver = false;
    std::uint64_t m_timeMs = 0;
    std::uint64_t m_missingBefore = 0;  // the turn began
    std::uint64_t m_complete = 0;       // turns so far
    std::size_t m_rows = 0;             // of the turn before
    bool m_isDue = false;               // the turn is handed out
    tSweepPtr m_sweep;                  // null before the first spoke of the span
    std::deque<tSweepPtr> m_ready;
};
}  // namespace binding

#endif
