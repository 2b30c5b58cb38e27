#include "KestovaRecordings/picture.h"

#include <algorithm>
#include <cairo/cairo.h>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <numbers>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/palette.h"
#include "KestovaRecordings/scanconverter.h"

namespace recordings
{
namespace
{
constexpr std::size_t cSmallest = 64, cLargest = 8192;
constexpr double cMetresPerNm = 1852, cDegreesPerTurn = 360, cEarthRadiusM = 6'371'008.8;
constexpr double cVectorHours = 0.1;  // a target's vector is where it will be in 6 minutes

struct tRelease
{
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using tSurface = std::unique_ptr<cairo_surface_t, tRelease>;
using tContext = std::unique_ptr<cairo_t, tRelease>;

double radians(double degrees)
{
    return degrees * std::numbers::pi / 180;
}

void setColour(cairo_t* context, std::uint32_t colour)
{
    cairo_set_source_rgb(context, (colour >> 16 & 0xFF) / 255.0, (colour >> 8 & 0xFF) / 255.0, (colour & 0xFF) / 255.0);
}

// A range as sailors say it.
std::string rangeText(double metres)
{
    const double miles = metres / cMetresPerNm;
    return miles >= 0.1 ? fmt::format("{:.3g} NM", miles) : fmt::format("{:.0f} m", metres);
}

// Where a target is, clockwise from north or from the bow, and how far.
struct tBearing
{
    double degrees, metres;
    bool fromNorth;
};

std::optional<tBearing> bearingOf(const tTarget& target, const tOwnShip& own)
{
    if (target.distanceNm && target.bearingDeg && target.bearingReference != utils::eReferenceUnknown)
        return tBearing{*target.bearingDeg, *target.distanceNm * cMetresPerNm,
                        target.bearingReference == utils::eReferenceNorth};
    if (!target.position || !own.position.value)
        return std::nullopt;
    const tGeoPoint &there = *target.position, &here = *own.position.value;
    const double north = radians(there.latitudeDeg - here.latitudeDeg) * cEarthRadiusM;
    double turned = there.longitudeDeg - here.longitudeDeg;
    turned -= cDegreesPerTurn * std::round(turned / cDegreesPerTurn);
    const double east = radians(turned) * cEarthRadiusM * std::cos(radians(here.latitudeDeg));
    return tBearing{std::atan2(east, north) * 180 / std::numbers::pi, std::hypot(east, north), true};
}
}  // namespace

std::optional<ePalette> paletteNamed(const std::string& name)
{
    constexpr std::pair<const char*, ePalette> cNames[] = {
        {"day", ePalette::eDay}, {"dusk", ePalette::eDusk}, {"night", ePalette::eNight}, {"grey", ePalette::eGrey}};
    for (const auto& [known, palette] : cNames)
    {
        if (name == known)
            return palette;
    }
    return std::nullopt;
}

class tPicture::tPrivate
{
public:
    explicit tPrivate(const tPictureOptions& options)
        : m_options(options), m_size(std::clamp(options.size, cSmallest, cLargest)), m_converter(m_size),
          m_colours(coloursOf(options.palette)), m_levels(m_size * m_size), m_pixels(m_size * m_size)
    {
        m_surface.reset(cairo_image_surface_create_for_data(
            reinterpret_cast<unsigned char*>(m_pixels.data()), CAIRO_FORMAT_RGB24, static_cast<int>(m_size),
            static_cast<int>(m_size), static_cast<int>(m_size * sizeof(std::uint32_t))));
        m_context.reset(cairo_create(m_surface.get()));
        cairo_select_font_face(m_context.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        m_fontSize = std::clamp(static_cast<double>(m_size) / 56, 9.0, 40.0);
        cairo_set_font_size(m_context.get(), m_fontSize);
    }

    void draw(const tTurn& turn, const tPictureFacts& facts)
    {
        m_facts = &facts;
        m_rangeM = m_options.rangeM > 0 ? m_options.rangeM : turn.rangeM();
        const bool knowsRange = m_rangeM > 0;
        m_rangeM = knowsRange ? m_rangeM : 1;  // of cells without a length, as tTurn takes them
        m_converter.convert(turn.image(), m_rangeM, m_levels.data());
        cairo_surface_flush(m_surface.get());
        colour();
        cairo_surface_mark_dirty(m_surface.get());
        if (m_options.rings)
            drawRings(knowsRange);
        if (m_options.targets && knowsRange)
            drawTargets();
        drawCorners(turn, knowsRange);
        cairo_surface_flush(m_surface.get());
    }

    std::size_t size() const { return m_size; }
    const std::uint32_t* pixels() const { return m_pixels.data(); }

    void writePng(const std::string& path) const
    {
        const std::string part = path + ".part";
        const cairo_status_t status = cairo_surface_write_to_png(m_surface.get(), part.c_str());
        std::string reason = status != CAIRO_STATUS_SUCCESS ? cairo_status_to_string(status) : "";
        if (reason.empty() && std::rename(part.c_str(), path.c_str()) != 0)
            reason = std::strerror(errno);
        if (reason.empty())
            return;
        std::remove(part.c_str());
        throw tFailure(fmt::format("{} cannot be written: {}", path, reason));
    }

private:
    double middle() const { return static_cast<double>(m_size) / 2; }

    void colour()
    {
        const double edge = middle() * middle();
        for (std::size_t row = 0; row < m_size; ++row)
        {
            const double y = static_cast<double>(row) + 0.5 - middle();
            const double across = std::sqrt(std::max(edge - y * y, 0.0));
            const auto first = static_cast<std::size_t>(middle() - across), end = m_size - first;
            for (std::size_t i = row * m_size; i < (row + 1) * m_size; ++i)
            {
                const std::size_t column = i - row * m_size;
                const bool inside = (column >= first && column < end) || m_levels[i] != 0;
                m_pixels[i] = inside ? m_colours.echoes[m_levels[i]] : m_colours.outside;
            }
        }
    }

    // From where bearings of the picture count: own ship's heading, if the picture's up is the bow.
    double upDeg(bool fromNorth) const
    {
        if (fromNorth == m_options.northUp)
            return 0;
        const double heading = m_facts->headingDeg.value_or(0);
        return fromNorth ? heading : -heading;
    }

    void drawRings(bool knowsRange)
    {
        cairo_t* const context = m_context.get();
        setColour(context, m_colours.marks);
        cairo_set_line_width(context, 1);
        constexpr int cRings = 4;
        for (int ring = 1; ring <= cRings; ++ring)
        {
            const double radius = (middle() - 0.5) * ring / cRings;
            cairo_new_sub_path(context);
            cairo_arc(context, middle(), middle(), radius, 0, 2 * std::numbers::pi);
            cairo_stroke(context);
        }
        if (knowsRange)
            drawText(fmt::format("rings {}", rangeText(m_rangeM / cRings)), false, true, 1);
        const bool knowsBow = !m_options.northUp || m_facts->headingDeg;
        if (!knowsBow)
            return;
        const double bow = radians(m_options.northUp ? *m_facts->headingDeg : 0);
        cairo_move_to(context, middle(), middle());
        cairo_line_to(context, middle() + middle() * std::sin(bow), middle() - middle() * std::cos(bow));
        cairo_stroke(context);
    }

    void drawTargets()
    {
        cairo_t* const context = m_context.get();
        setColour(context, m_colours.targets);
        cairo_set_line_width(context, 1.5);
        for (const tTarget& target : m_facts->targets)
        {
            const auto where = bearingOf(target, m_facts->own);
            if (!where || where->metres > m_rangeM || (where->fromNorth != m_options.northUp && !m_facts->headingDeg))
                continue;
            const double angle = radians(where->degrees - upDeg(where->fromNorth));
            const double distance = where->metres / m_rangeM * middle();
            drawTarget(target, middle() + distance * std::sin(angle), middle() - distance * std::cos(angle));
        }
    }

    void drawTarget(const tTarget& target, double x, double y)
    {
        cairo_t* const context = m_context.get();
        const double radius = m_fontSize / 2;
        cairo_new_sub_path(context);
        if (target.isAis)
        {
            cairo_move_to(context, x, y - radius);
            cairo_line_to(context, x + radius * 0.8, y + radius);
            cairo_line_to(context, x - radius * 0.8, y + radius);
            cairo_close_path(context);
        }
        else
            cairo_arc(context, x, y, radius, 0, 2 * std::numbers::pi);
        cairo_stroke(context);
        if (target.courseDeg && target.speedKn && (m_options.northUp || m_facts->headingDeg))
        {
            const double angle = radians(*target.courseDeg - upDeg(true));
            const double length = *target.speedKn * cVectorHours * cMetresPerNm / m_rangeM * middle();
            cairo_move_to(context, x, y);
            cairo_line_to(context, x + length * std::sin(angle), y - length * std::cos(angle));
            cairo_stroke(context);
        }
        cairo_move_to(context, x + radius * 1.3, y - radius);
        const std::string label = target.name.empty() ? std::to_string(target.number) : target.name;
        cairo_show_text(context, label.c_str());
    }

    // A line of text in a corner, `line` lines from its edge.
    void drawText(const std::string& text, bool right, bool bottom, int line)
    {
        cairo_t* const context = m_context.get();
        setColour(context, m_colours.text);
        cairo_text_extents_t extents;
        cairo_text_extents(context, text.c_str(), &extents);
        const double margin = m_fontSize / 2, height = m_fontSize * 1.3;
        const double x = right ? static_cast<double>(m_size) - margin - extents.x_advance : margin;
        const double y = bottom ? static_cast<double>(m_size) - margin - line * height : margin + (line + 0.8) * height;
        cairo_move_to(context, x, y);
        cairo_show_text(context, text.c_str());
        setColour(context, m_colours.marks);
    }

    void drawCorners(const tTurn& turn, bool knowsRange)
    {
        drawText(m_facts->timeText, false, false, 0);
        drawText(knowsRange ? rangeText(m_rangeM) : "range unknown", true, false, 0);
        drawText(m_options.northUp ? "north up" : "head up", true, false, 1);
        if (turn.covered() < 0.999)
            drawText(fmt::format("{:.0f} of 360\u00B0", turn.covered() * cDegreesPerTurn), false, true, 0);
        if (m_facts->missing != 0)
            drawText(fmt::format("{} spokes missing", m_facts->missing), true, true, 0);
        if (!m_facts->remark.empty())
            drawText(m_facts->remark, true, true, 1);
    }

    const tPictureOptions m_options;
    const std::size_t m_size;
    tScanConverter m_converter;
    const tColours m_colours;
    std::vector<unsigned char> m_levels;
    std::vector<std::uint32_t> m_pixels;
    tSurface m_surface;  // over m_pixels
    tContext m_context;
    double m_fontSize = 0;
    const tPictureFacts* m_facts = nullptr;  // of the picture that is being drawn
    double m_rangeM = 1;
};

tPicture::tPicture(const tPictureOptions& options) : d(new tPrivate(options)) {}
tPicture::~tPicture() = default;

void tPicture::draw(const tTurn& turn, const tPictureFacts& facts)
{
    d->draw(turn, facts);
}

std::size_t tPicture::size() const
{
    return d->size();
}

const std::uint32_t* tPicture::pixels() const
{
    return d->pixels();
}

void tPicture::writePng(const std::string& path) const
{
    d->writePng(path);
}
}  // namespace recordings
