// tCanvas: lines, marks and text on the pixels of a picture.
//
// Shapes   places in pixels from the upper left corner.
// Owner    the pixels are the caller's.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_CANVAS_H
#define KESTOVA_RECORDINGS_INTERNAL_CANVAS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "KestovaRecordings/internal/cairofunctions.h"

namespace recordings
{
enum class eCorner
{
    eUpperLeft,
    eUpperRight,
    eLowerLeft,
    eLowerRight
};

class tCanvas
{
public:
    // `pixels` are size x size, 32 bits each.
    tCanvas(std::uint32_t* pixels, std::size_t size);

    void beginPixels() { cairo_surface_flush(m_surface.get()); }     // before the caller changes pixels
    void endPixels() { cairo_surface_mark_dirty(m_surface.get()); }  // and after that

    double fontSize() const { return m_fontSize; }
    void setColour(std::uint32_t colour, double opacity = 1);
    void setWidth(double width) { cairo_set_line_width(m_context.get(), width); }
    void line(double fromX, double fromY, double toX, double toY);
    void dashedLine(double fromX, double fromY, double toX, double toY);
    void circle(double x, double y, double radius);
    // A narrow triangle whose point looks `angle` clockwise from the top, in radians.
    void triangle(double x, double y, double radius, double angle);
    // Text that begins at a place, with an edge in another colour that keeps it legible on echoes.
    void label(double x, double y, const std::string& text, std::uint32_t colour, std::uint32_t edge);
    // A line of text in a corner, the first one at the edge of the picture.
    void cornerText(eCorner corner, int line, const std::string& text, std::uint32_t colour);

    // Returns the bytes of a PNG file; nothing if memory runs out.
    std::string png() const;

private:
    struct tRelease
    {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const { cairo_destroy(context); }
    };

    const double m_size;
    double m_fontSize;
    std::unique_ptr<cairo_surface_t, tRelease> m_surface;
    std::unique_ptr<cairo_t, tRelease> m_context;
};
}  // namespace recordings

#endif
