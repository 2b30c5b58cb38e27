#include <filesystem>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/frames.h"
#include "KestovaUtils/streamnames.h"
#include "UdpSocket/udpsocket.h"
#include "bindings/c/guard.h"
#include "bindings/c/options.h"
#include "bindings/c/quiet.h"
#include "sessions/record/recordingwriter.h"
#include "sessions/record/sheetfacts.h"

namespace
{
using binding::tError;

constexpr std::size_t cMostBytes = 65'535;  // of a message in a package

recordings::tSheet factsOf(const char* options)
{
    recordings::tSheet facts = session::writtenSheetFacts();
    const binding::tJson json = binding::optionsOf(options, {"spoke"});
    if (!json.contains("spoke") || json["spoke"].is_null())
        return facts;
    facts.spokeLayout = binding::layoutTextOf(json["spoke"]);
    std::vector<utils::tSpokeLayout> layouts;
    std::string error;
    if (!utils::parseSpokeLayouts(facts.spokeLayout, layouts, error))
        throw tError(KESTOVA_ARGUMENT, error);
    return facts;
}

// The info block that a recorder stamps on messages of the stream.
tUdpMsgInfo infoOf(const std::string& stream)
{
    const int kind = utils::streamKind(stream);
    if (kind < 0)
        throw tError(KESTOVA_ARGUMENT, "there is no stream \"" + stream + "\"");
    if (kind == eOtherType)
        return {0, 0, eReadType, eOtherType, 0};
    return {1, 2, eReadType, static_cast<tReadWriteType>(kind), 0};
}

NetAddress groupOf(const std::string& address, std::uint16_t port)
{
    const NetAddress group{net::transAddr(address.c_str()), net::HtoNs(port)};
    if (net::transAddr(group.ip) != address)
        throw tError(KESTOVA_ARGUMENT, "'" + address + "' is no address: write one such as 239.17.0.1");
    return group;
}

// Sentences that point at the console name what it would have shown.
template <typename tWork>
auto explained(tWork work)
try
{
    return work();
}
catch (const recordings::tFailure& failure)
{
    constexpr std::string_view cAbove = ": see the line above";
    std::string text = failure.what();
    if (const std::size_t at = text.find(cAbove); at != std::string::npos)
        text.replace(at, cAbove.size(), ": " + binding::lastConsoleError());
    throw tError(KESTOVA_IO, text);
}
}  // namespace

struct kestova_writer
{
    session::tRecordingWriter writer;
};

kestova_result kestova_writer_open(const char* root, const char* name, const char* options, kestova_writer** out)
{
    return binding::guarded([&] {
        binding::require(root, "root");
        binding::require(name, "name");
        binding::require(out, "out");
        binding::silenceConsole();
        const std::string extName = name;
        if (extName.empty() || extName.find('/') != std::string::npos)
            throw tError(KESTOVA_ARGUMENT, "'" + extName + "' is no name for files");
        recordings::tSheet facts = factsOf(options);
        explained([&] { *out = new kestova_writer{{root, extName, std::move(facts), false}}; });
        return KESTOVA_OK;
    });
}

kestova_result kestova_writer_add(kestova_writer* writer, int64_t time_ms, const char* stream, const char* address,
                                  uint16_t port, const void* data, size_t length)
{
    return binding::guarded([&] {
        binding::require(writer, "writer");
        binding::require(stream, "stream");
        binding::require(address, "address");
        if (length != 0)
            binding::require(data, "data");
        if (time_ms <= 0 || time_ms >= std::int64_t{1} << 48)
            throw tError(KESTOVA_ARGUMENT, "time_ms is no time from 1970 on");
        if (length > cMostBytes)
            throw tError(KESTOVA_ARGUMENT, "a message has at most 65535 bytes");
        const tUdpMsgInfo info = infoOf(stream);
        const NetAddress group = groupOf(address, port);
        explained([&] {
            writer->writer.add(info, group, {static_cast<const char*>(data), length},
                               static_cast<std::uint64_t>(time_ms) * 1000);
        });
        return KESTOVA_OK;
    });
}

kestova_result kestova_writer_close(kestova_writer* writer, char** json)
{
    const std::unique_ptr<kestova_writer> owned(writer);
    return binding::guarded([&] {
        if (writer == nullptr)
            return KESTOVA_OK;
        explained([&] { writer->writer.finish(); });
        if (json == nullptr)
            return KESTOVA_OK;
        const std::vector<std::string>& files = writer->writer.files();
        const std::string folder = files.empty() ? "" : std::filesystem::path(files.front()).parent_path().string();
        const nlohmann::ordered_json result = {
            {"path", folder}, {"files", files}, {"records", writer->writer.recorded()}};
        *json = binding::copyOf(result.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
        return KESTOVA_OK;
    });
}
