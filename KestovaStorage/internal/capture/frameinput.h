// tFrameInput: the frames of a source, as the records of a capture file are read.
//
// Memory   a copy of one frame, since records may be written to.
// Owner    not of the source.
// Threads  starts none, locks nothing.
#ifndef KESTOVA_STORAGE_CAPTURE_FRAMEINPUT_H
#define KESTOVA_STORAGE_CAPTURE_FRAMEINPUT_H

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include "KestovaStorage/framesource.h"
#include "KestovaStorage/internal/capture/capturefile.h"

namespace pcap
{
class tFrameInput
{
public:
    explicit tFrameInput(iPcapFrameSource& source) : m_source(source), m_bytes(new char[cRecordReach + 1]) {}

    bool next(tCaptureRecord& record)
    {
        constexpr std::uint64_t cSecond = 1'000'000, cLastSecond = std::numeric_limits<std::uint32_t>::max();
        tPcapFrame frame{};
        if (!m_source.Next(frame))
            return false;
        const std::size_t held = std::min(frame.len, cRecordReach);
        std::memcpy(m_bytes.get(), frame.bytes, held);
        record = {static_cast<std::uint32_t>(std::min(frame.time_us / cSecond, cLastSecond)),
                  static_cast<std::uint32_t>(frame.time_us % cSecond),
                  m_bytes.get(),
                  held,
                  0,
                  false};
        return true;
    }
    std::uint64_t size() const { return 0; }  // not known: there is no progress
    bool atEnd() const { return m_source.End() != iPcapFrameSource::eInterrupted; }
    bool cut() const { return m_source.End() == iPcapFrameSource::eCut; }

private:
    iPcapFrameSource& m_source;
    const std::unique_ptr<char[]> m_bytes;
};
}  // namespace pcap

#endif
