// The functions of cairo that draw pictures.
#ifndef KESTOVA_RECORDINGS_INTERNAL_CAIROFUNCTIONS_H
#define KESTOVA_RECORDINGS_INTERNAL_CAIROFUNCTIONS_H

#include <cairo/cairo.h>

#include "KestovaRecordings/internal/loadedfunction.h"

namespace recordings
{
inline constexpr tLoadedLibrary cCairo{{"libcairo.so.2", "libcairo.so"}, "drawing needs cairo: install libcairo2"};

// In this namespace the names are these, not those of the header: nothing is linked.
#define KESTOVA_LOADED(name) inline constinit const tLoadedFunction<cCairo, decltype(::name)> name(#name)
KESTOVA_LOADED(cairo_arc);
KESTOVA_LOADED(cairo_close_path);
KESTOVA_LOADED(cairo_create);
KESTOVA_LOADED(cairo_destroy);
KESTOVA_LOADED(cairo_font_options_create);
KESTOVA_LOADED(cairo_font_options_destroy);
KESTOVA_LOADED(cairo_font_options_set_antialias);
KESTOVA_LOADED(cairo_font_options_set_hint_metrics);
KESTOVA_LOADED(cairo_font_options_set_hint_style);
KESTOVA_LOADED(cairo_image_surface_create_for_data);
KESTOVA_LOADED(cairo_line_to);
KESTOVA_LOADED(cairo_move_to);
KESTOVA_LOADED(cairo_new_path);
KESTOVA_LOADED(cairo_select_font_face);
KESTOVA_LOADED(cairo_set_dash);
KESTOVA_LOADED(cairo_set_font_options);
KESTOVA_LOADED(cairo_set_font_size);
KESTOVA_LOADED(cairo_set_line_join);
KESTOVA_LOADED(cairo_set_line_width);
KESTOVA_LOADED(cairo_set_source_rgba);
KESTOVA_LOADED(cairo_show_text);
KESTOVA_LOADED(cairo_stroke);
KESTOVA_LOADED(cairo_surface_destroy);
KESTOVA_LOADED(cairo_surface_flush);
KESTOVA_LOADED(cairo_surface_mark_dirty);
KESTOVA_LOADED(cairo_surface_write_to_png_stream);
KESTOVA_LOADED(cairo_text_extents);
KESTOVA_LOADED(cairo_text_path);
#undef KESTOVA_LOADED
}  // namespace recordings

#endif
