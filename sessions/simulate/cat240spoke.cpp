#include "sessions/simulate/cat240spoke.h"

#include "KestovaRecordings/cat240.h"

namespace session
{
void encodeCat240Spoke(std::uint64_t spokeNumber, std::uint64_t timeMs, const tEchoes& echoes, std::uint8_t sic,
                       std::string& bytes)
{
    constexpr unsigned int cStep = 65'536 / cSpokesPerRevolution;
    recordings::tCat240Video video;
    video.sic = sic;
    video.sequence = static_cast<std::uint32_t>(spokeNumber);
    video.startAzimuth = static_cast<std::uint16_t>(spokeNumber * cStep);
    video.endAzimuth = static_cast<std::uint16_t>(video.startAzimuth + cStep);
    video.cellM = static_cast<double>(cRangeMetres) / cEchoSamples;
    video.cells = {echoes.data(), static_cast<std::uint32_t>(echoes.size()), 8, true};
    video.timeOfDay = recordings::timeOfDayAt(timeMs);
    bytes.clear();
    recordings::appendCat240(video, bytes);
}
}  // namespace session
