#include "KestovaRecordings/internal/messageinput.h"

#include <algorithm>
#include <array>

#include "KestovaRecordings/captureframes.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/framereader.h"
#include "KestovaRecordings/recordcursor.h"
#include "KestovaStorage/packageview.h"
#include "KestovaStorage/pcapreader.h"
#include "UdpSocket/udpsocket.h"

namespace recordings
{
namespace
{
// The numbers of the streams that were met, found by kind and group as packages have them.
class tStreamNumbers
{
public:
    struct tStream
    {
        std::uint64_t stored = UINT64_MAX;  // kind and group
        tStreamNumber number = 0;
        bool chosen = true;
    };

    tStreamNumbers(const tMessageInputOptions& options, tMessageInputResult& result)
        : m_options(options), m_result(result)
    {}

    const tStream& of(tReadWriteType kind, std::uint32_t ip, std::uint16_t port)
    {
        const std::uint64_t stored = std::uint64_t{kind} << 48 | std::uint64_t{ip} << 16 | port;
        tStream& place = m_atHand[(kind ^ port ^ ip >> 24) % m_atHand.size()];
        if (place.stored != stored)
            place = find(stored, kind, NetAddress{ip, net::HtoNs(port)});
        return place;
    }

private:
    const tStream& find(std::uint64_t stored, tReadWriteType kind, const NetAddress& group)
    {
        const auto [found, isNew] = m_streams.try_emplace(stored);
        if (isNew)
            found->second = add(stored, kind, group);
        return found->second;
    }
    tStream add(std::uint64_t stored, tReadWriteType kind, const NetAddress& group)
    {
        const NetAddress mapped = m_options.mapGroup ? m_options.mapGroup(group) : group;
        const tReadWriteType known = m_options.byAddress ? tReadWriteType{} : kind;
        const tStreamNumber number = streamNumber(tStreamKey::of(known, mapped.ip, net::NtoHs(mapped.port)));
        const bool chosen = m_options.streams.includes(kind);
        if (chosen)
            m_result.kinds.try_emplace(number, kind);
        else
            m_result.notChosen.insert(number);
        return {stored, number, chosen};
    }

    const tMessageInputOptions& m_options;
    tMessageInputResult& m_result;
    std::array<tStream, 16> m_atHand;
    std::map<std::uint64_t, tStream> m_streams;
};

class tRecordingMessages : public iMessageInput
{
public:
    explicit tRecordingMessages(const tMessageInputOptions& options) : m_options(options) {}

    void read(tMessageWriter& to) override
    {
        const tFoundFiles found = findAllRecordings({m_options.path}, m_options.suffix);
        tRecordCursor cursor(found.files, m_options.suffix);
        noteLeftOut(found, cursor);
        if (cursor.files() == 0)
            throw nothingLeft(m_result.leftOut);
        readRecords(cursor, to);
        noteLeftOut(found, cursor);
        m_result.damaged = cursor.damaged();
    }
    const tMessageInputResult& result() const override { return m_result; }

private:
    static constexpr std::uint64_t cProgressRecords = 1024;

    void noteLeftOut(const tFoundFiles& found, const tRecordCursor& cursor)
    {
        m_result.leftOut = found.leftOut;
        for (tLeftOut file : cursor.leftOut())
        {
            file.asked = file.path == m_options.path;
            m_result.leftOut.push_back(std::move(file));
        }
    }
    void readRecords(tRecordCursor& cursor, tMessageWriter& to)
    {
        tRecordingRecord record{};
        while (cursor.next(record))
        {
            if (cursor.passed() % cProgressRecords == 0)
                to.advanceTo(static_cast<double>(cursor.passed()) / static_cast<double>(cursor.records()));
            if (!add(record, to))
                return;
        }
        to.flush();
    }
    bool add(const tRecordingRecord& record, tMessageWriter& to)
    {
        const auto timeUs = static_cast<std::int64_t>(record.timeMs * 1000) + std::max(record.fineTime, 0);
        const tRadarMsgPackage* const package = asWholePackage(record.bytes.data(), record.bytes.size());
        if (package == nullptr)
            return !m_options.streams.includesAll() || to.add({0, timeUs, record.bytes});
        const auto& stream = m_streams.of(package->msgInfo.rwType, package->udpAddr, package->udpPort);
        return !stream.chosen ||
               to.add({stream.number, timeUs, record.bytes.substr(cPackageHeadSize, package->msgLen)});
    }

    const tMessageInputOptions m_options;
    tMessageInputResult m_result;
    tStreamNumbers m_streams{m_options, m_result};
};

class tCaptureMessages : public iMessageInput, private pcap::iPcapDatagramObserver
{
public:
    explicit tCaptureMessages(const tMessageInputOptions& options) : m_options(options) {}

    void read(tMessageWriter& to) override
    {
        m_to = &to;
        pcap::tPcapReader reader(m_options.path, nullptr);
        m_reader = &reader;
        reader.SetDatagramObserver(this);
        reader.ReportAtEndOnly(true);
        reader.KeepReading(true);
        reader.ReadTagsAndOptions(true);
        readFrames(reader);
        to.flush();
        const pcap::tPcapReadResult result = reader.GetReadResult();
        if (result.cut)
            m_result.leftOut.push_back({m_options.path, "it ends within a record, which is left out", false});
        m_result.damaged = result.padded + result.pending + result.orphans;
    }
    const tMessageInputResult& result() const override { return m_result; }

private:
    // Not through Read(), which is faster and prints.
    void readFrames(pcap::tPcapReader& reader)
    {
        tFrameReader frames(m_options.path, [this](std::uint64_t bytes) {
            if (m_framesSize != 0)
                m_to->advanceTo(static_cast<double>(bytes) / static_cast<double>(m_framesSize));
            return true;
        });
        m_framesSize = frames.size();
        reader.ReadFrames(frames, {});
        if (const std::string failure = frames.failure(); !failure.empty())
            m_result.leftOut.push_back({m_options.path, "it cannot be read to its end: " + failure, false});
    }
    void UpdatePcapDatagram(const pcap::tPcapDatagram& datagram) override
    {
        const auto& stream =
            m_streams.of(tReadWriteType{}, net::transAddr(datagram.address), static_cast<std::uint16_t>(datagram.port));
        const std::string_view payload(datagram.payload, static_cast<std::size_t>(datagram.len));
        if (!m_to->add({stream.number, static_cast<std::int64_t>(datagram.time_us), payload}))
            m_reader->StopRead();
    }

    const tMessageInputOptions m_options;
    tMessageInputResult m_result;
    std::uint64_t m_framesSize = 0;
    tMessageWriter* m_to = nullptr;
    pcap::tPcapReader* m_reader = nullptr;
    tStreamNumbers m_streams{m_options, m_result};
};
}  // namespace

std::unique_ptr<iMessageInput> openMessageInput(const tMessageInputOptions& options)
{
    if (!isCapture(options.path))
        return std::make_unique<tRecordingMessages>(options);
    tMessageInputOptions ofCapture = options;
    ofCapture.streams = {};  // a capture does not name the stream of a group
    return std::make_unique<tCaptureMessages>(ofCapture);
}
}  // namespace recordings
