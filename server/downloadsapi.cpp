#include "server/downloadsapi.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>

#include "KestovaRecordings/cut.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/groupaddress.h"
#include "KestovaRecordings/recordinglist.h"
#include "server/answers.h"
#include "server/tar.h"
#include "sessions/export/captureexporter.h"
#include "sessions/export/exportsession.h"

namespace server
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cLatestMs = std::uint64_t(1) << 48;
constexpr char cSource[] = "192.0.2.1:6000";  // as of `kestova export`: recordings do not hold the sender
constexpr std::uint64_t cRoomLeft = std::uint64_t(1) << 30;  // on the disk of what is cut for a download

struct tPiece
{
    std::uint64_t fromMs, toMs;
    tStreamChoice streams;
};

tPiece pieceOf(const tTarget& target)
{
    tPiece piece{target.number("from_ms", 0, cLatestMs).value_or(0),
                 target.number("to_ms", 0, cLatestMs).value_or(cLatestMs),
                 {}};
    if (piece.toMs <= piece.fromMs)
        throw tRefusal(400, "bad_value", "to_ms is not behind from_ms");
    try
    {
        if (!target.text("streams").empty())
            piece.streams = parseStreams({target.text("streams")});
    }
    catch (const std::invalid_argument& error)
    {
        throw tRefusal(400, "bad_value", error.what());
    }
    return piece;
}

// A folder for what is cut, outside of the roots; removed with the object.
class tScratch
{
public:
    tScratch()
    {
        const char* const given = std::getenv("TMPDIR");
        std::string pattern = std::string(given != nullptr && *given != '\0' ? given : "/var/tmp") + "/kestova-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr)
            throw tRefusal(507, "no_room",
                           "no folder for the piece can be made in " + pattern.substr(0, pattern.rfind('/')),
                           "set TMPDIR for the server");
        m_path = pattern;
    }
    ~tScratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    tScratch(const tScratch&) = delete;
    tScratch& operator=(const tScratch&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

struct tKept
{
    tScratch scratch;
    tSlot slot;
};

// Also the file before: it has the state at the beginning.
std::vector<std::string> filesIn(const std::string& folder, const tPiece& piece, std::uint64_t& bytes)
{
    std::vector<std::string> files;
    std::string before;
    bytes = 0;
    for (const tListedFile& file : listDataFiles(folder))
    {
        if (file.records != 0 && file.lastMs < piece.fromMs)
            before = file.path;
        if (file.records != 0 && file.firstMs < piece.toMs && file.lastMs >= piece.fromMs)
        {
            files.push_back(file.path);
            const std::uint64_t span = file.lastMs - file.firstMs + 1;
            const std::uint64_t part = std::min(file.lastMs + 1, piece.toMs) - std::max(file.firstMs, piece.fromMs);
            bytes += static_cast<std::uint64_t>(static_cast<double>(file.sizeBytes) * static_cast<double>(part) /
                                                static_cast<double>(span));
        }
    }
    if (files.empty())
        throw tRefusal(404, "nothing_there", "nothing was recorded in that time");
    if (!before.empty())
        files.insert(files.begin(), before);
    return files;
}

void requireRoom(const std::string& folder, std::uint64_t bytes)
{
    std::error_code error;
    const auto space = std::filesystem::space(folder, error);
    if (!error && space.available < bytes + cRoomLeft)
        throw tRefusal(507, "no_room", "there is no room for a piece of that size", "cut a shorter one");
}

std::string nameOf(const std::string& folder)
{
    return std::filesystem::path(folder).filename().string();
}
}  // namespace

void tDownloadsApi::addTo(tRoutes& routes)
{
    routes.add("GET", "/api/v1/recordings/*/files/*", [this](const tCall& call) { return file(call); });
    routes.add("GET", "/api/v1/recordings/*/cut.tar", [this](const tCall& call) { return tar(call); });
    routes.add("GET", "/api/v1/recordings/*/cut.pcap", [this](const tCall& call) { return pcap(call); });
}

tHttpAnswer tDownloadsApi::file(const tCall& call)
{
    const auto slot = std::make_shared<tDownloadSlot>(m_downloads);
    const std::string& n = call.parts[1];
    const auto files = listDataFiles(m_archive.folderOf(call.parts[0]));
    for (std::size_t i = 0; i < files.size(); ++i)
        if (n == std::to_string(i))
            return fileAnswer(call.request, files[i].path, slot);
    throw tRefusal(404, "no_file", "the recording has no such file");
}

tHttpAnswer tDownloadsApi::tar(const tCall& call)
{
    const auto kept = std::make_shared<tKept>();
    kept->slot = std::make_shared<tDownloadSlot>(m_downloads);
    const std::string folder = m_archive.folderOf(call.parts[0]);
    const tPiece piece = pieceOf(call.target);
    std::uint64_t bytes = 0;
    tCutOptions options;
    options.paths = filesIn(folder, piece, bytes);
    requireRoom(kept->scratch.path(), bytes);
    options.folder = kept->scratch.path() + "/cut";
    options.start = tMoment{tMoment::eAbsolute, static_cast<double>(piece.fromMs)};
    options.end = tMoment{tMoment::eAbsolute, static_cast<double>(piece.toMs)};
    options.streams = piece.streams;
    try
    {
        if (!cutRecordings(options, [this](double) { return !m_cancelled; }).complete)
            throw tRefusal(503, "ending", "the server ends");
    }
    catch (const tNothingToCut&)
    {
        throw tRefusal(404, "nothing_there", "nothing was recorded in that time");
    }
    const auto body = std::make_shared<tTarBody>(options.folder, nameOf(folder) + "_cut", kept);
    tHttpAnswer answer;
    answer.headers = downloadHeaders("application/x-tar", nameOf(folder) + "_cut.tar");
    answer.length = body->length();
    answer.stream = body;
    return answer;
}

tHttpAnswer tDownloadsApi::pcap(const tCall& call)
{
    const auto slot = std::make_shared<tDownloadSlot>(m_downloads);
    const std::string folder = m_archive.folderOf(call.parts[0]);
    const tPiece piece = pieceOf(call.target);
    std::uint64_t bytes = 0;
    session::tExportOptions options;
    options.paths = filesIn(folder, piece, bytes);
    options.streams = piece.streams;
    options.start = tMoment{tMoment::eAbsolute, static_cast<double>(piece.fromMs)};
    options.end = tMoment{tMoment::eAbsolute, static_cast<double>(piece.toMs)};
    options.output = nameOf(folder) + ".pcap";
    options.isStream = true;
    tHttpAnswer answer;
    answer.headers = downloadHeaders("application/vnd.tcpdump.pcap", options.output);
    answer.stream = std::make_shared<tPipeBody>(
        [this, options](int descriptor, const std::atomic<bool>& isCancelled) mutable {
            options.open = [&](const std::vector<std::string>&) {
                session::tCaptureOptions wanted;
                wanted.capture = options.output;
                wanted.output = descriptor;
                wanted.source = parseGroup(cSource);
                return std::make_unique<session::tCaptureExporter>(std::move(wanted));
            };
            session::tExportSession(options).run([&](double) { return !isCancelled && !m_cancelled; });
        },
        slot);
    return answer;
}
}  // namespace server
