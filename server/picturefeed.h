// tPictureFeed: messages in the order of time, as spokes, own ship and targets.
//
// Shapes   of several radars the first one that has spokes counts; its messages are told by their group.
// Threads  one at a time.
#ifndef KESTOVA_SERVER_PICTUREFEED_H
#define KESTOVA_SERVER_PICTUREFEED_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/wireloss.h"
#include "KestovaStorage/radarmsgpackage.h"
#include "server/layouts.h"
#include "server/livebatch.h"

namespace server
{
struct tFedMessage
{
    tReadWriteType kind;
    std::uint32_t ip;
    std::uint16_t port;  // in host order
    std::string_view message;
    std::uint64_t timeMs;
};

class tPictureFeed final : private recordings::iSpokeSink, private recordings::iSentenceSink
{
public:
    // `turned` is what the antenna turned since the spoke before, in turns.
    using tTake = std::function<void(const recordings::tSpoke& spoke, std::uint64_t timeMs, double turned)>;

    tPictureFeed(const tLayouts& layouts, tTake take) : m_reader(layouts), m_layouts(layouts), m_take(std::move(take))
    {}

    void read(const tFedMessage& message);
    // Begins again at another place: what waits for its end is dropped; own ship and targets stay.
    void startAnew();

    const recordings::tNavigation& navigation() const { return m_navigation; }
    std::optional<double> headingDeg() const { return m_navigation.own().headingDeg.value; }
    std::optional<std::uint64_t> missing() const
    {
        return m_isNumbered ? std::optional(m_loss.missing()) : std::nullopt;
    }

private:
    void onSpoke(const recordings::tSpoke& spoke, const recordings::tMessagePlace& place) override;
    void onSequence(std::uint64_t number, unsigned bits) override;
    void onSummary(std::string_view text) override;
    void onSentence(const recordings::tSentence& sentence) override;

    recordings::tSpokeReader m_reader;
    const tLayouts m_layouts;
    const tTake m_take;
    recordings::tSentenceReader m_sentences;
    recordings::tNavigation m_navigation;
    recordings::tWireLoss m_loss;
    tSweep m_sweep;
    bool m_isNumbered = false;
    std::optional<std::pair<std::uint32_t, std::uint16_t>> m_group;  // of the spokes
    bool m_isSpoke = false;                                          // the present message
    std::uint64_t m_timeMs = 0;
};
}  // namespace server

#endif
