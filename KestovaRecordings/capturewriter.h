// tCaptureWriter: writes a capture of Ethernet frames with microsecond stamps.
#ifndef KESTOVA_RECORDINGS_CAPTUREWRITER_H
#define KESTOVA_RECORDINGS_CAPTUREWRITER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// Writes to PATH.part, which must not exist, and renames it in finish(); without finish() the destructor removes it. Or
// writes to a descriptor, a pipe mostly, which stays open. One thread at a time. Throws tFailure if the capture cannot
// be created or written, tPipeClosed if the reader of the pipe has closed it.
class KESTOVA_API tCaptureWriter
{
public:
    explicit tCaptureWriter(const std::string& path);
    tCaptureWriter(int descriptor, const std::string& name);  // the name is for messages
    ~tCaptureWriter();
    tCaptureWriter(const tCaptureWriter&) = delete;
    tCaptureWriter& operator=(const tCaptureWriter&) = delete;

    void add(std::uint64_t timeUs, std::string_view frame);  // at most 65,535 bytes
    void finish();                                           // writes the rest; syncs a file and renames it

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
