#include "KestovaRecordings/spokereader.h"

#include <map>
#include <utility>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/layoutspokes.h"

namespace recordings
{
namespace
{
constexpr unsigned cSequenceBits = 32;
constexpr std::size_t cMostSources = 16;       // that share a group
constexpr std::uint32_t cMostCells = 1 << 20;  // of a spoke that was put together

double turns(std::uint16_t azimuth)
{
    return azimuth / 65536.0;
}

// A spoke of the public standard, until a message of another one comes.
class tSplitSpoke
{
public:
    bool isEmpty() const { return m_spoke.cells.count == 0; }
    const tMessagePlace& place() const { return m_place; }
    // Returns whether the message goes on where the spoke ended.
    bool isContinuedBy(const tCat240Video& video) const
    {
        return !isEmpty() && video.cells.count != 0 && video.sac == m_part.sac && video.sic == m_part.sic &&
               video.startAzimuth == m_part.startAzimuth && video.endAzimuth == m_part.endAzimuth &&
               video.cells.bits == m_part.cells.bits && video.cellM == m_part.cellM &&
               video.startCell == m_part.startCell + m_spoke.cells.count &&
               video.cells.count <= cMostCells - m_spoke.cells.count;
    }
    void begin(const tCat240Video& video, const tMessagePlace& place, utils::tBearingReference reference)
    {
        m_part = video;
        m_place = place;
        m_spoke = {};
        m_spoke.bearingFrom = turns(video.startAzimuth);
        m_spoke.bearingTo = turns(video.endAzimuth);
        m_spoke.reference = reference;
        m_spoke.cellM = video.cellM;
        m_spoke.firstCellM = video.startCell * video.cellM;
        m_spoke.sequence = video.sequence;
        if (video.timeOfDay)
            m_spoke.timeMs = timeOfDayNear(*video.timeOfDay, place.timeMs);
        m_spoke.cells = video.cells;
        m_bytes.assign(video.cells.bytes, video.cells.bytes + video.cells.byteCount());
    }
    void append(const tCat240Video& video, const tMessagePlace& place)
    {
        m_place = place;
        const std::size_t bits = std::size_t{m_spoke.cells.count} * video.cells.bits;
        if (bits % 8 == 0)
            m_bytes.insert(m_bytes.end(), video.cells.bytes, video.cells.bytes + video.cells.byteCount());
        else
            appendBits(video.cells, bits);
        m_spoke.cells.count += video.cells.count;
    }
    void passOn(iSpokeSink& sink)
    {
        if (isEmpty())
            return;
        m_spoke.cells.bytes = m_bytes.data();
        sink.onSpoke(m_spoke, m_place);
        m_spoke.cells.count = 0;
    }

private:
    void appendBits(const tCells& cells, std::size_t at)
    {
        m_bytes.resize((at + std::size_t{cells.count} * cells.bits + 7) / 8);
        m_bytes[at / 8] &= static_cast<unsigned char>(0xFF00u >> at % 8);
        for (std::size_t i = 0; i < cells.count; ++i, at += cells.bits)
            m_bytes[at / 8] |= static_cast<unsigned char>(cells.at(i) << (8 - cells.bits - at % 8));
    }

    tCat240Video m_part;
    tMessagePlace m_place;
    tSpoke m_spoke;
    std::vector<unsigned char> m_bytes;
};
}  // namespace

class tSpokeReader::tPrivate final : private iCat240Sink
{
public:
    explicit tPrivate(std::vector<utils::tSpokeLayout> layouts) : m_layouts(std::move(layouts)) {}

    void read(std::string_view message, const tMessagePlace& place, iSpokeSink& sink)
    {
        m_place = place;
        m_sink = &sink;
        for (const utils::tSpokeLayout& layout : m_layouts)
        {
            if (layout.source == utils::eSpokeCat240)
            {
                m_reference = layout.reference;
                m_isRead = false;
                if (readCat240(message, *this) || m_isRead)
                    return;
            }
            else if (matches(layout, message))
                return passOn(layout, message);
        }
    }
    void finish(iSpokeSink& sink)
    {
        for (auto& [source, split] : m_splits)
            split.passOn(sink);
    }
    const tMessagePlace* waiting() const
    {
        const tMessagePlace* first = nullptr;
        for (const auto& [source, split] : m_splits)
        {
            if (!split.isEmpty() && (first == nullptr || split.place().number < first->number))
                first = &split.place();
        }
        return first;
    }

private:
    void passOn(const utils::tSpokeLayout& layout, std::string_view message)
    {
        const std::optional<tSpoke> spoke = readSpoke(layout, message);
        if (const auto number = spoke ? spoke->sequence : sequenceIn(layout, message))
            m_sink->onSequence(*number, widthOf(layout.sequence));
        if (spoke)
            m_sink->onSpoke(*spoke, m_place);
    }
    void onDamagedVideo(const tCat240Video& video) override
    {
        m_isRead = true;
        m_sink->onSequence(video.sequence, cSequenceBits);
    }
    void onVideo(const tCat240Video& video) override
    {
        m_isRead = true;
        m_sink->onSequence(video.sequence, cSequenceBits);
        tSplitSpoke& split = splitOf(video.sac * 256u + video.sic);
        if (split.isContinuedBy(video))
            return split.append(video, m_place);
        split.passOn(*m_sink);
        if (video.compressed)
            m_sink->onCompressed();
        else if (video.cells.count != 0)
            split.begin(video, m_place, m_reference);
    }
    void onSummary(const tCat240Summary& summary) override
    {
        m_isRead = true;
        m_sink->onSummary(summary.text);
    }
    // Several sources may share a group; of too many each ends what another one began.
    tSplitSpoke& splitOf(unsigned source)
    {
        const auto known = m_splits.find(source);
        if (known != m_splits.end())
            return known->second;
        return m_splits.size() < cMostSources ? m_splits[source] : m_splits.begin()->second;
    }

    const std::vector<utils::tSpokeLayout> m_layouts;
    std::map<unsigned, tSplitSpoke> m_splits;  // by source
    bool m_isRead = false;                     // something of the message by the layout that is being tried
    tMessagePlace m_place;                     // of the message that is being read, for `m_sink`
    iSpokeSink* m_sink = nullptr;
    utils::tBearingReference m_reference = utils::eReferenceUnknown;
};

tSpokeReader::tSpokeReader(std::vector<utils::tSpokeLayout> layouts) : d(new tPrivate(std::move(layouts))) {}
tSpokeReader::~tSpokeReader() = default;
tSpokeReader::tSpokeReader(tSpokeReader&&) noexcept = default;
tSpokeReader& tSpokeReader::operator=(tSpokeReader&&) noexcept = default;

void tSpokeReader::read(std::string_view message, const tMessagePlace& place, iSpokeSink& sink)
{
    d->read(message, place, sink);
}

void tSpokeReader::finish(iSpokeSink& sink)
{
    d->finish(sink);
}

const tMessagePlace* tSpokeReader::waiting() const
{
    return d->waiting();
}
}  // namespace recordings
