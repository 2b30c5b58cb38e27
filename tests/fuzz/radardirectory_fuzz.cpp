// A directory file of any content is taken or refused with one line; what is taken obeys the directory's own rules.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KestovaUtils/internal/radardirectory.h"
#include "KestovaUtils/streamnames.h"
#include "tests/fuzz/fuzz.h"

namespace
{
void checkRadar(const utils::tRadarEntry& radar)
{
    require(!radar.serial.empty() && radar.serial.size() <= utils::cLongestSerial);
    require(radar.serial.find('\0') == std::string::npos);
    for (unsigned int kind = 0; kind < utils::cStreamKinds; ++kind)
    {
        const NetAddress address = radar.record.streamAddress(kind);
        require((address.ip == 0) == (address.port == 0));
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::vector<utils::tRadarEntry> radars;
    std::string error;
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (utils::parseRadarDirectory(text, radars, error))
    {
        for (const utils::tRadarEntry& radar : radars)
            checkRadar(radar);
        return 0;
    }
    require(radars.empty() && !error.empty() && error.size() < 400);
    for (const char c : error)
        require(c >= 0x20 && c < 0x7F);
    return 0;
}
