#include "KestovaStorage/packagebuilderandsplitter.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>

#include "KestovaStorage/internal/package/deliveryworker.h"
#include "KestovaStorage/internal/package/packagebuilder.h"
#include "KestovaStorage/internal/package/packagesplitter.h"
#include "KestovaStorage/internal/package/parseworker.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/consoleprint.h"
#include "UdpSocket/udpsocket.h"
#include "common/byteorder.h"
#include "common/observers.h"

namespace
{
using tPackageObservers = tObserverList<iPackageObserver>;

constexpr std::size_t cManyWaiting = 50;          // split packages; more are reported on the console
constexpr std::size_t cLargestBatch = 32 * 1024;  // bytes queued for the pop thread under one lock

std::size_t lengthOf(const char* data, int len)
{
    return data != nullptr && len > 0 ? static_cast<std::size_t>(len) : 0;
}

// By hand instead of by printf: a large backlog prints a line for every package.
void printWaiting(std::size_t waiting)
{
    constexpr std::string_view cText = "Received Parsed Tcp Package List Size: ";
    char line[80];
    char* end = std::copy(cText.begin(), cText.end(), line);
    end = std::to_chars(end, std::end(line) - 2, static_cast<int>(waiting)).ptr;
    *end++ = '\r';
    *end++ = '\n';
    Kestova::console::write({line, static_cast<std::size_t>(end - line)});
}

bool isForPopThread(const tRadarMsgPackage& package)
{
    return package.msgInfo.type == eReadType || package.msgInfo.type == eWriteType;
}
}  // namespace

// The order of calls between the rooms: received bytes go to m_splitter on the parse thread, from there to the
// observers or the pop thread; built packages go through m_builder to the send thread.
class tPackageBuilderAndSplitterPrivate final : private iSplitterSink
{
public:
    tPackageBuilderAndSplitterPrivate();
    ~tPackageBuilderAndSplitterPrivate() override { m_threadRun = false; }  // no further call; members join

    void setId(int id) { m_id = id; }
    unsigned splittedCount() const { return m_splitter.count(); }
    unsigned buildedCount() const { return m_builder.count(); }
    void receive(const char* bytes, std::size_t len) { m_parseThread.receive(bytes, len); }
    void build(const char* package, std::size_t len);
    void build(const tPackageFields& fields, const char* payload, std::size_t len)
    {
        m_builder.build(fields, payload, len);
    }
    void addObserver(iPackageObserver* observer) { m_packageObservers.add(observer); }
    void removeObserver(iPackageObserver* observer) { m_packageObservers.remove(observer); }
    void clear();
    bool waitBuildIdle(std::chrono::milliseconds timeout) { return m_sendThread.waitIdle(timeout); }

private:
    void OnPackage(const char* package, std::size_t len) override;
    void OnLine(const char* text) override;
    int Id() const override { return m_id; }
    bool GoOn() const override { return m_threadRun; }

    std::size_t parse(const char* bytes, std::size_t len);
    void endPopBatch();
    void notifyBuilt(const char* package, std::size_t len);
    void notifySplit(tPackageObservers::tCaller& caller, const char* package, std::size_t len);
    void onPopped(const char* package, std::size_t len, std::size_t waiting);

    tPackageObservers m_packageObservers;
    tPackageObservers::tCaller m_sendCaller{m_packageObservers};
    tPackageObservers::tCaller m_popCaller{m_packageObservers};
    tPackageObservers::tCaller m_parseCaller{m_packageObservers};
    std::atomic<bool> m_threadRun{true};
    std::atomic<int> m_id{-1};
    tPackageSplitter m_splitter{*this};
    tPackageBuilder m_builder{m_sendThread};
    tDeliveryWorker m_sendThread;  // with the built packages that wait
    tDeliveryWorker m_popThread;   // with the split packages of kinds eReadType and eWriteType that wait
    std::optional<tDeliveryWorker::tBatch> m_popBatch;  // the parse thread's: packages for the pop thread
    std::size_t m_popBatchBytes = 0;                    // the parse thread's
    tParseWorker m_parseThread;                         // with the bytes received and not yet parsed
};

// If a thread cannot be started, leaving the constructor ends those before it.
tPackageBuilderAndSplitterPrivate::tPackageBuilderAndSplitterPrivate()
{
    m_sendThread.start([this](const char* package, std::size_t len, std::size_t) { notifyBuilt(package, len); });
    m_popThread.start(
        [this](const char* package, std::size_t len, std::size_t waiting) { onPopped(package, len, waiting); });
    m_parseThread.start([this](const char* bytes, std::size_t len) { return parse(bytes, len); });
}

