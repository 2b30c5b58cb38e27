// tPolarImage: the echoes of one turn of the antenna, ring by ring.
#ifndef KESTOVA_RECORDINGS_POLARIMAGE_H
#define KESTOVA_RECORDINGS_POLARIMAGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace recordings
{
// Sectors follow one another clockwise and cover the whole turn; those where nothing was received are dark. Angles are
// in 1 / 2^32 of a turn, so that they wrap as they should.
struct tPolarImage
{
    std::vector<std::uint32_t> starts;  // of the sectors, rising, the first one 0
    std::size_t rings = 0;
    double firstM = 0, cellM = 0;      // near edge of the first ring, and width of a ring, in metres
    std::vector<unsigned char> cells;  // rings x sectors, 0 to 255

    std::size_t sectors() const { return starts.size(); }
    const unsigned char* ring(std::size_t i) const { return cells.data() + i * sectors(); }
};
}  // namespace recordings

#endif
