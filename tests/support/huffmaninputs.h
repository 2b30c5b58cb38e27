// Inputs for a codec, of many shapes, the same ones for the same seed; and byte arrays through it.
#ifndef KESTOVA_TESTS_HUFFMANINPUTS_H
#define KESTOVA_TESTS_HUFFMANINPUTS_H

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/huffmanencode.h"

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

// An array encoded into `size` bytes of the caller's; whether they were too few.
inline std::pair<std::string, bool> encodedArray(huffman::tHuffmanEncode& encoder, const std::string& bytes,
                                                 std::size_t size = 0)
{
    const std::unique_ptr<char[]> dst(size != 0 ? new char[size] : nullptr);
    const huffman::tEncodedResult result = encoder.EncodeByteArray(bytes.data(), static_cast<uint32_t>(bytes.size()),
                                                                   dst.get(), static_cast<uint32_t>(size));
    const std::unique_ptr<char[]> made(result.second ? result.first.first : nullptr);
    return {{result.first.first, result.first.second}, result.second};
}

inline std::string decodedArray(const std::string& array)
{
    huffman::tHuffmanDecode decoder(huffman::eByteArrayMode);
    const std::vector<char> exact(array.begin(), array.end());  // so that reading on is noticed
    return decoder.DecodeByteArray(exact.data(), static_cast<uint32_t>(exact.size()));
}

#endif
