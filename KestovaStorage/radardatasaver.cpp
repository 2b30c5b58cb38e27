#include "KestovaStorage/radardatasaver.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/internal/radar/groupreceivers.h"
#include "KestovaStorage/internal/radar/radarstreams.h"
#include "KestovaStorage/internal/radar/recordingname.h"
#include "KestovaStorage/internal/radar/servicequery.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/consoleprint.h"
#include "UdpSocket/udpsocket.h"
#include "common/observers.h"

namespace Kestova
{
namespace
{
constexpr unsigned int cEndTimeout_ms = 5000;  // how long ending a recording waits for the writer

std::vector<eReadWriteType> typesOf(const eReadWriteType* types, int count)
{
    if (types == nullptr || count <= 0)
        return {};
    return {types, types + count};
}

NetAddress groupOf(const char* address, int port)
{
    return {net::transAddr(address), net::HtoNs(static_cast<std::uint16_t>(port))};
}
}  // namespace

// Datagrams go from the receive threads through m_modifyGate and the recorder into the queue of the storage engine.
//
// Locks: m_controlMutex makes connect, disconnect and SocketClear one at a time; below it, m_socketMutex keeps opening
// and closing of the sockets apart. OnLocalIpChanged takes the second alone, so that the listener can be removed (which
// waits for OnLocalIpChanged) under the first. Receivers end (which waits for their callbacks) under either: nothing
// that may be called from inside a callback takes them, for control from there is refused before.
class tRadarDataSaverPrivate : public storage::tDataStorageIO,
                               public net::iDatagramListener,
                               public iMultiRadarCheckerListener
{
public:
    tRadarDataSaverPrivate(const eReadWriteType* types, int count, const std::string& basePath, const char* name);
    ~tRadarDataSaverPrivate() override;

    void OnLocalIpChanged(unsigned int localIp) override;
    void OnDatagram(const net::tReceivedDatagram& datagram) override;

    bool connect(const char* serial, unsigned short id, bool flag);
    bool disconnect();
    void SocketClear();
    bool isConnected() { return m_isConnected; }
    void SetSharedReception(bool shared) { m_shareNext = shared; }
    void SetRecDataModifyObserver(iRadarRecDataModifyObserver* observer) { m_modifyGate.set(observer); }
    void ManualWriteRadarData(const char* groupAddr, int port, const char* data, int len);
    void ManualWriteData(const char* addr, int port, const char* data, int len, unsigned long timestamp);
    std::vector<tGroupState> groupStates() const { return m_receivers.states(); }

private:
    void startRecording(const std::string& name, bool compress);
    bool endRecording();
    bool closeSockets();
    void finishFile();

    tServiceQuery m_serviceQuery;
    tPackageRecorder m_packageRecorder{*this};
    const std::vector<eReadWriteType> m_types;
    std::atomic<bool> m_isConnected{false};
    std::mutex m_controlMutex;
    bool m_registered = false;             // guarded by m_controlMutex: this object is the client's listener
    RadarAddress m_radarAddress{};         // changed while not registered, read by OnLocalIpChanged
    std::mutex m_socketMutex;              // opening and closing of m_receivers and of the query's sender
    std::atomic<bool> m_shareNext{false};  // when the sockets open next
    std::atomic<bool> m_shared{false};     // the sockets that are open; changed under m_socketMutex, without sockets
    tObserverGate<iRadarRecDataModifyObserver> m_modifyGate;
    tGroupReceivers m_receivers{this};
};

tRadarDataSaverPrivate::tRadarDataSaverPrivate(const eReadWriteType* types, int count, const std::string& basePath,
                                               const char* name)
    : storage::tDataStorageIO(basePath, name), m_types(typesOf(types, count))
{}

tRadarDataSaverPrivate::~tRadarDataSaverPrivate()
{
    m_serviceQuery.stop();
    {
        const std::lock_guard<std::mutex> control(m_controlMutex);
        if (m_registered)
            endRecording();
    }
    finishFile();  // one that was started by hand
}

bool tRadarDataSaverPrivate::connect(const char* serial, unsigned short id, bool flag)
{
    if (m_modifyGate.inside())
        return false;
    const std::lock_guard<std::mutex> control(m_controlMutex);
    const std::string radar = serial ? serial : "";
    if (m_registered)
        endRecording();
    m_isConnected = true;  // Kept: it stays set if the radar is unknown.
    MultiRadarClient* const client = MultiRadarClient::getInstance();
    const RadarAddress* const address = client->getAddress(radar.c_str(), id);
    if (address == nullptr)
    {
        Kestova::console::print("radar[%s,id = %d] doesn't exist!\n", radar.c_str(), int{id});
        return false;
    }
    m_radarAddress = *address;
    startRecording(recordingName(radar, id), flag);  // before the sockets can open: what they receive has a file
    client->addListener(this);
    m_registered = true;
    return true;
}

bool tRadarDataSaverPrivate::disconnect()
{
    if (m_modifyGate.inside())
        return false;
    const std::lock_guard<std::mutex> control(m_controlMutex);
    m_isConnected = false;
    return m_registered && endRecording();
}

void tRadarDataSaverPrivate::SocketClear()
{
    if (m_modifyGate.inside())
        return;
    const std::lock_guard<std::mutex> control(m_controlMutex);
    closeSockets();
}

void tRadarDataSaverPrivate::startRecording(const std::string& name, bool compress)
{
    Kestova::console::print("Save %s\r\n", name.c_str());
    finishFile();  // one that was started by hand
    if (!CreateNewWritingFile(0UL, name, compress))
        Kestova::console::printError("Radar data saver: no file for %s could be created, nothing is recorded\n",
                                     name.c_str());
}

// Ends a connection in every state, before the first report of an address too. Returns whether sockets were open.
bool tRadarDataSaverPrivate::endRecording()
{
    m_isConnected = false;
    MultiRadarClient::getInstance()->removeListener(this);
    m_registered = false;
    const bool hadSockets = closeSockets();
    finishFile();
    return hadSockets;
}

bool tRadarDataSaverPrivate::closeSockets()
{
    const std::lock_guard<std::mutex> sockets(m_socketMutex);
    m_serviceQuery.setSink(nullptr);
    return m_receivers.close();
}

void tRadarDataSaverPrivate::finishFile()
{
    const std::string file = GetCurrentWriteDataFileName();
    if (!WaitWriteIdle(cEndTimeout_ms) && !file.empty())
        Kestova::console::printError("Radar data saver: not everything received is in %s\n", file.c_str());
    FinishWrite();
}

void tRadarDataSaverPrivate::OnLocalIpChanged(unsigned int localIp)
{
    if (!m_isConnected)
        return;
    Kestova::console::print("Radar Data Saver Init ...\r\n");
    closeSockets();
    if (!m_receivers.canOpen(localIp))
        return;
    const std::lock_guard<std::mutex> sockets(m_socketMutex);
    m_shared = m_shareNext.load();
    m_receivers.open(radarGroups(m_radarAddress, m_types), localIp, m_shared);
    Kestova::console::print("Radar Data Saver Init Over ...\r\n");
    m_serviceQuery.setSink(net::defaultTransport().openSink(multiRadarServiceAddress(), localIp));
}

void tRadarDataSaverPrivate::OnDatagram(const net::tReceivedDatagram& datagram)
{
    tGroupRow row;
    if (m_receivers.find(datagram.group, row))
    {
        m_modifyGate.through([&](iRadarRecDataModifyObserver& observer) {
            observer.UpdateRecDataModify(row.msgInfo, row.text.data(), net::NtoHs(datagram.group.port), datagram.data,
                                         datagram.len);
        });
        // Threads of their own record in the order of the present time, not quite in that of the times of arrival.
        m_packageRecorder.RecordFine(row.msgInfo, datagram.group, datagram.data, datagram.len,
                                     m_shared ? datagram.arrived_ns / 1000 : 0);
    }
    if (datagram.group == multiRadarServiceAddress())
        m_serviceQuery.heard();
}

void tRadarDataSaverPrivate::ManualWriteRadarData(const char* groupAddr, int port, const char* data, int len)
{
    const std::size_t size = data && len > 0 ? static_cast<std::size_t>(len) : 0;
    std::vector<char> editable(data, data + size);  // the observer may write, the caller's bytes are const
    OnDatagram({{}, groupOf(groupAddr, port), editable.data(), static_cast<int>(size), 0, 0});
}

void tRadarDataSaverPrivate::ManualWriteData(const char* addr, int port, const char* data, int len,
                                             unsigned long timestamp)
{
    if (IsWriteEnable())
        m_packageRecorder.Record(tUdpMsgInfo{}, groupOf(addr, port), data, len, timestamp);
}

tRadarDataSaver::tRadarDataSaver(const eReadWriteType* types, int count, const std::string& basePath, const char* name,
                                 const std::string&)
    : d(new tRadarDataSaverPrivate(types, count, basePath, name))
{}

tRadarDataSaver::~tRadarDataSaver()
{
    delete d;
}

bool tRadarDataSaver::connect(const char* serial, unsigned short id, bool flag)
{
    return d->connect(serial, id, flag);
}

bool tRadarDataSaver::disconnect()
{
    return d->disconnect();
}

void tRadarDataSaver::SocketClear()
{
    d->SocketClear();
}

bool tRadarDataSaver::isConnected()
{
    return d->isConnected();
}

void tRadarDataSaver::SetSharedReception(bool shared)
{
    d->SetSharedReception(shared);
}

void tRadarDataSaver::SetRecDataModifyObserver(iRadarRecDataModifyObserver* observer)
{
    d->SetRecDataModifyObserver(observer);
}

void tRadarDataSaver::ManualWriteRadarData(const char* groupAddr, int port, const char* data, int len)
{
    d->ManualWriteRadarData(groupAddr, port, data, len);
}

void tRadarDataSaver::ManualWriteData(const char* addr, int port, const char* data, int len, unsigned long timestamp)
{
    d->ManualWriteData(addr, port, data, len, timestamp);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is the interface
bool tRadarDataSaver::CreateNewWritingFile(std::string extFileName, bool compress, unsigned long timestamp)
{
    return d->CreateNewWritingFile(timestamp, extFileName, compress);
}

void tRadarDataSaver::FinishWrite()
{
    d->FinishWrite();
}

bool tRadarDataSaver::WaitWriteIdle(unsigned int timeout_ms)
{
    return d->WaitWriteIdle(timeout_ms);
}

std::string tRadarDataSaver::GetCurrentWriteDataFileName()
{
    return d->GetCurrentWriteDataFileName();
}

uint32_t tRadarDataSaver::GetWriteDataFifoSize()
{
    return d->GetWriteDataFifoSize();
}

uint64_t tRadarDataSaver::GetWriteLostCnt() const
{
    return d->GetWriteLostCnt();
}

bool tRadarDataSaver::StartNextFile()
{
    return d->StartNextFile();
}

uint64_t tRadarDataSaver::GetWriteQueuedCnt() const
{
    return d->GetWriteQueuedCnt();
}

uint64_t tRadarDataSaver::GetWriteDoneCnt() const
{
    return d->GetWriteDoneCnt();
}

uint32_t tRadarDataSaver::GetCompressingCnt() const
{
    return d->GetCompressingCnt();
}

void tRadarDataSaver::CancelCompressing()
{
    d->CancelCompressing();
}

void tRadarDataSaver::SetFineTimes(bool on)
{
    d->SetFineTimes(on);
}

void tRadarDataSaver::SetWriteObserver(storage::iWriteObserver* observer)
{
    d->SetWriteObserver(observer);
}

int tRadarDataSaver::GetGroupCounters(tGroupCounters* counters, int count) const
{
    const std::vector<tGroupState> states = d->groupStates();
    const int wanted = counters ? std::min(count, static_cast<int>(states.size())) : 0;
    for (int i = 0; i < wanted; ++i)
    {
        const tGroupState& state = states[static_cast<std::size_t>(i)];
        counters[i] = {state.group.address.ip,      net::NtoHs(state.group.address.port),
                       state.group.msgInfo,         state.joined,
                       state.counters.datagrams,    state.counters.bytes,
                       state.counters.kernelDropped};
    }
    return static_cast<int>(states.size());
}
}  // namespace Kestova
