#include "KestovaRecordings/capturewriter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"

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
    explicit tPrivate(const std::string& path)
        : m_path(path), m_part(path + ".part"), m_handle(pcap_open_dead(DLT_EN10MB, cSnapLen))
    {
        // O_EXCL: never overwrites a file, which may be the recording itself.
        const int fd = ::open(m_part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0)
            throw tFailure(m_part + " cannot be made: " + std::strerror(errno));
        std::FILE* const file = ::fdopen(fd, "wb");
        if (file == nullptr || !m_handle)
            throw tFailure("not enough memory to write " + path);
        m_dumper.reset(pcap_dump_fopen(m_handle.get(), file));
        if (!m_dumper)
            throw tFailure(pcap_geterr(m_handle.get()));
    }
    ~tPrivate()
    {
        if (!m_dumper)
            return;
        m_dumper.reset();
        std::remove(m_part.c_str());
    }
    tPrivate(const tPrivate&) = delete;
    tPrivate& operator=(const tPrivate&) = delete;

    void add(std::uint64_t timeMs, std::string_view frame)
    {
        pcap_pkthdr head{};
        head.ts.tv_sec = static_cast<decltype(head.ts.tv_sec)>(timeMs / 1000);
        head.ts.tv_usec = static_cast<decltype(head.ts.tv_usec)>(timeMs % 1000 * 1000);
        head.caplen = head.len = static_cast<bpf_u_int32>(frame.size());
        pcap_dump(reinterpret_cast<u_char*>(m_dumper.get()), &head, reinterpret_cast<const u_char*>(frame.data()));
        if (std::ferror(pcap_dump_file(m_dumper.get())) != 0)
            fail();
    }
    void finish()
    {
        std::FILE* const file = pcap_dump_file(m_dumper.get());
        if (pcap_dump_flush(m_dumper.get()) != 0 || std::ferror(file) != 0 || ::fsync(::fileno(file)) != 0 ||
            std::rename(m_part.c_str(), m_path.c_str()) != 0)
            fail();
        m_dumper.reset();
    }

private:
    [[noreturn]] void fail() const { throw tFailure(m_path + " cannot be written: " + std::strerror(errno)); }

    const std::string m_path, m_part;
    const std::unique_ptr<pcap_t, tClose> m_handle;
    std::unique_ptr<pcap_dumper_t, tClose> m_dumper;  // null once finished
};

tCaptureWriter::tCaptureWriter(const std::string& path) : d(std::make_unique<tPrivate>(path)) {}

tCaptureWriter::~tCaptureWriter() = default;

void tCaptureWriter::add(std::uint64_t timeMs, std::string_view frame)
{
    d->add(timeMs, frame);
}

void tCaptureWriter::finish()
{
    d->finish();
}
}  // namespace recordings
