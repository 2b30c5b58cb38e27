#include "KestovaRecordings/capturewriter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/pcapfunctions.h"

namespace recordings
{
namespace
{
constexpr int cSnapLen = 65'535;

struct tClose
{
    void operator()(pcap_t* handle) const { pcap_close(handle); }
    void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
};
}  // namespace

class tCaptureWriter::tPrivate
{
public:
    explicit tPrivate(const std::string& path) : m_name(path), m_part(path + ".part")
    {
        // O_EXCL: never overwrites a file, which may be the recording itself.
        const int fd = ::open(m_part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0)
            throw tFailure(m_part + " cannot be made: " + std::strerror(errno));
        begin(fd);
    }
    tPrivate(int descriptor, const std::string& name) : m_name(name) { begin(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0)); }
    ~tPrivate()
    {
        if (!m_dumper)
            return;
        m_dumper.reset();
        if (!m_part.empty())
            std::remove(m_part.c_str());
    }
    tPrivate(const tPrivate&) = delete;
    tPrivate& operator=(const tPrivate&) = delete;

    void add(std::uint64_t timeUs, std::string_view frame)
    {
        pcap_pkthdr head{};
        head.ts.tv_sec = static_cast<decltype(head.ts.tv_sec)>(timeUs / 1'000'000);
        head.ts.tv_usec = static_cast<decltype(head.ts.tv_usec)>(timeUs % 1'000'000);
        head.caplen = head.len = static_cast<bpf_u_int32>(frame.size());
        pcap_dump(reinterpret_cast<u_char*>(m_dumper.get()), &head, reinterpret_cast<const u_char*>(frame.data()));
        if (std::ferror(pcap_dump_file(m_dumper.get())) != 0)
            fail();
    }
    void finish()
    {
        std::FILE* const file = pcap_dump_file(m_dumper.get());
        if (pcap_dump_flush(m_dumper.get()) != 0 || std::ferror(file) != 0)
            fail();
        if (!m_part.empty() && (::fsync(::fileno(file)) != 0 || std::rename(m_part.c_str(), m_name.c_str()) != 0))
            fail();
        m_dumper.reset();
    }

private:
    void begin(int fd)
    {
        std::FILE* const file = fd < 0 ? nullptr : ::fdopen(fd, "wb");
        if (file == nullptr || !m_handle)
            throw tFailure("not enough memory to write " + m_name);
        m_dumper.reset(pcap_dump_fopen(m_handle.get(), file));
        if (!m_dumper)
            throw tFailure(pcap_geterr(m_handle.get()));
    }
    [[noreturn]] void fail() const
    {
        const int error = errno;
        const std::string why = m_name + " cannot be written: " + std::strerror(error);
        if (error == EPIPE)
            throw tPipeClosed(why);
        throw tFailure(why);
    }

    const std::string m_name, m_part;  // without a part: what is written is no file of its own
    const std::unique_ptr<pcap_t, tClose> m_handle{pcap_open_dead(DLT_EN10MB, cSnapLen)};
    std::unique_ptr<pcap_dumper_t, tClose> m_dumper;  // null once finished
};

tCaptureWriter::tCaptureWriter(const std::string& path) : d(std::make_unique<tPrivate>(path)) {}

tCaptureWriter::tCaptureWriter(int descriptor, const std::string& name)
    : d(std::make_unique<tPrivate>(descriptor, name))
{}

tCaptureWriter::~tCaptureWriter() = default;

void tCaptureWriter::add(std::uint64_t timeUs, std::string_view frame)
{
    d->add(timeUs, frame);
}

void tCaptureWriter::finish()
{
    d->finish();
}
}  // namespace recordings
