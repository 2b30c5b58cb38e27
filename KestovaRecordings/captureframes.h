// tCaptureFrames: the frames of a capture of any kind, from a file, a pipe or standard input.
#ifndef KESTOVA_RECORDINGS_CAPTUREFRAMES_H
#define KESTOVA_RECORDINGS_CAPTUREFRAMES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
constexpr char cStandardInput[] = "-";

// Returns whether pcap::tPcapReader reads the capture by itself, which is the fastest way: a regular file,
// little-endian, of Ethernet frames with microsecond stamps. False also for what is no capture, or cannot be opened.
KESTOVA_API bool isPlainCapture(const std::string& path);

// Returns whether a path is a regular file that begins as captures do, whatever kind of capture it is.
KESTOVA_API bool isCapture(const std::string& path);

struct tCapturedFrame
{
    std::uint64_t timeUs;  // since the Unix epoch
    const char* bytes;     // from its Ethernet header on; valid until the next call
    std::size_t len;
};

// Reads, through libpcap, pcap files in both byte orders with micro- and nanosecond stamps, and pcapng files; frames of
// Ethernet, cooked frames ("any", SLL and SLL2), raw IP and BSD loopback. Frames without an Ethernet header get one
// with empty addresses. One thread at a time.
class KESTOVA_API tCaptureFrames
{
public:
    enum class eEnd
    {
        eNotYet,
        eWhole,   // behind the last frame
        eCut,     // within a frame
        eFailed,  // error() returns why
        eCancelled
    };

    // Opens a file, or standard input for "-", and reads its head. Calls `goOn` with the number of bytes read, before
    // every read and, while a pipe is silent, ten times a second; false cancels. Throws tFailure for what is no
    // capture, by name, for frames of another link type, and if the head is cancelled.
    tCaptureFrames(const std::string& path, std::function<bool(std::uint64_t bytes)> goOn);
    ~tCaptureFrames();
    tCaptureFrames(const tCaptureFrames&) = delete;
    tCaptureFrames& operator=(const tCaptureFrames&) = delete;

    bool next(tCapturedFrame& frame);  // returns false at the end; throws what goOn throws
    eEnd end() const;
    std::string error() const;   // a sentence that names no file
    std::uint64_t size() const;  // of a regular file in bytes; 0 for others

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
