#include "KestovaRecordings/cat240translator.h"

#include <algorithm>
#include <cmath>
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

struct tAnything final : iCat240Sink
{
    void onVideo(const tCat240Video&) override { isSeen = true; }
    void onSummary(const tCat240Summary&) override { isSeen = true; }
    bool isSeen = false;
};
}  // namespace

class tCat240Translator::tPrivate
{
public:
    tPrivate(std::vector<utils::tSpokeLayout> layouts, std::uint8_t sac, std::uint8_t sic)
        : m_layouts(std::move(layouts))
    {
        m_video.sac = sac;
        m_video.sic = sic;
    }

    bool take(std::string_view message, const tMessagePlace& place, const tSend& send)
    {
        for (const utils::tSpokeLayout& layout : m_layouts)
        {
            if (layout.source == utils::eSpokeCat240)
            {
                tAnything found;
                readCat240(message, found);
                if (!found.isSeen)
                    continue;
                finish(send);
                send(message, place);
                return true;
            }
            if (!matches(layout, message))
                continue;
            const std::optional<tSpoke> spoke = readSpoke(layout, message);
            if (spoke)
                goOn(*spoke, widthOf(layout.sequence), place, send);
            return spoke.has_value();
        }
        return false;
    }

    void finish(const tSend& send)
    {
        if (m_isWaiting)
            sendWaiting(azimuthOf(m_from + m_width), send);
    }

    std::uint64_t spokes = 0, refused = 0, lengthless = 0;

private:
    void goOn(const tSpoke& spoke, unsigned sequenceBits, const tMessagePlace& place, const tSend& send)
    {
        const std::uint32_t number = m_numbers.next(spoke.sequence, sequenceBits, messagesFor(spoke.cells));
        const double width = distance(m_from, spoke.bearingFrom);
        const bool isNeighbour = m_numbers.isConsecutive() && width > 0 && width < cNeighbour;
        if (m_isWaiting && isNeighbour)
        {
            m_width = width;
            sendWaiting(azimuthOf(spoke.bearingFrom), send);
        }
        finish(send);
        if (m_width == 0)
            m_width = distance(spoke.bearingFrom, spoke.bearingTo);
        m_video.sequence = number;
        keep(spoke, place);
    }

    void keep(const tSpoke& spoke, const tMessagePlace& place)
    {
        m_isWaiting = true;
        m_from = spoke.bearingFrom;
        m_place = place;
        m_video.startAzimuth = azimuthOf(spoke.bearingFrom);
        m_video.cellM = spoke.cellM;
        m_video.startCell = spoke.cellM > 0 ? static_cast<std::uint32_t>(std::lround(spoke.firstCellM / spoke.cellM)) : 0;
        m_video.timeOfDay = timeOfDayAt(spoke.timeMs.value_or(place.timeMs));
        m_cells = spoke.cells;
        m_bytes.assign(spoke.cells.bytes, spoke.cells.bytes + spoke.cells.byteCount());
        m_cells.bytes = m_bytes.data();
    }

    void sendWaiting(std::uint16_t endAzimuth, const tSend& send)
    {
        m_isWaiting = false;
        m_video.endAzimuth = endAzimuth;
        const std::uint32_t most = cellsAMessage(m_cells.bits);
        for (std::uint32_t cell = 0; cell < m_cells.count; cell += most)
        {
            m_video.cells = m_cells;
            m_video.cells.bytes += std::size_t{cell} * m_cells.bits / 8;
            m_video.cells.count = std::min(most, m_cells.count - cell);
            m_datagram.clear();
            if (!appendCat240(m_video, m_datagram))
            {
                ++refused;
                return;
            }
            send(m_datagram, m_place);
            m_video.startCell += m_video.cells.count;
            ++m_video.sequence;
        }
        ++spokes;
        lengthless += m_video.cellM > 0 ? 0 : 1;
    }

    const std::vector<utils::tSpokeLayout> m_layouts;
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

tCat240Translator::tCat240Translator(std::vector<utils::tSpokeLayout> layouts, std::uint8_t sac, std::uint8_t sic)
    : d(std::make_unique<tPrivate>(std::move(layouts), sac, sic))
{}
tCat240Translator::~tCat240Translator() = default;
tCat240Translator::tCat240Translator(tCat240Translator&&) noexcept = default;
tCat240Translator& tCat240Translator::operator=(tCat240Translator&&) noexcept = default;

bool tCat240Translator::take(std::string_view message, const tMessagePlace& place, const tSend& send)
{
    return d->take(message, place, send);
}

void tCat240Translator::finish(const tSend& send)
{
    d->finish(send);
}

std::uint64_t tCat240Translator::spokes() const
{
    return d->spokes;
}

std::uint64_t tCat240Translator::refused() const
{
    return d->refused;
}

std::uint64_t tCat240Translator::lengthless() const
{
    return d->lengthless;
}
}  // namespace recordings
