#include "KestovaStorage/pcapreader.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "KestovaStorage/internal/capture/addresstexts.h"
#include "KestovaStorage/internal/capture/capturefile.h"
#include "KestovaStorage/internal/capture/countreport.h"
#include "KestovaStorage/internal/capture/datagramassembly.h"
#include "KestovaStorage/internal/capture/datagramcounts.h"
#include "KestovaStorage/internal/capture/datagramkind.h"
#include "KestovaStorage/internal/capture/messagecounts.h"
#include "KestovaStorage/internal/capture/selection.h"
#include "KestovaStorage/internal/capture/sensorsentence.h"

namespace pcap
{
using tChosen = std::set<std::pair<std::string, int>>;

namespace
{
// The zero byte behind a payload that is handed out, where the next record may begin.
class tZeroBehind
{
public:
    explicit tZeroBehind(const tDatagram& datagram) : m_end(datagram.payload + datagram.length), m_kept(*m_end)
    {
        *m_end = '\0';
    }
    ~tZeroBehind() { *m_end = m_kept; }
    tZeroBehind(const tZeroBehind&) = delete;
    tZeroBehind& operator=(const tZeroBehind&) = delete;

private:
    char* const m_end;
    const char m_kept;
};

// Sets a flag for as long as it lives, if nobody else has.
class tOnlyOne
{
public:
    explicit tOnlyOne(std::atomic<bool>& flag) : m_flag(flag), m_isMe(!flag.exchange(true)) {}
    ~tOnlyOne()
    {
        if (m_isMe)
            m_flag = false;
    }
    tOnlyOne(const tOnlyOne&) = delete;
    tOnlyOne& operator=(const tOnlyOne&) = delete;
    bool isMe() const { return m_isMe; }

private:
    std::atomic<bool>& m_flag;
    const bool m_isMe;
};

std::uint64_t microseconds(const tCaptureRecord& record)
{
    return record.seconds * std::uint64_t{1'000'000} + record.microseconds;
}

// Rounded to the nearest.
tTimes_ms milliseconds(const tCaptureRecord& record)
{
    return record.seconds * tTimes_ms{1000} + (record.microseconds + tTimes_ms{500}) / 1000;
}
}  // namespace

class tPcapReaderPrivate
{
public:
    tPcapReaderPrivate(const std::string& path, iPcapDataReadObserver* observer) : m_path(path), m_observer(observer) {}
    virtual ~tPcapReaderPrivate() = default;

    void read(const tChosen& selection);
    const std::vector<tUdpMulticast>& rows();

    const std::string m_path;
    iPcapDataReadObserver* const m_observer;
    iPcapDatagramObserver* m_datagramObserver = nullptr;
    bool m_keepReading = false, m_reportAtEndOnly = false;
    std::atomic<bool> m_reading{false}, m_stop{false};
    tPcapReadResult m_result{};

private:
    // What belongs to one pass over the file.
    struct tPass
    {
        explicit tPass(tCaptureFile& capture) : file(capture) {}
        tCaptureFile& file;
        tDatagramAssembly assembly;
        tMessageCounts counts;
        tCaptureRecord record{};  // the one in hand, and its time
        tTimes_ms time = 0;
        int permille = 0;
    };

    void readFile();
    void readRecords(tPass& pass);
    void readRecord(tPass& pass);
    void tellProgress(tPass& pass);
    void takeDatagram(tPass& pass, const tDatagram& datagram);
    eKind kindOf(const tDatagram& datagram) const;
    void tellDatagram(const tPass& pass, const tDatagram& datagram, eKind kind);
    void deliver(const tPass& pass, const tDatagram& datagram, eTraffic traffic);
    void end(tPass& pass);
    void noteResult(const tPass& pass);
    void GetUdpInfo();

