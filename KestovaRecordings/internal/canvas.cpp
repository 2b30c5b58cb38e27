#include "KestovaRecordings/internal/canvas.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace recordings
{
namespace
{
// A size at which letters are drawn without blur: whole pixels.
double fontSizeFor(double size)
{
    return std::round(std::clamp(size / 60, 9.0, 48.0));
}

cairo_status_t append(void* to, const unsigned char* bytes, unsigned len)
{
    static_cast<std::string*>(to)->append(reinterpret_cast<const char*>(bytes), len);
    return CAIRO_STATUS_SUCCESS;
}
}  // namespace

tCanvas::tCanvas(std::uint32_t* pixels, std::size_t size)
    : m_size(static_cast<double>(size)), m_fontSize(fontSizeFor(m_size)),
      m_surface(cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(pixels), CAIRO_FORMAT_RGB24,
                                                    static_cast<int>(size), static_cast<int>(size),
                                                    static_cast<int>(size * sizeof(std::uint32_t)))),
      m_context(cairo_create(m_surface.get()))
{
    cairo_t* const context = m_context.get();
    cairo_select_font_face(context, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context, m_fontSize);
    cairo_font_options_t* const options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_SLIGHT);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_ON);
    cairo_set_font_options(context, options);
    cairo_font_options_destroy(options);
}

void tCanvas::setColour(std::uint32_t colour, double opacity)
{
    cairo_set_source_rgba(m_context.get(), (colour >> 16 & 0xFF) / 255.0, (colour >> 8 & 0xFF) / 255.0,
                          (colour & 0xFF) / 255.0, opacity);
}

void tCanvas::line(double fromX, double fromY, double toX, double toY)
{
    cairo_move_to(m_context.get(), fromX, fromY);
    cairo_line_to(m_context.get(), toX, toY);
    cairo_stroke(m_context.get());
}

void tCanvas::dashedLine(double fromX, double fromY, double toX, double toY)
{
    const double dashes[] = {m_fontSize / 4, m_fontSize / 4};
    cairo_set_dash(m_context.get(), dashes, 2, 0);
    line(fromX, fromY, toX, toY);
    cairo_set_dash(m_context.get(), nullptr, 0, 0);
}

void tCanvas::circle(double x, double y, double radius)
{
    cairo_new_path(m_context.get());
    cairo_arc(m_context.get(), x, y, radius, 0, 2 * std::numbers::pi);
    cairo_stroke(m_context.get());
}

void tCanvas::triangle(double x, double y, double radius, double angle)
{
    cairo_t* const context = m_context.get();
    const auto corner = [&](double turned, double away) {
        cairo_line_to(context, x + away * std::sin(angle + turned), y - away * std::cos(angle + turned));
    };
    constexpr double cStern = 2.5;
    cairo_new_path(context);
    corner(0, radius * 1.3);
    corner(cStern, radius);
    corner(-cStern, radius);
    cairo_close_path(context);
    cairo_stroke(context);
}

void tCanvas::label(double x, double y, const std::string& text, std::uint32_t colour, std::uint32_t edge)
{
    cairo_t* const context = m_context.get();
    cairo_move_to(context, std::round(x), std::round(y));
    cairo_text_path(context, text.c_str());
    setColour(edge, 0.7);
    cairo_set_line_join(context, CAIRO_LINE_JOIN_ROUND);
    setWidth(m_fontSize / 5);
    cairo_stroke(context);
    cairo_move_to(context, std::round(x), std::round(y));
    setColour(colour);
    cairo_show_text(context, text.c_str());
}

void tCanvas::cornerText(eCorner corner, int line, const std::string& text, std::uint32_t colour)
{
    const bool isRight = corner == eCorner::eUpperRight || corner == eCorner::eLowerRight;
    const bool isLow = corner == eCorner::eLowerLeft || corner == eCorner::eLowerRight;
    cairo_text_extents_t extents;
    cairo_text_extents(m_context.get(), text.c_str(), &extents);
    const double margin = std::round(m_fontSize / 2), height = std::round(m_fontSize * 1.35);
    const double x = isRight ? m_size - margin - std::ceil(extents.x_advance) : margin;
    const double y = isLow ? m_size - margin - line * height : margin + std::round(m_fontSize * 0.8) + line * height;
    setColour(colour);
    cairo_move_to(m_context.get(), x, y);
    cairo_show_text(m_context.get(), text.c_str());
}

std::string tCanvas::png() const
{
    std::string bytes;
    const cairo_status_t status = cairo_surface_write_to_png_stream(m_surface.get(), append, &bytes);
    return status == CAIRO_STATUS_SUCCESS ? bytes : std::string();
}
}  // namespace recordings
