#include <algorithm>
#include <cmath>
#include <optional>

#include "KestovaRecordings/scanconverter.h"
#include "KestovaRecordings/turn.h"
#include "bindings/c/guard.h"
#include "bindings/c/meanpicture.h"
#include "bindings/c/sweep.h"

namespace
{
constexpr std::uint32_t cMostPixels = 16'384;

enum eHow
{
    eBrightest,
    eMean
};

recordings::tTurn turnOf(const kestova_sweep& sweep, bool northUp)
{
    const kestova_sweep_view view = sweep.view();
    if (view.data == nullptr)
        throw binding::tError(KESTOVA_ARGUMENT, "the sweep has no cells");
    const bool isTurned = northUp && view.reference == utils::eReferenceBow;
    const std::vector<double> headings = isTurned ? sweep.headings() : std::vector<double>();
    recordings::tTurn turn;
    std::vector<unsigned char> grey(view.cells);
    double turned = 0;
    for (std::uint32_t i = 0; i < view.spokes; ++i)
    {
        sweep.greyOf(i, grey.data());
        recordings::tSpoke spoke;
        spoke.bearingFrom = view.bearing[i];
        spoke.bearingTo = view.bearing_to[i];
        spoke.firstCellM = static_cast<double>(view.first_cell_m[i]);
        spoke.cellM = static_cast<double>(view.cell_m[i]);
        spoke.cells = {grey.data(), view.cell_count[i], 8, false};
        turned = headings.empty() ? 0 : headings[i];
        turn.add(spoke, turned, static_cast<std::uint64_t>(view.time_ms[i]));
    }
    if (sweep.endBearing >= 0)
        turn.endAt(sweep.endBearing + turned);
    return turn;
}

// The tables of a converter are kept for pictures of the same size that follow on this thread.
recordings::tScanConverter& converterFor(std::size_t size)
{
    thread_local std::optional<recordings::tScanConverter> t_converter;
    if (!t_converter || t_converter->size() != size)
        t_converter.emplace(size);
    return *t_converter;
}

void draw(const kestova_sweep& sweep, std::size_t size, double rangeM, eHow how, bool northUp, unsigned char* pixels)
{
    const recordings::tTurn turn = turnOf(sweep, northUp);
    const recordings::tPolarImage image = turn.image();
    const double own = turn.rangeM() > 0 ? turn.rangeM() : 1;  // as the image takes it
    const double range = rangeM > 0 ? rangeM : own;
    if (how == eMean)
        binding::drawMean(image, range, size, pixels);
    else
        converterFor(size).convert(image, range, pixels);
}
}  // namespace

kestova_result kestova_sweep_cartesian(const kestova_sweep* sweep, uint32_t size_px, double range_m, int how,
                                       int north_up, uint8_t* grey, size_t stride)
{
    return binding::guarded([&] {
        binding::require(sweep, "sweep");
        binding::require(grey, "grey");
        if (size_px == 0 || size_px > cMostPixels)
            throw binding::tError(KESTOVA_ARGUMENT, "size_px is not 1 to 16384");
        if (stride < size_px)
            throw binding::tError(KESTOVA_ARGUMENT, "stride is less than size_px");
        if (!(range_m >= 0) || !std::isfinite(range_m))
            throw binding::tError(KESTOVA_ARGUMENT, "range_m is no distance");
        if (how != eBrightest && how != eMean)
            throw binding::tError(KESTOVA_ARGUMENT, "how is neither 0 nor 1");
        std::vector<unsigned char> pixels(stride != size_px ? std::size_t{size_px} * size_px : 0);
        unsigned char* const to = pixels.empty() ? grey : pixels.data();
        draw(*sweep, size_px, range_m, static_cast<eHow>(how), north_up != 0, to);
        for (std::size_t row = 0; row < size_px && !pixels.empty(); ++row)
            std::copy_n(pixels.data() + row * size_px, size_px, grey + row * stride);
        return KESTOVA_OK;
    });
}
