// tFrameReader: the frames of a capture that pcap::tPcapReader does not read by itself, for it to read.
#ifndef KESTOVA_RECORDINGS_FRAMEREADER_H
#define KESTOVA_RECORDINGS_FRAMEREADER_H

#include <cstdint>
#include <functional>
#include <string>

#include "KestovaRecordings/captureframes.h"
#include "KestovaStorage/framesource.h"

namespace recordings
{
// One thread at a time.
class tFrameReader : public pcap::iPcapFrameSource
{
public:
    // As tCaptureFrames.
    tFrameReader(const std::string& path, std::function<bool(std::uint64_t bytes)> goOn)
        : m_frames(path, std::move(goOn))
    {}

    bool Next(pcap::tPcapFrame& frame) override
    {
        tCapturedFrame captured{};
        if (!m_frames.next(captured))
            return false;
        frame = {captured.timeUs, captured.bytes, captured.len};
        return true;
    }
    eEnd End() const override
    {
        switch (m_frames.end())
        {
        case tCaptureFrames::eEnd::eWhole:
            return eWhole;
        case tCaptureFrames::eEnd::eCut:
            return eCut;
        default:
            return eInterrupted;
        }
    }
    // Returns why reading failed; empty if it did not.
    std::string failure() const
    {
        return m_frames.end() == tCaptureFrames::eEnd::eFailed ? m_frames.error() : std::string();
    }
    std::uint64_t size() const { return m_frames.size(); }

private:
    tCaptureFrames m_frames;
};
}  // namespace recordings

#endif
