// A sheet of any content is taken or refused with one line; what is taken says the same when it is written and read
// again, and is no larger than a file's records allow.
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaStorage/datafileformat.h"
#include "tests/fuzz/fuzz.h"

namespace
{
void checkSheet(const recordings::tSheet& sheet)
{
    const auto& blocks = sheet.blocks;
    require(blocks.records.size() <= storage::cIndexCapacity);
    require(blocks.records.size() == blocks.payloadCrc32c.size() && blocks.records.size() == blocks.indexCrc32c.size());
    require(std::accumulate(blocks.records.begin(), blocks.records.end(), std::uint64_t(0)) <= sheet.records);
    require(sheet.firstMs <= sheet.lastMs && sheet.lastMs < storage::cTimeLimit);
    std::size_t seconds = 0;
    for (const auto& stream : sheet.streams)
    {
        seconds += stream.perSecond.size();
        for (std::size_t i = 1; i < stream.perSecond.size(); ++i)
            require(stream.perSecond[i - 1].first < stream.perSecond[i].first);
    }
    require(seconds <= storage::cIndexCapacity);
    const std::string text = recordings::sheetText(sheet);
    require(recordings::sheetText(recordings::parseSheet(text)) == text);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
try
{
    checkSheet(recordings::parseSheet(std::string(reinterpret_cast<const char*>(data), size)));
    return 0;
}
catch (const recordings::tFailure& failure)
{
    const std::string why = failure.what();
    require(!why.empty() && why.size() < 400 && why.find('\n') == std::string::npos);
    return 0;
}
