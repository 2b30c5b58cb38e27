// A replayed record of any bytes, with observers that touch all they are given: nothing outside the record is read or
// written, and what is reported is as long as the record says.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "KestovaStorage/internal/replay/replaypipeline.h"
#include "support/radarreplay.h"
#include "tests/fuzz/fuzz.h"

// The first byte says whether the record is the last one; the rest is the record.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::vector<char> bytes(data + 1, data + size), before = bytes;  // of exactly this size
    tRadarReplayLog told;
    tReplayEditor editor;
    editor.edit = [](char* payload, int len) { std::fill(payload, payload + len, 'e'); };
    editor.circle = [](char*, int& number, int& azimuth) { return (number = azimuth = 1) != 0; };
    Kestova::tReplayPipeline records({}, nullptr);
    records.setModifyObserver(&editor);
    records.replay(1000, *data % 2, bytes.data(), static_cast<std::uint32_t>(bytes.size()), "f", &told);
    require(bytes == before && (records.damagedCnt() != 0) == told.text().empty());
    for (const auto& segment : told.segments())
    {
        const std::size_t msgLen = static_cast<unsigned char>(bytes[31]) + 256U * static_cast<unsigned char>(bytes[32]);
        require(msgLen <= bytes.size() - 33 && segment.bytes == std::string(msgLen, 'e'));
    }
    return 0;
}
