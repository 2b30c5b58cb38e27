// What applications compiled against an earlier build rely on: the size of every handle, and the slot of every virtual
// operation of the interfaces that they implement. A failure here means: raise the SOVERSION, or put it back.
#include <cstddef>
#include <cstring>

#include <gtest/gtest.h>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/huffmantree.h"
#include "KestovaStorage/packagebuilderandsplitter.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/pcapreader.h"
#include "KestovaStorage/radardatareplayer.h"
#include "KestovaStorage/radardatasaver.h"
#include "KestovaStorage/radarsaverandreplayer.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/datagramreceiver.h"
#include "UdpSocket/transport.h"
#include "UdpSocket/udpsocket.h"

namespace
{
// The place of a virtual operation in the table of its class, as the Itanium C++ ABI stores it in a pointer to member:
// 1 + offset in the first word, or, on machines whose code addresses may be odd, the offset with 1 in the second.
template <typename tMember>
std::size_t slotOf(tMember member)
{
    std::size_t words[2] = {};
    static_assert(sizeof(member) == sizeof(words));
    std::memcpy(words, &member, sizeof(words));
#if defined(__aarch64__) || defined(__arm__)
    return words[0] / sizeof(void*);
#else
    return (words[0] - 1) / sizeof(void*);
#endif
}

constexpr std::size_t cOnePointer = sizeof(void*), cTwoPointers = 2 * sizeof(void*);
constexpr std::size_t cFirstSlot = 2;  // behind the two of the virtual destructor, which stands first everywhere

template <std::size_t size, typename... tHandles>
constexpr bool allOfSize = (... && (sizeof(tHandles) == size));

// Whether the operations stand one behind the other from the first slot on.
template <typename... tMembers>
bool stand(tMembers... members)
{
    std::size_t slot = cFirstSlot;
    return (... && (slotOf(members) == slot++));
}
}  // namespace

TEST(tAbiTest, keepsTheSizesOfHandlesAndOfRecordsThatCrossTheInterface)
{
    EXPECT_TRUE((allOfSize<cTwoPointers, storage::tDataStorageIO, huffman::tHuffmanTree, huffman::tHuffmanEncode,
                           huffman::tHuffmanDecode, tPackageBuilderAndSplitter, pcap::tPcapReader,
                           Kestova::tRadarDataSaver, Kestova::tRadarDataReplayer, Kestova::tRadarSaverAndReplayer>));
    EXPECT_TRUE((allOfSize<cOnePointer, Kestova::tPackageRecorder, storage::tDataFile, net::UdpReceiver,
                           net::tDatagramReceiver, net::UdpSender, MultiRadarClient>));
    EXPECT_EQ(sizeof(net::tUdpReceiverCounters), 24U);
    EXPECT_EQ(sizeof(storage::tDataFileRecord), 24U);
    EXPECT_EQ(sizeof(pcap::tPcapFileHead), 8U);
    EXPECT_EQ(sizeof(pcap::tPcapReadResult), 96U);
    EXPECT_EQ(offsetof(pcap::tPcapDatagram, payload), 56U);
    EXPECT_EQ(sizeof(huffman::tFileHead), 1303U);
    EXPECT_EQ(sizeof(huffman::tNode), 32U);
    EXPECT_EQ(sizeof(Kestova::tGroupCounters), 40U);
    EXPECT_EQ(offsetof(Kestova::tGroupCounters, datagrams), 16U);
}

TEST(tAbiTest, keepsTheSlotsOfEveryObserverOperation)
{
    // Every interface's operations, in the order of their slots.
    using Kestova::iRadarDataReplayObserver, Kestova::iRadarReplayModifyObserver, Kestova::iSaveReplayObserver;
    using storage::iDataReadReplayObserver, pcap::iPcapDataReadObserver;
    EXPECT_TRUE(stand(&iDataReadReplayObserver::UpdateReplayStatus, &iDataReadReplayObserver::UpdateDataTimeSpan,
                      &iDataReadReplayObserver::UpdateReplayData));
    EXPECT_TRUE(stand(&iPackageObserver::UpdateSplittedPackage, &iPackageObserver::UpdateBuildedPackage));
    EXPECT_TRUE(stand(&iRadarDataReplayObserver::UpdateReplayStatus, &iRadarDataReplayObserver::UpdateDataTimeSpan,
                      &iRadarDataReplayObserver::UpdateFileName, &iRadarDataReplayObserver::UpdateReplayData));
    EXPECT_TRUE(stand(&iRadarReplayModifyObserver::UpdateReplayDataModify,
                      &iRadarReplayModifyObserver::UpdateReplayAddrModify,
                      &iRadarReplayModifyObserver::CheckIfNeededCircleLoop));
    EXPECT_TRUE(stand(&iSaveReplayObserver::UpdateState, &iSaveReplayObserver::UpdateReplayData));
    EXPECT_TRUE(stand(&iPcapDataReadObserver::UpdatePcapReadData, &iPcapDataReadObserver::UpdatePcapReadProgress,
                      &iPcapDataReadObserver::UpdatePcapUdpMulticast));
    EXPECT_TRUE(stand(&Kestova::iRadarRecDataModifyObserver::UpdateRecDataModify));
    EXPECT_TRUE(stand(&pcap::iPcapDatagramObserver::UpdatePcapDatagram));
    EXPECT_TRUE(stand(&net::iUdpDataListener::OnUdpGroupDataReceived));
    EXPECT_TRUE(stand(&net::iDatagramListener::OnDatagram));
    EXPECT_TRUE(stand(&net::iTransport::needsLocalAddress, &net::iTransport::openSource, &net::iTransport::openSink,
                      &net::iTransport::openSources));
    EXPECT_TRUE(stand(&net::iDatagramSource::joined, &net::iDatagramSource::counters));
    EXPECT_TRUE(stand(&net::iDatagramSink::send));
    EXPECT_TRUE(stand(&iMultiRadarCheckerListener::OnLocalIpChanged));
}
