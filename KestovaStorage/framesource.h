// The frames of a capture, from whatever holds them, for tPcapReader::ReadFrames.
#ifndef KESTOVA_FRAMESOURCE_H
#define KESTOVA_FRAMESOURCE_H

#include <stddef.h>
#include <stdint.h>

#include "UdpSocket/kestovaapi.h"

namespace pcap
{
struct tPcapFrame
{
    uint64_t time_us;   // since the Unix epoch, as captured
    const char* bytes;  // from the Ethernet header on
    size_t len;         // bytes that are there; fewer than were sent if the capture holds only their beginning
};

class KESTOVA_API iPcapFrameSource
{
public:
    enum eEnd
    {
        eWhole,       // behind the last frame
        eCut,         // within a frame
        eInterrupted  // more may follow, which cannot or need not be read
    };

    virtual ~iPcapFrameSource() = default;
    // Returns the next frame, its bytes valid until the next call; false at the end. Called on the thread of
    // ReadFrames. An exception leaves ReadFrames.
    virtual bool Next(tPcapFrame& frame) = 0;
    // Returns where the frames ended; eInterrupted before Next has returned false.
    virtual eEnd End() const = 0;
};
}  // namespace pcap

#endif
