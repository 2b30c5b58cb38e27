#include "sessions/record/metrics.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "common/descriptor.h"

namespace session
{
using namespace recordings;

namespace
{
// Beside the file, so that it can be renamed there, and with a name that collectors of "*.prom" pass over.
std::string besideName(const std::string& path)
{
    return fmt::format("{}.{}.part", path, getpid());
}

// Returns the text of a label's value. Values are UTF-8, paths any bytes: what is not ASCII is written as "%" and two
// hexadecimal digits, and so are control characters.
std::string labelText(const std::string& value)
{
    std::string text;
    for (const char c : value)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\' || c == '"')
            text += {'\\', c};
        else if (byte < 0x20 || byte > 0x7E)
            text += fmt::format("%{:02X}", byte);
        else
            text += c;
    }
    return text;
}

class tMetricsText
{
public:
    explicit tMetricsText(const std::string& root) : m_root(labelText(root)) {}

    void begin(const char* name, const char* type, const char* help)
    {
        m_name = name;
        text += fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type);
    }
    template <typename tValue>
    void add(const tValue& value)
    {
        text += fmt::format("{}{{root=\"{}\"}} {}\n", m_name, m_root, value);
    }
    template <typename tValue>
    void add(const tStreamKey& stream, const tValue& value)
    {
        text += fmt::format("{}{{root=\"{}\",stream=\"{}\",address=\"{}\"}} {}\n", m_name, m_root,
                            labelText(stream.name()), stream.address(), value);
    }
    template <typename tValue>
    void one(const char* name, const char* type, const char* help, const tValue& value)
    {
        begin(name, type, help);
        add(value);
    }

    std::string text;

private:
    const std::string m_root;
    const char* m_name = "";
};

void addStreams(tMetricsText& out, const tMetrics& metrics)
{
    const tRecorderState& state = metrics.state;
    out.begin("kestova_datagrams_total", "counter", "Datagrams received.");
    for (const auto& [key, count] : state.streams)
        out.add(key, count.messages);
    out.begin("kestova_received_bytes_total", "counter", "Bytes of the datagrams received.");
    for (const auto& [key, count] : state.streams)
        out.add(key, count.bytes);
    out.begin("kestova_kernel_dropped_datagrams_total", "counter", "Datagrams that the kernel dropped.");
    for (const auto& [key, dropped] : state.discarded)
        out.add(key, dropped);
    out.begin("kestova_last_heard_timestamp_seconds", "gauge", "When the last datagram came; 0 for never.");
    for (const auto& row : state.streams)
        out.add(row.first, fmt::format("{:.3f}", static_cast<double>(metrics.heard.of(row.first)) / 1000.0));
}
}  // namespace

void tLastHeard::update(const tStreamCounts& counts, std::uint64_t nowMs)
{
    for (const auto& [key, count] : counts)
    {
        tHeard& heard = m_streams[key];
        if (heard.messages != count.messages)
            heard = {count.messages, nowMs};
    }
}

std::uint64_t tLastHeard::of(const tStreamKey& stream) const
{
    const auto known = m_streams.find(stream);
    return known != m_streams.end() ? known->second.atMs : 0;
}

std::string metricsText(const tMetrics& metrics)
{
    tMetricsText out(metrics.root);
    addStreams(out, metrics);
    out.one("kestova_backlog_messages", "gauge", "Messages that wait for the disk.", metrics.state.backlog);
    out.one("kestova_lost_messages_total", "counter", "Messages received that are in no file.", metrics.state.lost);
    out.one("kestova_disk_free_bytes", "gauge", "Free room on the disk of the storage root.", metrics.freeBytes);
    out.one("kestova_files_total", "counter", "Data files begun.", metrics.files);
    out.one("kestova_recordings_deleted_total", "counter", "Data files deleted to make room.", metrics.deleted);
    if (metrics.clockOffsetMs)
        out.one("kestova_clock_offset_seconds", "gauge", "System time minus GPS time when its sentence came.",
                fmt::format("{:.3f}", *metrics.clockOffsetMs / 1000.0));
    return out.text;
}

tMetricsFile::tMetricsFile(const std::string& path) : m_path(path)
{
    if (const int error = write("# kestova record is starting\n"))
        throw tFailure(fmt::format("cannot write {}: {}; choose another --metrics-file", path, std::strerror(error)));
}

int tMetricsFile::write(const std::string& text) const
{
    const std::string beside = besideName(m_path);
    tDescriptor file(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    bool written = file.valid() && file.writeAllAt(text.data(), text.size(), 0);
    int error = errno;
    file.reset();
    if (written && std::rename(beside.c_str(), m_path.c_str()) == 0)
        return 0;
    if (written)
        error = errno;
    unlink(beside.c_str());
    return error != 0 ? error : EIO;
}
}  // namespace session