void tPackageBuilderAndSplitterPrivate::build(const char* package, std::size_t len)
{
    if (len >= cPackageOverhead)
        m_builder.queueReady(const_cast<char*>(package), len);  // stamped in place, as the header promises
}

void tPackageBuilderAndSplitterPrivate::clear()
{
    m_parseThread.clear();
    m_popThread.discard();
    m_builder.resetCount();
    m_splitter.resetCount();
}

std::size_t tPackageBuilderAndSplitterPrivate::parse(const char* bytes, std::size_t len)
{
    const std::size_t done = m_splitter.split(bytes, len);
    endPopBatch();
    return done;
}

void tPackageBuilderAndSplitterPrivate::OnPackage(const char* package, std::size_t len)
{
    if (!isForPopThread(*asPackage(package, len)))
    {
        endPopBatch();
        notifySplit(m_parseCaller, package, len);
        return;
    }
    if (!m_popBatch)
        m_popBatch.emplace(m_popThread);
    m_popBatch->push(len, [&](char* place) { std::memcpy(place, package, len); });
    m_popBatchBytes += len;
    if (m_popBatchBytes >= cLargestBatch)
        endPopBatch();
}

void tPackageBuilderAndSplitterPrivate::OnLine(const char* text)
{
    endPopBatch();
    Kestova::console::write(text);
}

// Called before anything that may block, so that neither the pop thread nor Clear waits for it. Releases the batch to
// the pop thread.
void tPackageBuilderAndSplitterPrivate::endPopBatch()
{
    m_popBatch.reset();
    m_popBatchBytes = 0;
}

void tPackageBuilderAndSplitterPrivate::onPopped(const char* package, std::size_t len, std::size_t waiting)
{
    if (!m_threadRun)
        return;
    if (waiting > cManyWaiting)
        printWaiting(waiting);
    notifySplit(m_popCaller, package, len);
}

void tPackageBuilderAndSplitterPrivate::notifySplit(tPackageObservers::tCaller& caller, const char* package,
                                                    std::size_t len)
{
    caller.each([&, id = m_id.load()](iPackageObserver* observer) {
        observer->UpdateSplittedPackage(asPackage(package, len), static_cast<unsigned>(len), id);
    });
}

void tPackageBuilderAndSplitterPrivate::notifyBuilt(const char* package, std::size_t len)
{
    if (!m_threadRun)
        return;
    const auto timestamp = le::load<std::uint64_t>(package + offsetof(tRadarMsgPackage, timestamp_ms));
    m_sendCaller.each([&, id = m_id.load()](iPackageObserver* observer) {
        observer->UpdateBuildedPackage(package, static_cast<unsigned>(len), id, timestamp);
    });
}

tPackageBuilderAndSplitter::tPackageBuilderAndSplitter() : d(new tPackageBuilderAndSplitterPrivate) {}

tPackageBuilderAndSplitter::~tPackageBuilderAndSplitter()
{
    delete d;
}

void tPackageBuilderAndSplitter::SetID(int id)
{
    d->setId(id);
}

unsigned int tPackageBuilderAndSplitter::GetSplittedPackageCnt()
{
    return d->splittedCount();
}

unsigned int tPackageBuilderAndSplitter::GetBuildedPackageCnt()
{
    return d->buildedCount();
}

void tPackageBuilderAndSplitter::LoadRecBuff(const char* buff, int len)
{
    if (const std::size_t size = lengthOf(buff, len); size != 0)
        d->receive(buff, size);
}

void tPackageBuilderAndSplitter::BuildPackage(const char* package, int len)
{
    d->build(package, lengthOf(package, len));
}

void tPackageBuilderAndSplitter::BuildPackage(const tUdpMsgInfo& info, const char* udpAddr, int udpPort,
                                              const char* data, int len, unsigned long timestamp)
{
    tPackageFields fields{};
    fields.msgInfo = info;
    fields.udpAddr = net::transAddr(udpAddr);
    fields.udpPort = static_cast<std::uint16_t>(udpPort);
    fields.timestamp_ms = timestamp != 0 ? timestamp : utils::time::tTimeParser::GetCurrentTime_ms();
    d->build(fields, data, lengthOf(data, len));
}

void tPackageBuilderAndSplitter::AddPackageObserer(iPackageObserver* observer)
{
    if (observer != nullptr)
        d->addObserver(observer);
}

void tPackageBuilderAndSplitter::RemovePackageObserer(iPackageObserver* observer)
{
    d->removeObserver(observer);
}

void tPackageBuilderAndSplitter::Clear()
{
    d->clear();
}

bool tPackageBuilderAndSplitter::WaitBuildIdle(unsigned int timeout_ms)
{
    return d->waitBuildIdle(std::chrono::milliseconds(timeout_ms));
}
