// tCaptureWriter: a capture of Ethernet frames with microsecond stamps, written beside its name until it is whole.
#ifndef KESTOVA_RECORDINGS_CAPTUREWRITER_H
#define KESTOVA_RECORDINGS_CAPTUREWRITER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tool
{
// One thread at a time. Throws tFailure for what cannot be written. Without finish() nothing is left.
class tCaptureWriter
{
public:
    explicit tCaptureWriter(const std::string& path);
    ~tCaptureWriter();
    tCaptureWriter(const tCaptureWriter&) = delete;
    tCaptureWriter& operator=(const tCaptureWriter&) = delete;

    void add(std::uint64_t timeMs, std::string_view frame);
    void finish();  // syncs it and gives it its name

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace tool

#endif
