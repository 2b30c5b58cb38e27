#include "KestovaRecordings/internal/sheetformat.h"

#include "KestovaRecordings/internal/crc32c.h"

namespace recordings
{
namespace
{
std::uint32_t add(std::uint32_t sum, std::vector<std::uint32_t> numbers)
{
    for (std::uint32_t& number : numbers)
        number = storage::fileOrder(number);
    return crc32c(sum, numbers.data(), numbers.size() * sizeof(std::uint32_t));
}
}  // namespace

std::uint32_t sumOfSums(const tSheet& sheet)
{
    std::uint32_t sum = add(0, {sheet.headCrc32c.value_or(0), sheet.fineCrc32c.value_or(0)});
    for (const auto* numbers : {&sheet.blocks.records, &sheet.blocks.payloadCrc32c, &sheet.blocks.indexCrc32c})
        sum = add(sum, *numbers);
    return sum;
}
}  // namespace recordings
