// tCaptureInput: the bytes of a capture as a stream of the C library, read from a descriptor that may be a pipe.
//
// Owner    owns what it opens; standard input stays open.
// Threads  starts none, locks nothing.
// Errors   open() throws tFailure. A failed read and a cancelled one end the stream; what goOn throws is kept.
#ifndef KESTOVA_RECORDINGS_CAPTUREINPUT_H
#define KESTOVA_RECORDINGS_CAPTUREINPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include "common/descriptor.h"

namespace recordings
{
class tCaptureInput
{
public:
    tCaptureInput(const std::string& path, std::function<bool(std::uint64_t bytes)> goOn);
    tCaptureInput(const tCaptureInput&) = delete;
    tCaptureInput& operator=(const tCaptureInput&) = delete;

    const std::string& name() const { return m_name; }  // for messages
    std::uint64_t size() const { return m_size; }       // of a regular file; 0 for others
    bool atEnd() const { return m_atEnd; }              // of the file, or the writer has closed the pipe
    bool cancelled() const { return m_cancelled; }
    int error() const { return m_error; }  // errno of a failed read
    void rethrow();                        // what goOn has thrown

    // Returns the bytes at the beginning, fewer than wanted if there are no more. They stay to be read.
    const std::string& head(std::size_t wanted);
    // Returns a stream that reads this input, which has to outlive it; the caller closes it.
    std::FILE* stream();

private:
    std::size_t read(char* to, std::size_t len) noexcept;
    std::size_t readDescriptor(char* to, std::size_t len);
    bool waitReadable() const;

    const std::string m_name;
    const std::function<bool(std::uint64_t)> m_goOn;
    tDescriptor m_file;  // unset for standard input
    int m_fd = 0;
    std::uint64_t m_size = 0, m_bytes = 0;
    std::string m_head;
    std::size_t m_headTaken = 0;
    bool m_atEnd = false, m_cancelled = false;
    int m_error = 0;
    std::exception_ptr m_thrown;
};
}  // namespace recordings

#endif
