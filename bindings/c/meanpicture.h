// The picture of a turn in which a pixel is the mean of the cells that touch it.
#ifndef KESTOVA_C_MEANPICTURE_H
#define KESTOVA_C_MEANPICTURE_H

#include <cstddef>

#include "KestovaRecordings/polarimage.h"

namespace binding
{
// Writes size x size pixels as recordings::tScanConverter does, but for the mean in place of the brightest cell: each
// cell counts as much as any other. Takes 4 bytes for each cell of the image.
void drawMean(const recordings::tPolarImage& image, double rangeM, std::size_t size, unsigned char* pixels);
}  // namespace binding

#endif
