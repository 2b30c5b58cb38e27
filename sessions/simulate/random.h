// tRandom: pseudo-random numbers, equal for equal seeds on every machine (splitmix64).
#ifndef KESTOVA_SESSIONS_SIMULATE_RANDOM_H
#define KESTOVA_SESSIONS_SIMULATE_RANDOM_H

#include <cstdint>

namespace session
{
class tRandom
{
public:
    explicit tRandom(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next()
    {
        m_state += 0x9e3779b97f4a7c15u;
        std::uint64_t value = m_state;
        value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9u;
        value = (value ^ value >> 27) * 0x94d049bb133111ebu;
        return value ^ value >> 31;
    }

    double between(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(next() >> 11) * 0x1.0p-53);
    }

private:
    std::uint64_t m_state;
};
}  // namespace session

#endif
