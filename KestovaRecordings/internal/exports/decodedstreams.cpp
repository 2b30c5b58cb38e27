#include "KestovaRecordings/internal/exports/decodedstreams.h"

namespace recordings
{
namespace
{
constexpr std::size_t cMostStreams = 256;

bool isImage(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage;
}
}  // namespace

tDecodedStreams::tStream::tStream(const tStreamKey& stream, const std::vector<utils::tSpokeLayout>& layouts)
    : key(stream), mayBeSpokes(!layouts.empty() && (isImage(stream.kind) || stream.kind == eOtherType)),
      mayBeSentences(!isImage(stream.kind)), spokes(layouts)
{}

tDecodedStreams::tDecodedStreams(std::vector<utils::tSpokeLayout> layouts, tDecodedSink& sink)
    : m_layouts(std::move(layouts)), m_sink(sink)
{}

// The stream of the message before is mostly that of the next one.
tDecodedStreams::tStream* tDecodedStreams::streamOf(const tPackageContents& package)
{
    const tReadWriteType kind = package.info.rwType;
    const tGroup group = std::uint64_t{kind} << 48 | std::uint64_t{package.ip} << 16 | package.port;
    if (m_stream != nullptr && m_group == group)
        return m_stream;
    auto found = m_streams.find(group);
    if (found == m_streams.end() && m_streams.size() >= cMostStreams)
        return nullptr;
    if (found == m_streams.end())
        found = m_streams.try_emplace(group, tStreamKey::of(kind, package.ip, package.port), m_layouts).first;
    m_group = group;
    return &found->second;
}

void tDecodedStreams::read(const tExportedPackage& package)
{
    m_stream = streamOf(package.contents);
    if (m_stream == nullptr)
        return;
    m_timeMs = package.timeMs;
    m_timeUs = package.timeUs;
    m_packageMs = package.contents.timeMs;
    m_isSpoke = false;
    if (m_stream->mayBeSpokes)
        m_stream->spokes.read(package.contents.payload, {m_timeMs, m_timeUs}, *this);
    if (m_stream->mayBeSentences && !m_isSpoke)
        m_stream->sentences.read(package.contents.payload, m_timeMs, *this);
    m_stream->lastUs = m_timeUs;
    m_stream->lastPackageMs = m_packageMs;
}

void tDecodedStreams::finish()
{
    for (auto& [group, stream] : m_streams)
    {
        m_stream = &stream;
        stream.spokes.finish(*this);
    }
    m_stream = nullptr;
}

// A spoke that was split may have ended with the message before.
void tDecodedStreams::onSpoke(const tSpoke& spoke, const tMessagePlace& place)
{
    m_isSpoke = true;
    const bool isBefore = place.number == m_stream->lastUs;
    m_sink.onSpoke(spoke,
                   {m_stream->key, place.timeMs, place.number, isBefore ? m_stream->lastPackageMs : m_packageMs});
}
}  // namespace recordings
