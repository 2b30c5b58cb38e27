// tTurnReader: packages in the order of recording, as the last turn of the antenna, own ship and targets.
//
// Shapes   of several radars the first one that has spokes counts; its packages are told by their group.
// Errors   packages that hold neither a spoke nor a sentence are passed over.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_TURNREADER_H
#define KESTOVA_RECORDINGS_INTERNAL_TURNREADER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "KestovaRecordings/internal/groupsentences.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/turnat.h"
#include "KestovaRecordings/wireloss.h"

namespace recordings
{
inline bool isImage(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage;
}

class tTurnReader final : private iSpokeSink, private iSentenceSink
{
public:
    using tGroup = std::pair<std::uint32_t, std::uint16_t>;  // address and port
    // Called before a spoke joins the turn; `turned` is what is added to its bearings, in turns.
    using tBefore = std::function<void(const tSpoke& spoke, double turned)>;

    // `group` is that of the spokes, if it is known.
    tTurnReader(const std::vector<utils::tSpokeLayout>& layouts, eUp up, std::optional<tGroup> group = {});
    void callBefore(tBefore before) { m_before = std::move(before); }

    void read(std::uint64_t timeMs, const tPackageContents& package);
    void finish() { m_spokes.finish(*this); }

    // The turn so far.
    tTurnAt& turn() { return m_result; }
    const std::optional<tGroup>& group() const { return m_group; }
    // Begins another turn; own ship and targets stay.
    void beginTurn();

private:
    void onSpoke(const tSpoke& spoke, const tMessagePlace& place) override;
    void onSequence(std::uint64_t number, unsigned bits) override;
    void onSummary(std::string_view text) override;
    void onSentence(const tSentence& sentence) override;
    double turnedBy(const tSpoke& spoke, std::uint64_t timeMs);

    tSpokeReader m_spokes;
    tGroupSentences m_sentences;
    tWireLoss m_loss;
    const eUp m_up;
    std::optional<tGroup> m_group;
    tBefore m_before;
    bool m_isSpoke = false;  // the message that is being read
    std::uint64_t m_timeMs = 0;
    std::uint64_t m_missingBefore = 0;  // the turn began
    tTurnAt m_result;
};
}  // namespace recordings

#endif
