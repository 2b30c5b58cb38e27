// tDecodedStreams: the spokes and sentences in the packages of a recording, with the times that exports give them.
//
// Shapes   images are spokes, sensors and targets send sentences; what was recorded by its group alone may be either.
//          At most 256 streams are decoded.
// Threads  one at a time.
// Errors   messages that hold neither are passed over.
#ifndef KESTOVA_RECORDINGS_INTERNAL_EXPORTS_DECODEDSTREAMS_H
#define KESTOVA_RECORDINGS_INTERNAL_EXPORTS_DECODEDSTREAMS_H

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "KestovaRecordings/exporter.h"
#include "KestovaRecordings/sentencereader.h"
#include "KestovaRecordings/spokereader.h"
#include "KestovaRecordings/streamcounts.h"

namespace recordings
{
// The stream of a message, and when it was recorded and packed.
struct tDecodedPlace
{
    const tStreamKey& stream;
    std::uint64_t timeMs, timeUs, packageMs;
};

// All operations do nothing unless they are overridden; what they get is valid during the call.
class tDecodedSink
{
public:
    virtual ~tDecodedSink() = default;
    // `place` is that of the message that ended the spoke.
    virtual void onSpoke(const tSpoke& /*spoke*/, const tDecodedPlace& /*place*/) {}
    virtual void onSentence(const tSentence& /*sentence*/, const tDecodedPlace& /*place*/) {}
    virtual void onLine(std::string_view /*line*/, bool /*valid*/, const tDecodedPlace& /*place*/) {}
};

class tDecodedStreams final : private iSpokeSink, private iSentenceSink
{
public:
    // Without layouts there are no spokes.
    tDecodedStreams(std::vector<utils::tSpokeLayout> layouts, tDecodedSink& sink);

    void read(const tExportedPackage& package);
    void finish();  // passes on the spokes that wait for their end

private:
    struct tStream
    {
        tStream(const tStreamKey& stream, const std::vector<utils::tSpokeLayout>& layouts);

        tStreamKey key;
        bool mayBeSpokes, mayBeSentences;
        tSpokeReader spokes;
        tSentenceReader sentences;
        std::uint64_t lastUs = 0, lastPackageMs = 0;  // of the message before
    };
    using tGroup = std::uint64_t;  // kind, address and port

    tStream* streamOf(const tPackageContents& package);
    tDecodedPlace place() const { return {m_stream->key, m_timeMs, m_timeUs, m_packageMs}; }
    void onSpoke(const tSpoke& spoke, const tMessagePlace& place) override;
    void onSequence(std::uint64_t, unsigned) override { m_isSpoke = true; }
    void onSummary(std::string_view) override { m_isSpoke = true; }
    void onSentence(const tSentence& sentence) override { m_sink.onSentence(sentence, place()); }
    void onLine(std::string_view line, bool valid) override { m_sink.onLine(line, valid, place()); }

    const std::vector<utils::tSpokeLayout> m_layouts;
    tDecodedSink& m_sink;
    std::map<tGroup, tStream> m_streams;
    tStream* m_stream = nullptr;  // of the present message
    tGroup m_group = 0;           // of m_stream
    std::uint64_t m_timeMs = 0, m_timeUs = 0, m_packageMs = 0;
    bool m_isSpoke = false;
};
}  // namespace recordings

#endif
