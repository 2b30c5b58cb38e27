#include "KestovaRecordings/layoutspokes.h"

#include <algorithm>
#include <bit>

#include "KestovaStorage/datafileformat.h"
#include "common/byteorder.h"

namespace recordings
{
using utils::tSpokeField;
using utils::tSpokeLayout;

namespace
{
// Reads the numbers of one message; remembers whether one lay outside it.
class tFields
{
public:
    tFields(std::string_view message, bool bigEndian) : m_message(message), m_bigEndian(bigEndian) {}

    std::uint64_t whole(const tSpokeField& field)
    {
        if (!field.isField())
            return static_cast<std::uint64_t>(field.constant);
        if (field.at + std::size_t{field.width} > m_message.size())
        {
            m_complete = false;
            return 0;
        }
        return (stored(reinterpret_cast<const unsigned char*>(m_message.data()) + field.at, field.width) &
                field.mask) >>
               field.shift;
    }
    double number(const tSpokeField& field)
    {
        return field.isField() ? static_cast<double>(whole(field)) : field.constant;
    }
    bool complete() const { return m_complete; }

private:
    std::uint64_t stored(const unsigned char* at, unsigned width) const
    {
        if (width == 8)
            return m_bigEndian ? be::load<std::uint64_t>(at) : le::load<std::uint64_t>(at);
        if (!m_bigEndian)
            return le::loadPart(at, width);
        std::uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i)
            value = value << 8 | at[i];
        return value;
    }

    std::string_view m_message;
    bool m_bigEndian;
    bool m_complete = true;
};

tCells cellsIn(const tSpokeLayout& layout, std::string_view message, tFields& fields)
{
    tCells cells;
    cells.bits = layout.cellBits;
    cells.bigEndian = layout.bigEndian;
    if (layout.cellsAt >= message.size())
        return cells;
    const std::uint64_t room = (message.size() - layout.cellsAt) * 8 / layout.cellBits;
    const std::uint64_t wanted = layout.cellsToTheEnd ? room : fields.whole(layout.cellCount);
    if (wanted > room)
        return cells;
    cells.bytes = reinterpret_cast<const unsigned char*>(message.data()) + layout.cellsAt;
    cells.count = static_cast<std::uint32_t>(wanted);
    return cells;
}

std::optional<std::uint64_t> possibleTime(double ms)
{
    if (!(ms < static_cast<double>(storage::cTimeLimit)))
        return std::nullopt;
    return static_cast<std::uint64_t>(ms);
}

}  // namespace

bool matches(const tSpokeLayout& layout, std::string_view message)
{
    return std::all_of(layout.match.begin(), layout.match.end(), [&](const utils::tSpokeMatch& one) {
        return one.at <= message.size() && message.substr(one.at, one.bytes.size()) == one.bytes;
    });
}

std::optional<tSpoke> readSpoke(const tSpokeLayout& layout, std::string_view message)
{
    tFields fields(message, layout.bigEndian);
    tSpoke spoke;
    spoke.cells = cellsIn(layout, message, fields);
    const double azimuth = fields.number(layout.azimuth);
    const double perTurn = fields.number(layout.perTurn);
    const double range = fields.number(layout.range) * layout.rangeUnit;
    if (layout.sequence.isField())
        spoke.sequence = fields.whole(layout.sequence);
    if (layout.time.isField())
        spoke.timeMs = possibleTime(static_cast<double>(fields.whole(layout.time)) * layout.timeUnit);
    if (!fields.complete() || spoke.cells.count == 0 || !(azimuth < perTurn))
        return std::nullopt;
    spoke.reference = layout.reference;
    spoke.bearingFrom = azimuth / perTurn;
    spoke.bearingTo = azimuth + 1 < perTurn ? (azimuth + 1) / perTurn : 0;
    spoke.cellM = range / spoke.cells.count;
    return spoke;
}

std::optional<std::uint64_t> sequenceIn(const tSpokeLayout& layout, std::string_view message)
{
    tFields fields(message, layout.bigEndian);
    const std::uint64_t number = fields.whole(layout.sequence);
    return layout.sequence.isField() && fields.complete() ? std::optional(number) : std::nullopt;
}

unsigned widthOf(const tSpokeField& field)
{
    const std::uint64_t all = field.width == 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << 8 * field.width) - 1;
    return static_cast<unsigned>(std::bit_width((field.mask & all) >> field.shift));
}
}  // namespace recordings
