#include "KestovaRecordings/cat240translator.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/internal/messagenumbers.h"
#include "KestovaRecordings/layoutspokes.h"

namespace recordings
{
namespace
{
constexpr double cNeighbour = 0.02;  // of a turn, that the next spoke is away at most

// Of cells that one message holds: a multiple of 64, so that parts begin at whole bytes.
std::uint32_t cellsAMessage(std::uint8_t bits)
{
    const std::size_t written = bits == 12 ? 16 : bits == 24 ? 32 : bits;
    return static_cast<std::uint32_t>(cCat240LargestCells * 8 / written / 64 * 64);
}

std::uint32_t messagesFor(const tCells& cells)
{
    const std::uint32_t most = cellsAMessage(cells.bits);
    return (cells.count + most - 1) / most;
}

std::uint16_t azimuthOf(double turns)
{
    return static_cast<std::uint16_t>(std::lround((turns - std::floor(turns)) * 65536));
}

double distance(double fromTurns, double toTurns)
{
    const double turns = toTurns - fromTurns;
    return turns - std::floor(turns);
}

// The spokes of one group.
class tStream
{
public:
    tStream(std::uint8_t sic, tCat240Tally& tally) : m_tally(tally) { m_video.sic = sic; }

    void take(const tSpoke& spoke, unsigned sequenceBits, const tMessagePlace& place,
              const tCat240Translator::tSend& send)
    {
        const std::uint32_t number = m_numbers.next(spoke.sequence, sequenceBits, messagesFor(spoke.cells));
        const double width = distance(m_from, spoke.bearingFrom);
        if (m_isWaiting && m_numbers.isConsecutive() && width > 0 && width < cNeighbour)
        {
            m_width = width;
            sendWaiting(azimuthOf(spoke.bearingFrom), send);
        }
        finish(send);
        if (m_width == 0)
            m_width = distance(spoke.bearingFrom, spoke.bearingTo);
        keep(spoke, place);
        m_video.sequence = number;
    }
    void finish(const tCat240Translator::tSend& send)
    {
        if (m_isWaiting)
            sendWaiting(azimuthOf(m_from + m_width), send);
    }

private:
    void keep(const tSpoke& spoke, const tMessagePlace& place)
    {
        m_isWaiting = true;
        m_from = spoke.bearingFrom;
        m_place = place;
        m_video.startAzimuth = azimuthOf(spoke.bearingFrom);
        m_video.cellM = spoke.cellM;
        m_video.startCell = 0;
        m_video.timeOfDay = timeOfDayAt(spoke.timeMs.value_or(place.timeMs));
        m_bytes.assign(spoke.cells.bytes, spoke.cells.bytes + spoke.cells.byteCount());
        m_cells = spoke.cells;
        m_cells.bytes = m_bytes.data();
    }
    void sendWaiting(std::uint16_t endAzimuth, const tCat240Translator::tSend& send)
    {
        m_isWaiting = false;
        m_video.endAzimuth = endAzimuth;
        const std::uint32_t most = cellsAMessage(m_cells.bits);
        for (std::uint32_t cell = 0; cell < m_cells.count; cell += most)
        {
            m_video.startCell = cell;
            m_video.cells = m_cells;
            m_video.cells.bytes += std::size_t{cell} * m_cells.bits / 8;
            m_video.cells.count = std::min(most, m_cells.count - cell);
            m_datagram.clear();
            if (!appendCat240(m_video, m_datagram))
            {
                ++m_tally.refused;
                return;
            }
            send(m_datagram, m_place);
            ++m_video.sequence;
        }
        m_tally.lengthless += m_video.cellM > 0 ? 0 : 1;
    }

    tCat240Tally& m_tally;
    tMessageNumbers m_numbers;
    bool m_isWaiting = false;  // the spoke in what follows
    double m_from = 0;
    double m_width = 0;  // of the last spoke whose next one came, in turns
    tMessagePlace m_place;
    tCat240Video m_video;  // without its cells
    tCells m_cells;        // in m_bytes
    std::vector<unsigned char> m_bytes;
    std::string m_datagram;
};

struct tAnything final : iCat240Sink
{
    void onVideo(const tCat240Video&) override { isSeen = true; }
    void onSummary(const tCat240Summary&) override { isSeen = true; }
    bool isSeen = false;
};

bool isCat240(std::string_view message)
{
    tAnything found;
    readCat240(message, found);
    return found.isSeen;
}

// Images, and what was recorded by its group alone.
bool mayHoldSpokes(const tUdpMsgInfo& info)
{
    return info.rwType == eImageStream || info.rwType == eOriginalImage ||
           (info.rwType == eOtherType && info.type == eReadType);
}
}  // namespace

class tCat240Translator::tPrivate
{
public:
    explicit tPrivate(std::vector<utils::tSpokeLayout> layouts) : m_layouts(std::move(layouts)) {}

    bool take(const tPackageContents& message, const tMessagePlace& place, const tSend& send)
    {
        if (!mayHoldSpokes(message.info))
            return false;
        for (const utils::tSpokeLayout& layout : m_layouts)
        {
            if (layout.source != utils::eSpokeCat240 && matches(layout, message.payload))
                return takeSpoke(layout, message, place, send);
            if (layout.source == utils::eSpokeCat240 && isCat240(message.payload))
            {
                send(message.payload, place);
                return true;
            }
        }
        return false;
    }
    void finish(const tSend& send)
    {
        for (auto& [group, stream] : m_streams)
            stream.finish(send);
    }

    tCat240Tally tally;

private:
    static constexpr std::size_t cMostStreams = 255;  // that a SIC can name

    bool takeSpoke(const utils::tSpokeLayout& layout, const tPackageContents& message, const tMessagePlace& place,
                   const tSend& send)
    {
        const std::optional<tSpoke> spoke = readSpoke(layout, message.payload);
        if (!spoke)
            return false;
        const std::pair group(message.ip, message.port);
        auto stream = m_streams.find(group);
        if (stream == m_streams.end() && m_streams.size() == cMostStreams)
            return false;
        if (stream == m_streams.end())
            stream = m_streams.try_emplace(group, static_cast<std::uint8_t>(m_streams.size() + 1), tally).first;
        stream->second.take(*spoke, widthOf(layout.sequence), place, send);
        return true;
    }

    const std::vector<utils::tSpokeLayout> m_layouts;
    std::map<std::pair<std::uint32_t, std::uint16_t>, tStream> m_streams;  // by group
};

tCat240Translator::tCat240Translator(std::vector<utils::tSpokeLayout> layouts)
    : d(std::make_unique<tPrivate>(std::move(layouts)))
{}
tCat240Translator::~tCat240Translator() = default;

bool tCat240Translator::take(const tPackageContents& message, const tMessagePlace& place, const tSend& send)
{
    return d->take(message, place, send);
}

void tCat240Translator::finish(const tSend& send)
{
    d->finish(send);
}

tCat240Tally tCat240Translator::tally() const
{
    return d->tally;
}
}  // namespace recordings
