// tDecodedLines: the lines of messages, each with the spokes and sentences that end in it.
#ifndef KESTOVA_SESSIONS_REPORT_DECODEDLINES_H
#define KESTOVA_SESSIONS_REPORT_DECODEDLINES_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/streamcounts.h"
#include "KestovaUtils/spokelayout.h"
#include "sessions/report/json.h"

namespace session
{
// What a message holds, and the line that shows it.
struct tDecodedLine
{
    tJson json;        // without --json: null
    std::string text;  // without --json

    tJson spokes = tJson::array(), sentences = tJson::array();
    std::optional<std::string> summary;
    bool compressed = false;
};

// Returns a line as JSON, with what it holds.
tJson decodedJson(tDecodedLine&& line);
// Returns the same as text: the line, and one line more for each thing that it holds. Of cells `cellsShown` are shown.
std::string decodedText(const tDecodedLine& line, std::size_t cellsShown);

// Keeps back the line of a message that a spoke may end with, and those behind it, until it is known: 4,096 at most.
class tDecodedLines final : private recordings::iSpokeSink, private recordings::iSentenceSink
{
public:
    using tPrint = std::function<void(tDecodedLine&& line)>;

    tDecodedLines(std::vector<utils::tSpokeLayout> layouts, tPrint print);

    // Takes the next message. Without a line it only counts for what others hold.
    void add(const recordings::tStreamKey& stream, std::string_view message, std::uint64_t timeMs,
             std::optional<tDecodedLine> line);
    // Returns whether lines are kept back.
    bool isWaiting() const { return m_shownWaiting != 0; }
    void finish();

private:
    struct tStream
    {
        explicit tStream(const std::vector<utils::tSpokeLayout>& layouts) : spokes(layouts) {}
        recordings::tSpokeReader spokes;
        recordings::tSentenceReader sentences;
    };
    using tLine = std::optional<tDecodedLine>;

    void onSpoke(const recordings::tSpoke& spoke, const recordings::tMessagePlace& place) override;
    void onSequence(std::uint64_t, unsigned) override { m_isSpoke = true; }
    void onSummary(std::string_view text) override;
    void onCompressed() override;
    void onSentence(const recordings::tSentence& sentence) override;
    tDecodedLine* present() { return m_lines.back() ? &*m_lines.back() : nullptr; }
    std::uint64_t oldestAwaited(tStream*& stream);
    void release();

    const std::vector<utils::tSpokeLayout> m_layouts;
    const tPrint m_print;
    std::map<recordings::tStreamKey, tStream> m_streams;
    std::deque<tLine> m_lines;
    std::uint64_t m_first = 0;       // number of the first of them
    std::size_t m_shownWaiting = 0;  // of them, those that are shown
    bool m_isSpoke = false;          // the present message
};
}  // namespace session

#endif
