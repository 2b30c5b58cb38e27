// tScanConverter: from the rings of a turn to the pixels of a square picture.
#ifndef KESTOVA_RECORDINGS_SCANCONVERTER_H
#define KESTOVA_RECORDINGS_SCANCONVERTER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "KestovaRecordings/polarimage.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// A pixel shows the brightest of the cells that touch it: no target is lost, however small, and none appears where no
// part of it is. Own ship is in the middle of the picture, bearing 0 points up, and the range's circle touches the
// edges; what is outside the circle is dark. One thread at a time.
class KESTOVA_API tScanConverter
{
public:
    // `size` is that of the picture's sides in pixels, 1 to 16,384. Keeps some 2 bytes for each of its pixels.
    explicit tScanConverter(std::size_t size);

    std::size_t size() const { return m_size; }
    // Writes size() x size() pixels, 0 to 255, row by row from the top. `rangeM` is that of the picture, above 0.
    void convert(const tPolarImage& image, double rangeM, unsigned char* pixels);

private:
    // What a pixel covers, seen from the middle: distances in pixels, bearings from the nearest axis. Pixels of one
    // eighth of the picture are enough: the others are its reflections.
    struct tFootprint
    {
        float near, far;
        std::uint32_t left, right;  // in 1 / 2^32 of a turn; left is negative on the axis
    };
    struct tRings
    {
        std::uint16_t first, end;
    };

    void measure();
    void chooseRings(const tPolarImage& image, double rangeM);
    void indexSectors(const tPolarImage& image);
    std::uint32_t sectorAt(std::uint32_t angle, const std::vector<std::uint32_t>& starts) const;
    unsigned char brightest(const tPolarImage& image, std::size_t eighth, std::uint32_t left,
                            std::uint32_t right) const;

    std::size_t m_size;
    std::vector<tFootprint> m_footprints;
    std::vector<tRings> m_rings;            // of the footprints, for the picture that is being made
    std::vector<std::uint32_t> m_sectorAt;  // the sector where each bin of angles begins
    unsigned m_binShift = 0;                // from an angle to its bin
};
}  // namespace recordings

#endif
