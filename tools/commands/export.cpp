// kestova export: writes a recording as a capture for Wireshark and tcpdump.
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <mutex>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/capturewriter.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/frames.h"
#include "KestovaRecordings/groupaddress.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/replay/replayprogress.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions
{
    std::string path;
    std::string suffix = ".data";
    std::vector<std::string> streams;
    std::string capture;
    std::string source = "192.0.2.1:6000";  // an address for documentation: recordings do not hold the sender
    bool json = false;
};

// A jump beyond the end plays everything in order of time, without waits.
constexpr double cWithoutWaiting = 2.0;

class tExport : private storage::iDataReadReplayObserver
{
public:
    tExport(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_streams(parseStreams(options.streams)),
          m_source(parseGroup(options.source)), m_files(findRecordings(options.path, options.suffix)),
          m_progress([this](const session::tReplayState&) {
              m_progress.beginJump();
              m_storage.Jump(cWithoutWaiting);
          }),
          m_storage("", options.suffix.c_str())
    {
        if (std::filesystem::exists(options.capture))
            throw tFailure(options.capture + " exists already: remove it, or choose another name");
        m_writer = std::make_unique<tCaptureWriter>(options.capture);
    }

    int run()
    {
        m_storage.OpenReadDataFileorFolder(m_options.path, this);
        while (!m_progress.state().ended && !m_stop.wait(std::chrono::milliseconds(5)) && failure().empty())
        {
            if (m_console.progressDue())
                m_console.progress(fmt::format("{:>7}  {} datagrams", percentText(m_progress.state().fraction),
                                               m_progress.state().records));
        }
        m_storage.CloseReadingFile();
        if (!failure().empty())
            throw tFailure(failure());
        if (m_stop.requested())
            throw tFailure("interrupted; " + m_options.capture + " was not written");
        m_writer->finish();
        return report();
    }

private:
    void UpdateReplayStatus(std::uint8_t status) override { m_progress.status(status); }
    void UpdateDataTimeSpan(std::uint64_t first, std::uint64_t last) override { m_progress.span(first, last); }
    void UpdateReplayData(std::uint64_t timeMs, double progress, const char* data, unsigned int len,
                          std::string) override
    try
    {
        m_progress.passed(timeMs, progress);
        ++m_played;
        const auto package = viewPackage({data, len});
        if (!package || package->ip == 0 || package->port == 0 || package->payload.size() > cMaxDatagram)
            ++m_noDatagram;
        else if (m_streams.includes(package->info.rwType))
            write(timeMs, *package);
    }
    catch (const tFailure& failure)
    {
        const std::lock_guard lock(m_mutex);
        if (m_failure.empty())
            m_failure = failure.what();
    }

    void write(std::uint64_t timeMs, const tPackageContents& package)
    {
        const NetAddress to{package.ip, net::HtoNs(package.port)};
        for (const std::string& frame : framesOf(m_source, to, package.payload, m_id++))
        {
            m_writer->add(timeMs, frame);
            ++m_frames;
        }
        m_progress.count(tStreamKey::of(package.info.rwType, package.ip, package.port), package.payload);
    }

    std::string failure() const
    {
        const std::lock_guard lock(m_mutex);
        return m_failure;
    }

    std::uint64_t countDamaged() const
    {
        std::uint64_t damaged = 0, records = 0;
        for (const std::string& path : m_files)
        {
            storage::tDataFile file;
            if (!file.open(path))
                continue;
            damaged += file.damagedCount();
            records += file.recordCount();
        }
        return damaged + (records > m_played ? records - m_played : 0);
    }

    int report()
    {
        const std::uint64_t damaged = countDamaged();
        const tStreamCounts counts = m_progress.counts();
        if (m_options.json)
            printJson(m_console, {{"schema", "kestova/export/2"},
                                  {"path", m_options.path},
                                  {"capture", m_options.capture},
                                  {"datagrams", total(counts).messages},
                                  {"frames", m_frames},
                                  {"no_datagrams", m_noDatagram},
                                  {"damaged", damaged},
                                  {"streams", streamsJson(counts, "datagrams")}});
        else
            m_console.print(streamsText(counts, "datagrams") +
                            fmt::format("{}  {} frames\n", m_options.capture, m_frames));
        if (m_noDatagram != 0)
            m_console.note(fmt::format("kestova export: {} records are no datagrams and were left out", m_noDatagram));
        if (damaged != 0)
            m_console.note(fmt::format("kestova export: {} damaged records were left out; see kestova info", damaged));
        return m_noDatagram == 0 && damaged == 0 ? eDone : eDamaged;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    const tStreamChoice m_streams;
    const NetAddress m_source;
    const std::vector<std::string> m_files;
    std::unique_ptr<tCaptureWriter> m_writer;
    // The replay thread writes them; run() reads them after its end.
    std::uint16_t m_id = 0;
    std::uint64_t m_played = 0, m_noDatagram = 0, m_frames = 0;
    mutable std::mutex m_mutex;
    std::string m_failure;  // guarded by m_mutex
    session::tReplayProgress m_progress;
    storage::tDataStorageIO m_storage;  // last: its threads call this object
};
}  // namespace

void addExport(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("export", "Write a recording as a capture for Wireshark and tcpdump");
    command.footer("Every datagram in order of time, as Ethernet frames with right checksums; datagrams larger than a\n"
                   "frame in fragments. Exit status 3 if records were left out.\n"
                   "Example: kestova export recordings --pcap radar.pcap");
    addPath(command, options->path);
    command.add_option("--pcap", options->capture, "The capture to write; must not exist")
        ->type_name("FILE")
        ->required();
    command.add_option("--suffix", options->suffix, "What names of data files in a folder end in")
        ->capture_default_str();
    command.add_option("--source", options->source, "Sender of every datagram: recordings do not hold it")
        ->type_name("ADDRESS:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str();
    addStreams(command, options->streams);
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return tExport(*options, console).run(); }; });
}
}  // namespace tool
