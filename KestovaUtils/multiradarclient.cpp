#include "KestovaUtils/multiradarclient.h"

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "KestovaUtils/internal/addressnotifier.h"
#include "KestovaUtils/internal/radardirectory.h"
#include "UdpSocket/consoleprint.h"
#include "UdpSocket/interfacewatcher.h"

namespace
{
// The radars by serial and id. Never changes or frees a record, since callers hold pointers to it: keeps replaced ones.
class tRadars
{
public:
    void put(const std::string& serial, unsigned short id, const RadarAddress& record)
    {
        std::unique_ptr<const RadarAddress>& place = m_radars[{serial, id}];
        if (place && std::memcmp(place.get(), &record, sizeof record) == 0)
            return;  // loading the same file again takes no memory
        if (place)
            m_replaced.push_back(std::move(place));
        place = std::make_unique<const RadarAddress>(record);
    }
    const RadarAddress* find(const std::string& serial, unsigned short id) const
    {
        const auto found = m_radars.find({serial, id});
        return found == m_radars.end() ? nullptr : found->second.get();
    }
    void putSpoke(const std::string& serial, unsigned short id, const std::string& spoke)
    {
        m_spokes[{serial, id}] = spoke;
    }
    std::string spoke(const std::string& serial, unsigned short id) const
    {
        const auto found = m_spokes.find({serial, id});
        return found == m_spokes.end() ? std::string() : found->second;
    }
    std::vector<tRadarName> names() const
    {
        std::vector<tRadarName> names;
        for (const auto& radar : m_radars)
            names.push_back({radar.first.first, radar.first.second});
        return names;
    }

private:
    using tKey = std::pair<std::string, unsigned short>;
    std::map<tKey, std::unique_ptr<const RadarAddress>> m_radars;
    std::map<tKey, std::string> m_spokes;
    std::vector<std::unique_ptr<const RadarAddress>> m_replaced;
};
}  // namespace

class KESTOVA_HIDDEN MultiRadarClient::tMultiRadarClientPrivate
{
public:
    // Starts to follow the interface with the first listener.
    void watch()
    {
        std::call_once(m_watching,
                       [this] { m_watcher.start([this](std::uint32_t localIp) { m_notifier.changed(localIp); }); });
    }

    mutable std::mutex m_radarsMutex;
    tRadars m_radars;  // guarded by m_radarsMutex
    std::once_flag m_watching;
    utils::tAddressNotifier m_notifier;
    net::tInterfaceWatcher m_watcher;
};

// Never destroyed: its threads may be in a call when the process ends, and objects that outlive main() may still use
// it.
MultiRadarClient* MultiRadarClient::getInstance()
{
    static auto* const instance = new MultiRadarClient;
    return instance;
}

MultiRadarClient::MultiRadarClient() : d(new tMultiRadarClientPrivate) {}

MultiRadarClient::~MultiRadarClient()
{
    delete d;
}

bool MultiRadarClient::loadDirectory(const std::string& path, std::string* error)
{
    std::vector<utils::tRadarEntry> radars;
    std::string reason;
    if (!utils::readRadarDirectory(path, radars, reason))
    {
        if (error != nullptr)
            *error = reason;
        else
            Kestova::console::printError("%s\n", reason.c_str());
        return false;
    }
    const std::lock_guard<std::mutex> guard(d->m_radarsMutex);
    for (const utils::tRadarEntry& radar : radars)
    {
        d->m_radars.put(radar.serial, radar.id, radar.record);
        d->m_radars.putSpoke(radar.serial, radar.id, radar.spoke);
    }
    return true;
}

void MultiRadarClient::setAddress(const char* serial, unsigned short id, const RadarAddress& record)
{
    if (serial == nullptr || *serial == '\0')
        return;
    const std::lock_guard<std::mutex> guard(d->m_radarsMutex);
    d->m_radars.put(serial, id, record);
}

const RadarAddress* MultiRadarClient::getAddress(const char* serial, unsigned short id)
{
    if (serial == nullptr)
        return nullptr;
    const std::lock_guard<std::mutex> guard(d->m_radarsMutex);
    return d->m_radars.find(serial, id);
}

std::string MultiRadarClient::spokeLayout(const char* serial, unsigned short id) const
{
    if (serial == nullptr)
        return {};
    const std::lock_guard<std::mutex> guard(d->m_radarsMutex);
    return d->m_radars.spoke(serial, id);
}

std::vector<tRadarName> MultiRadarClient::radars() const
{
    const std::lock_guard<std::mutex> guard(d->m_radarsMutex);
    return d->m_radars.names();
}

bool MultiRadarClient::setLocalInterface(const std::string& nameOrAddress)
{
    return d->m_watcher.follow(nameOrAddress);
}

void MultiRadarClient::addListener(iMultiRadarCheckerListener* listener)
{
    d->watch();
    d->m_notifier.add(listener);
}

void MultiRadarClient::removeListener(iMultiRadarCheckerListener* listener)
{
    d->m_notifier.remove(listener);
}
