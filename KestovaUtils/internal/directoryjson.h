// What the JSON files of this library share: parsing without mercy, and errors that name the place.
//
// A file is read whole or fails whole. Contents are hostile until checked; errors show at most a short, printable piece
// of them.
#ifndef KESTOVA_UTILS_DIRECTORYJSON_H
#define KESTOVA_UTILS_DIRECTORYJSON_H

#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace utils
{
// An error in a file; it does not leave the library.
class tDirectoryError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

constexpr std::size_t cLargestDirectory = 4 * 1024 * 1024;  // bytes: some ten thousand radars

// Returns a short piece of the file without control characters, in quotes, for a terminal.
std::string shown(const std::string& text);

// Returns the content of a file of at most cLargestDirectory bytes.
std::string contentOf(const std::string& path);

// Parses the text of a directory. Throws, too, for what the parser accepts: repeated keys, of which it keeps the last,
// and nesting deeper than a directory's.
nlohmann::json parseText(const std::string& text);

void requireKnownKeys(const nlohmann::json& object, std::initializer_list<std::string_view> known);

const nlohmann::json& member(const nlohmann::json& object, const char* key);  // throws where it is missing
}  // namespace utils

#endif
