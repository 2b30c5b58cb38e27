#include "KestovaStorage/internal/datafile/fileforms.h"

#include <algorithm>
#include <iterator>

namespace storage
{
constexpr tFileForm cPlainForm{.number = cDataFileHead,
                               .name = "plain",
                               .lengthShift = 3,
                               .firstBits = 0,
                               .emptyRecordEnds = true,
                               .newEncoder = nullptr,
                               .newDecoder = nullptr};

const tFileForm* formOf(std::uint32_t number)
{
    const auto* const form = std::find_if(std::begin(cFileForms), std::end(cFileForms),
                                          [number](const tFileForm* each) { return each->number == number; });
    return form != std::end(cFileForms) ? *form : nullptr;
}
}  // namespace storage
