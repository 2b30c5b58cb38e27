#include "KestovaStorage/pcapreader.h"

#include <atomic>
#include <memory>

#include "KestovaStorage/internal/capture/capturefile.h"
#include "KestovaStorage/internal/capture/capturepass.h"
#include "UdpSocket/consoleprint.h"

namespace pcap
{
using tSelectedStreams = std::set<std::pair<std::string, int>>;

namespace
{
// Sets a flag for as long as it lives, if it is not set.
class tReadGuard
{
public:
    explicit tReadGuard(std::atomic<bool>& flag) : m_flag(flag), m_acquired(!flag.exchange(true)) {}
    ~tReadGuard()
    {
        if (m_acquired)
            m_flag = false;
    }
    tReadGuard(const tReadGuard&) = delete;
    tReadGuard& operator=(const tReadGuard&) = delete;
    bool acquired() const { return m_acquired; }

private:
    std::atomic<bool>& m_flag;
    const bool m_acquired;
};
}  // namespace

class tPcapReaderPrivate
{
public:
    tPcapReaderPrivate(const std::string& path, iPcapDataReadObserver* observer) : m_path(path), m_notifier(observer) {}
    virtual ~tPcapReaderPrivate() = default;

    // `frames` null: the file.
    void read(const tSelectedStreams& selection, iPcapFrameSource* frames);

    const std::string m_path;
    tCaptureNotifier m_notifier;
    tReadRequest m_request;
    tStreamStatistics m_statistics;
    tPcapReadResult m_result{};
    std::atomic<bool> m_reading{false}, m_stop{false};

private:
    bool readFile();
    void readFrames(iPcapFrameSource& source);
};

void tPcapReaderPrivate::read(const tSelectedStreams& selection, iPcapFrameSource* frames)
{
    const tReadGuard reading(m_reading);
    if (!reading.acquired())
        return;
    m_stop = false;
    m_request.selection.assign(selection);
    m_statistics.clear();
    m_result = {};
    if (frames != nullptr)
        readFrames(*frames);
    if (frames != nullptr || readFile())
        m_notifier.progress(100.0, 0);
    if (m_notifier.wantsData() && m_request.selection.empty())
        m_notifier.rows(m_statistics.rows());
}

// The file is closed when it returns.
bool tPcapReaderPrivate::readFile()
{
    const std::unique_ptr<tCaptureFile> file = tCaptureFile::open(m_path);
    if (!file)
    {
        Kestova::console::print("Read Pcap File: %s, open failed!\r\n", m_path.c_str());
        return false;
    }
    Kestova::console::print("Pcap: head %08X linktype %d\r\n\r\n", file->magic(), static_cast<int>(file->linkType()));
    m_result.opened = true;
    m_result.fileBytes = file->size();
    tCapturePass pass(m_request, m_statistics, m_notifier, m_result);
    pass.read(*file, m_stop);
    pass.printTotals();
    return true;
}

void tPcapReaderPrivate::readFrames(iPcapFrameSource& source)
{
    tFrameInput frames(source);
    m_result.opened = true;
    tCapturePass(m_request, m_statistics, m_notifier, m_result).read(frames, m_stop);
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
    d->read(selection, nullptr);
}

void tPcapReader::ReadFrames(iPcapFrameSource& source, const std::set<std::pair<std::string, int>>& selection)
{
    d->read(selection, &source);
}

void tPcapReader::StopRead()
{
    d->m_stop = true;
}

void tPcapReader::SetDatagramObserver(iPcapDatagramObserver* observer)
{
    d->m_notifier.setDatagramObserver(observer);
}

void tPcapReader::KeepReading(bool on)
{
    d->m_request.keepReading = on;
}

void tPcapReader::ReportAtEndOnly(bool on)
{
    d->m_request.reportAtEndOnly = on;
}

void tPcapReader::ReadTagsAndOptions(bool on)
{
    d->m_request.tagsAndOptions = on;
}

const std::vector<tUdpMulticast>& tPcapReader::GetUdpMulticast()
{
    return d->m_statistics.rows();
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
