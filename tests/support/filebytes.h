// What is in a file, byte for byte.
#ifndef KESTOVA_TESTS_FILEBYTES_H
#define KESTOVA_TESTS_FILEBYTES_H

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

inline std::string contentsOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// `len` bytes from `pos` on; another text where the file does not hold them.
inline std::string bytesOf(const std::string& path, std::uint64_t pos, std::size_t len)
{
    std::string bytes(len, '?');
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(pos)).read(bytes.data(), static_cast<std::streamsize>(len));
    return file ? bytes : "cannot be read";
}

#endif
