// Any text is a spoke layout or is refused with a line; by what is accepted, and by the public standard, any message is
// read within its bytes, and what was read of the standard is written again. What is translated to it can be read.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KestovaRecordings/cat240.h"
#include "KestovaRecordings/cat240translator.h"
#include "KestovaRecordings/spokereader.h"
#include "tests/fuzz/fuzz.h"

using namespace recordings;

namespace
{
struct tTouch final : iSpokeSink, iCat240Sink
{
    void onSpoke(const tSpoke& spoke, const tMessagePlace&) override
    {
        require(spoke.bearingFrom >= 0 && spoke.bearingFrom < 1 && spoke.bearingTo >= 0 && spoke.bearingTo < 1);
        require(spoke.cells.count != 0);
        std::vector<unsigned char> scaled(spoke.cells.count);
        spoke.cells.toBytes(scaled.data());
    }
    void onVideo(const tCat240Video& video) override
    {
        isVideo = true;
        std::string again;
        if (!video.compressed && appendCat240(video, again))
            require(!again.empty());
    }
    void onSummary(const tCat240Summary& summary) override
    {
        isSummary = true;
        require(summary.text.size() < 256);
    }
    using iSpokeSink::onSummary;
    bool isVideo = false, isSummary = false;
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(all.find('\n'), size);
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    if (!utils::parseSpokeLayouts(std::string(all.substr(0, end)), layouts, error))
    {
        require(!error.empty() && error.size() < 400);
        layouts = {{}};
        layouts[0].source = utils::eSpokeCat240;
    }
    tTouch touch;
    tSpokeReader reader(layouts);
    const std::string_view message = all.substr(std::min(end + 1, size));
    readCat240(message, touch);
    for (std::size_t from = 0; from <= message.size(); from += message.size() / 3 + 1)
        reader.read(message.substr(from), {}, touch);
    reader.finish(touch);
    tCat240Translator translator(layouts);
    const auto readAgain = [&](std::string_view datagram, const tMessagePlace&) {
        tTouch again;
        readCat240(datagram, again);
        require(again.isVideo || again.isSummary);
    };
    for (std::size_t from = 0; from <= message.size(); from += message.size() / 5 + 1)
        translator.take({{0, 0, eReadType, eImageStream, 0}, 0, 1, 1, 0, message.substr(from)}, {}, readAgain);
    translator.finish(readAgain);
    return 0;
}
