// Any text holds sentences or none; what they say is in its range.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "KestovaRecordings/sentencereader.h"
#include "tests/fuzz/fuzz.h"

using namespace recordings;

namespace
{
struct tCheck final : iSentenceSink
{
    void onSentence(const tSentence& sentence) override
    {
        require(sentence.type.size() == 3 && sentence.talker.size() <= 5);
        require(!sentence.latitudeDeg || std::fabs(*sentence.latitudeDeg) <= 90);
        require(!sentence.longitudeDeg || std::fabs(*sentence.longitudeDeg) <= 180);
        for (const auto& degrees : {sentence.courseDeg, sentence.headingDeg, sentence.bearingDeg})
            require(!degrees || (*degrees >= 0 && *degrees <= 360));
        require(!sentence.shipName || sentence.shipName->size() <= 20);
    }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    tCheck check;
    tSentenceReader reader;
    reader.read(text.substr(0, size / 2), 1'790'000'000'000, check);
    reader.read(text.substr(size / 2), 0, check);
    return 0;
}