    tSelection m_appointAddrPnt;
    tDatagramCounts m_streams;
    tCountReport m_report;
    tAddressTexts m_sources, m_destinations;
    tSensorSentence m_sentence;
};

void tPcapReaderPrivate::read(const tChosen& selection)
{
    const tOnlyOne reading(m_reading);
    if (!reading.isMe())
        return;
    m_stop = false;
    m_appointAddrPnt.assign(selection);
    m_streams.clear();
    m_report.clear();
    m_result = {};
    readFile();
    GetUdpInfo();
}

void tPcapReaderPrivate::readFile()
{
    {  // the file is closed before the last progress is told
        const std::unique_ptr<tCaptureFile> file = tCaptureFile::open(m_path);
        if (!file)
        {
            std::printf("Read Pcap File: %s, open failed!\r\n", m_path.c_str());
            return;
        }
        std::printf("Pcap: head %08X linktype %d\r\n\r\n", file->magic(), static_cast<int>(file->linkType()));
        tPass pass(*file);
        m_result.opened = true;
        m_result.fileBytes = file->size();
        readRecords(pass);
        end(pass);
    }
    if (m_observer != nullptr)
        m_observer->UpdatePcapReadProgress(100.0, 0);
}

void tPcapReaderPrivate::readRecords(tPass& pass)
try
{
    while (!m_stop.load(std::memory_order_relaxed) && pass.file.next(pass.record))
    {
        ++m_result.records;
        if (tDatagramAssembly::concerns(pass.record))
            readRecord(pass);
        else
            ++m_result.skippedRecords;
    }
    m_result.finished = pass.file.atEnd();
    m_result.stopped = m_stop && !m_result.finished;
    noteResult(pass);
}
catch (...)
{
    noteResult(pass);
    throw;
}

void tPcapReaderPrivate::readRecord(tPass& pass)
{
    pass.time = milliseconds(pass.record);
    m_result.lastTime_us = microseconds(pass.record);
    if (m_result.firstTime_us == 0)
        m_result.firstTime_us = m_result.lastTime_us;
    tellProgress(pass);
    tDatagram datagram;
    if (pass.assembly.take(pass.record, datagram))
        takeDatagram(pass, datagram);
}

void tPcapReaderPrivate::tellProgress(tPass& pass)
{
    if (m_result.records == 1 && m_observer != nullptr)
        m_observer->UpdatePcapReadProgress(0.0, pass.time);
    const double read = static_cast<double>(pass.record.end), size = static_cast<double>(pass.file.size());
    const int permille = static_cast<int>(read / size * 1000.0);
    if (permille == pass.permille)
        return;
    pass.permille = permille;
    std::fflush(stdout);
    if (!m_reportAtEndOnly)
        GetUdpInfo();
    if (m_observer != nullptr)
        m_observer->UpdatePcapReadProgress(permille / 10.0, pass.time);
}

void tPcapReaderPrivate::takeDatagram(tPass& pass, const tDatagram& datagram)
{
    const bool selected = m_appointAddrPnt.contains(datagram.stream);
    const bool watched =
        m_datagramObserver != nullptr && (datagram.stream & cNoAddress) == 0 && (selected || m_appointAddrPnt.empty());
    if (datagram.length == 0)
    {
        if (watched)
            tellDatagram(pass, datagram, eKind::eUnknow);
        return;
    }
    const eKind kind = kindOf(datagram);
    const auto length = static_cast<std::uint32_t>(datagram.length);
    const eTraffic traffic = m_streams.count(datagram.stream, length, kind).traffic;
    ++m_result.datagrams;
    const bool withheld = !pass.counts.add(traffic, {datagram.payload, length});
    if (watched)
        tellDatagram(pass, datagram, kind);
    if (selected && !withheld && m_observer != nullptr)
        deliver(pass, datagram, traffic);
}

eKind tPcapReaderPrivate::kindOf(const tDatagram& datagram) const
try
{
    return udpType(datagram.stream, {datagram.payload, static_cast<std::size_t>(datagram.length)});
}
catch (const std::out_of_range&)
{
    if (!m_keepReading)
        throw;
    return eKind::eUnknow;
}

void tPcapReaderPrivate::tellDatagram(const tPass& pass, const tDatagram& datagram, eKind kind)
{
    const tZeroBehind zero(datagram);
    tPcapDatagram told{};
    told.time_us = microseconds(pass.record);
    told.record = m_result.records;
    told.sourceAddress = m_sources.of(datagram.source);
    told.sourcePort = datagram.sourcePort;
    told.address = m_destinations.of(static_cast<std::uint32_t>(datagram.stream >> 16));
    told.port = portOf(datagram.stream);
    told.kind = kindText(kind);
    told.payload = datagram.payload;
    told.len = datagram.length;
    m_datagramObserver->UpdatePcapDatagram(told);
}

void tPcapReaderPrivate::deliver(const tPass& pass, const tDatagram& datagram, eTraffic traffic)
{
    const char* const address = m_destinations.of(static_cast<std::uint32_t>(datagram.stream >> 16));
    const double progress = pass.permille / 1000.0;
    if (traffic == eTraffic::eSensor)
    {
        const std::string& sentence =
            m_sentence.stamped({datagram.payload, static_cast<std::size_t>(datagram.length)}, pass.time);
        m_observer->UpdatePcapReadData(pass.time, progress, address, portOf(datagram.stream), sentence.c_str(),
                                       static_cast<int>(sentence.size()));
        return;
    }
    const tZeroBehind zero(datagram);
    m_observer->UpdatePcapReadData(pass.time, progress, address, portOf(datagram.stream), datagram.payload,
                                   datagram.length);
}

void tPcapReaderPrivate::end(tPass& pass)
{
    if (!m_appointAddrPnt.empty() && m_observer != nullptr)
        m_observer->UpdatePcapReadData(0, -1.0, nullptr, 0, nullptr, 0);
    pass.counts.print(pass.assembly.counts().subErr);
}

void tPcapReaderPrivate::noteResult(const tPass& pass)
{
    const tAssemblyCounts& counts = pass.assembly.counts();
    m_result.cut = pass.record.cut || pass.file.size() < sizeof(tPcapFileHeader);
    m_result.droppedRecords = counts.dropped;
    m_result.orphans = counts.orphans;
    m_result.padded = counts.padded;
    m_result.emptyBeginnings = static_cast<std::uint64_t>(counts.subErr);
    m_result.pending = pass.assembly.pending();
}

// Rows that nobody would see are not composed.
void tPcapReaderPrivate::GetUdpInfo()
{
    if (m_observer != nullptr && m_appointAddrPnt.empty())
        m_observer->UpdatePcapUdpMulticast(rows());
}

const std::vector<tUdpMulticast>& tPcapReaderPrivate::rows()
try
{
    return m_report.update(m_streams);
}
catch (...)
{
    m_report.clear();  // half updated, it fits no table any more
    m_streams.clear();
    throw;
}

tPcapReader::tPcapReader(const std::string& path, iPcapDataReadObserver* observer)
    : d(new tPcapReaderPrivate(path, observer))
{}

tPcapReader::~tPcapReader()
{
    delete d;
}

void tPcapReader::Read(const std::set<std::pair<std::string, int>>& selection)
{
    d->read(selection);
}

void tPcapReader::StopRead()
{
    d->m_stop = true;
}

void tPcapReader::SetDatagramObserver(iPcapDatagramObserver* observer)
{
    d->m_datagramObserver = observer;
}

void tPcapReader::KeepReading(bool on)
{
    d->m_keepReading = on;
}

void tPcapReader::ReportAtEndOnly(bool on)
{
    d->m_reportAtEndOnly = on;
}

const std::vector<tUdpMulticast>& tPcapReader::GetUdpMulticast()
{
    return d->rows();
}

tPcapReadResult tPcapReader::GetReadResult() const
{
    return d->m_result;
}

bool tPcapReader::GetFileHead(const std::string& path, tPcapFileHead& head)
{
    const std::unique_ptr<tCaptureFile> file = tCaptureFile::open(path);
    if (!file || file->size() < sizeof(tPcapFileHeader))
        return false;
    head = {file->magic(), file->linkType()};
    return true;
}
}  // namespace pcap
