// Spokes of the simulated radar, as the benchmarks of the codec take them.
#ifndef KESTOVA_BENCH_SIMULATEDSPOKES_H
#define KESTOVA_BENCH_SIMULATEDSPOKES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "sessions/simulate/scene.h"
#include "sessions/simulate/spoke.h"

namespace bench
{
// `size` bytes of spokes, one directly behind the other.
inline std::string spokes(std::size_t size)
{
    const session::tScene scene(1);
    session::tEchoes echoes;
    std::string all, spoke;
    for (std::uint64_t n = 0; all.size() < size; ++n)
    {
        const double time = static_cast<double>(n) / 1638.4;
        scene.echoes(n, time, echoes);
        session::encodeSpoke(n, 1'700'000'000'000 + static_cast<std::uint64_t>(time * 1000), echoes, spoke);
        all += spoke;
    }
    all.resize(size);
    return all;
}
}  // namespace bench

#endif
