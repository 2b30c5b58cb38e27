// Inputs for a codec, of many shapes, the same ones for the same seed.
#ifndef KESTOVA_TESTS_HUFFMANINPUTS_H
#define KESTOVA_TESTS_HUFFMANINPUTS_H

#include <cmath>
#include <random>
#include <string>
#include <utility>

class tHuffmanInputs
{
public:
    explicit tHuffmanInputs(unsigned seed) : m_random(seed) {}

    std::size_t below(std::size_t limit) { return m_random() % limit; }

    // 0 to mostLen bytes of 1 to 256 values, from evenly spread to a few that are nearly all.
    std::string next(std::size_t mostLen)
    {
        const std::size_t variety = 1 + below(256), skew = below(6);
        std::string bytes(below(mostLen + 1), '\0');
        for (char& byte : bytes)
        {
            const double place =
                std::pow(std::uniform_real_distribution<double>(0, 1)(m_random), 1.0 + double(skew * skew));
            byte = static_cast<char>(m_shuffle + static_cast<std::size_t>(place * static_cast<double>(variety)));
        }
        m_shuffle += 37;
        return bytes;
    }

    // As many of each value as of the two before it together: the longest codes that so many bytes can have.
    static std::string fibonacci(unsigned values)
    {
        std::string bytes;
        std::size_t count = 1, next = 1;
        for (unsigned value = 0; value < values; ++value)
        {
            bytes.append(count, static_cast<char>(value));
            count = std::exchange(next, count + next);
        }
        return bytes;
    }

private:
    std::mt19937 m_random;
    std::size_t m_shuffle = 0;
};

#endif
