// Frames of any link type and form, through libpcap, out of any bytes: reading ends, every byte of every datagram can
// be read, and nothing is counted that was not delivered.
#include <cstdint>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/framereader.h"
#include "KestovaStorage/pcapreader.h"
#include "tests/fuzz/fuzz.h"

namespace
{
class tObserver final : public pcap::iPcapDatagramObserver
{
public:
    void UpdatePcapDatagram(const pcap::tPcapDatagram& datagram) override
    {
        std::uint64_t sum = 0;
        for (int i = 0; i < datagram.len; ++i)
            sum += static_cast<unsigned char>(datagram.payload[i]);
        require(datagram.payload[datagram.len] == '\0' && sum <= 255ULL * static_cast<unsigned>(datagram.len));
        messages += datagram.len > 0;
    }
    std::uint64_t messages = 0;
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
try
{
    const tMemoryFile file;
    file.put(0, data, size);
    recordings::tFrameReader frames(file.path(), [](std::uint64_t) { return true; });
    tObserver observer;
    pcap::tPcapReader reader("", nullptr);
    reader.SetDatagramObserver(&observer);
    reader.KeepReading(true);
    reader.ReadTagsAndOptions(true);
    reader.ReadFrames(frames, {});
    const pcap::tPcapReadResult result = reader.GetReadResult();
    require(observer.messages == result.datagrams - result.orphans);
    require(result.finished != (frames.End() == pcap::iPcapFrameSource::eInterrupted));
    return 0;
}
catch (const recordings::tFailure&)
{
    return 0;
}
