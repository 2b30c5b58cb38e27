// tGroupRecorder: records any UDP groups, each datagram as a package of the kind "otherType".
#ifndef KESTOVA_SESSIONS_RECORD_GROUPRECORDER_H
#define KESTOVA_SESSIONS_RECORD_GROUPRECORDER_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/writeobserver.h"
#include "UdpSocket/transport.h"
#include "sessions/record/addressfollower.h"
#include "sessions/record/receivedcounts.h"
#include "sessions/record/recorder.h"

namespace session
{
class tGroupRecorder : public iRecorder
{
public:
    // localIp empty: the kernel chooses the interface. `folder` is the storage root. `written` outlives the recorder.
    // Throws tFailure.
    tGroupRecorder(const std::vector<NetAddress>& groups, const std::string& localIp, const std::string& folder,
                   bool compress, storage::iWriteObserver& written);

    // Joins the groups again if the interface has another address, or is another one, since.
    tRecorderState state() override;
    bool startNextFile() override { return m_storage.StartNextFile(); }
    void closeSockets() override;
    bool waitWritten(unsigned int timeoutMs) override;
    void closeFile() override;
    std::uint32_t compressing() const override { return m_storage.GetCompressingCnt(); }
    void cancelCompressing() override { m_storage.CancelCompressing(); }

private:
    // The listener of one group.
    struct tGroup : net::iDatagramListener
    {
        tGroup(const NetAddress& address, tReceivedCount& count, Kestova::tPackageRecorder& recorder)
            : m_address(address), m_count(count), m_recorder(recorder)
        {}
        void OnDatagram(const net::tReceivedDatagram& datagram) override;

        const NetAddress m_address;
        tReceivedCount& m_count;
        Kestova::tPackageRecorder& m_recorder;
    };
    // Where the groups are received.
    struct tPlace
    {
        unsigned int reports = 0;           // of the address of the interface that the user chose
        std::vector<std::uint32_t> routes;  // without one: the address from which the kernel reaches each group
        std::uint32_t localIp = 0;          // of the interface, or of the first group's; 0: none

        bool operator==(const tPlace&) const = default;
    };
    void addGroup(const NetAddress& address);
    tPlace place() const;
    void join();
    void leave();
    void updateDiscarded();
    std::size_t notJoined() const;

    std::string m_root;
    tReceivedCounts m_received;
    std::map<recordings::tStreamKey, std::uint64_t> m_discarded, m_discardedBefore;  // before the groups were joined
    tPlace m_place;                                                                  // where the groups were joined
    unsigned int m_joins = 0;
    bool m_closed = false;
    storage::tDataStorageIO m_storage;
    Kestova::tPackageRecorder m_packageRecorder{m_storage};
    std::vector<std::unique_ptr<tGroup>> m_groups;
    std::optional<tAddressFollower> m_chosen;                      // the interface that the user chose
    std::vector<std::unique_ptr<net::iDatagramSource>> m_sources;  // last: their thread uses the members above
};
}  // namespace session

#endif
