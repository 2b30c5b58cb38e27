// Any bytes as an encoded byte array: nothing outside them is read, and what comes out is no more than their bits can
// hold. And any bytes as an input: what is encoded decodes to them again, and is what the plain codec makes.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/huffmanencode.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/plainhuffman.h"

namespace
{
constexpr std::size_t cMostSize = 65535;  // no count exceeds 16 bits

std::string decoded(const std::string& array)
{
    huffman::tHuffmanDecode decoder(huffman::eByteArrayMode);
    const std::vector<char> exact(array.begin(), array.end());  // so that reading on is noticed
    return decoder.DecodeByteArray(exact.data(), static_cast<std::uint32_t>(exact.size()));
}

std::string encoded(const std::string& bytes)
{
    huffman::tHuffmanEncode encoder(huffman::eByteArrayMode);
    std::vector<char> exact(plain::byteArray(bytes).size());
    const auto result = encoder.EncodeByteArray(bytes.data(), static_cast<std::uint32_t>(bytes.size()), exact.data(),
                                                static_cast<std::uint32_t>(exact.size()));
    require(!result.second);
    return {result.first.first, result.first.second};
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    require(decoded(bytes).size() <= size * 8);
    if (size == 0 || size > cMostSize)
        return 0;
    const std::string array = encoded(bytes);
    require(array == plain::byteArray(bytes));
    const bool oneValue = bytes.find_first_not_of(bytes[0]) == std::string::npos;
    require(decoded(array) == (oneValue ? "" : bytes));
    return 0;
}
