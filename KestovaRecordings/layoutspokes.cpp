#include "KestovaRecordings/layoutspokes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

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
        return (stored(field) & field.mask) >> field.shift;
    }
    double number(const tSpokeField& field)
    {
        return field.isField() ? static_cast<double>(whole(field)) : field.constant;
    }
    bool complete() const { return m_complete; }

private:
    // Loads eight bytes where the message has them: one load is faster than as many as the field is wide.
    std::uint64_t stored(const tSpokeField& field) const
    {
        const auto* const at = reinterpret_cast<const unsigned char*>(m_message.data()) + field.at;
        const unsigned unused = 64 - 8 * unsigned{field.width};
        if (m_message.size() - field.at >= sizeof(std::uint64_t))
            return m_bigEndian ? be::load<std::uint64_t>(at) >> unused
                               : le::load<std::uint64_t>(at) & ~std::uint64_t{0} >> unused;
        if (!m_bigEndian)
            return le::loadPart(at, field.width);
        std::uint64_t value = 0;
        for (unsigned i = 0; i < field.width; ++i)
            value = value << 8 | at[i];
        return value;
    }

    std::string_view m_message;
    bool m_bigEndian;
    bool m_complete = true;
};

void setCells(tCells& cells, const tSpokeLayout& layout, std::string_view message, tFields& fields)
{
    cells.bits = layout.cellBits;
    cells.bigEndian = layout.bigEndian;
    if (layout.cellsAt >= message.size())
        return;
    const std::uint64_t bits = (message.size() - layout.cellsAt) * 8;
    const std::uint64_t wanted = layout.cellsToTheEnd ? bits / layout.cellBits : fields.whole(layout.cellCount);
    if (wanted > bits || wanted * layout.cellBits > bits)
        return;
    cells.bytes = reinterpret_cast<const unsigned char*>(message.data()) + layout.cellsAt;
    cells.count = static_cast<std::uint32_t>(wanted);
}

// In whole numbers where the unit is a part of a ms: the product would not be exact.
void setTime(std::optional<std::uint64_t>& time, std::uint64_t number, double unitMs)
{
    const double ms = static_cast<double>(number) * unitMs;
    if (ms < static_cast<double>(storage::cTimeLimit))
        time.emplace(unitMs < 1 ? number / static_cast<std::uint64_t>(std::lround(1 / unitMs))
                                : static_cast<std::uint64_t>(ms));
}
}  // namespace

bool matches(const tSpokeLayout& layout, std::string_view message)
{
    return std::all_of(layout.match.begin(), layout.match.end(), [&](const utils::tSpokeMatch& one) {
        const std::size_t size = one.bytes.size();
        if (one.at > message.size() || message.size() - one.at < size)
            return false;
        const char* const at = message.data() + one.at;
        const char* const wanted = one.bytes.data();
        if (size == sizeof(std::uint32_t))  // as most have it
            return le::load<std::uint32_t>(at) == le::load<std::uint32_t>(wanted);
        return std::memcmp(at, wanted, size) == 0;
    });
}

// The spoke is made where the caller gets it: copying it just after its parts were written costs as much as the rest.
std::optional<tSpoke> readSpoke(const tSpokeLayout& layout, std::string_view message)
{
    tFields fields(message, layout.bigEndian);
    std::optional<tSpoke> made(std::in_place);
    tSpoke& spoke = *made;
    setCells(spoke.cells, layout, message, fields);
    const double azimuth = fields.number(layout.azimuth);
    const double perTurn = fields.number(layout.perTurn);
    const double range = fields.number(layout.range) * layout.rangeUnit;
    if (layout.sequence.isField())
        spoke.sequence.emplace(fields.whole(layout.sequence));
    if (layout.time.isField())
        setTime(spoke.timeMs, fields.whole(layout.time), layout.timeUnit);
    if (!fields.complete() || spoke.cells.count == 0 || !(azimuth < perTurn))
    {
        made.reset();
        return made;
    }
    spoke.reference = layout.reference;
    spoke.bearingFrom = azimuth / perTurn;
    spoke.bearingTo = azimuth + 1 < perTurn ? (azimuth + 1) / perTurn : 0;
    spoke.cellM = range / spoke.cells.count;
    return made;
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
