// Numbers of 32 bits as text: little-endian bytes in base64, padded.
#ifndef KESTOVA_RECORDINGS_BASE64_H
#define KESTOVA_RECORDINGS_BASE64_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace recordings
{
std::string numbersText(const std::vector<std::uint32_t>& numbers);
// Returns nothing for text that is no base64, or for more than `most` numbers.
std::optional<std::vector<std::uint32_t>> numbersOf(std::string_view text, std::size_t most);
}  // namespace recordings

#endif
