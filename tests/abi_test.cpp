// What applications compiled against an earlier build rely on: every described operation with its type, linked from the
// shared libraries; the size of every handle; and the slot of every virtual operation of the interfaces that they
// implement. A failure here means: raise the SOVERSION, or put it back. An operation that goes, moves into a header, or
// changes its type or its const breaks the build or fails here; so does an addition that overloads the name of another,
// since &t::NAME is ambiguous then.
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <type_traits>

#include <gmock/gmock.h>
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
using std::string;

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

// Fails if the function is not one of a shared library. The store is volatile: the linker needs the symbol.
template <typename tFunction>
void expectInLibrary(tFunction function)
{
    const volatile tFunction kept = function;
    const tFunction loaded = kept;
    void* address = nullptr;
    std::memcpy(&address, &loaded, sizeof(address));
    Dl_info info{};
    ASSERT_NE(dladdr(address, &info), 0);
    EXPECT_THAT(info.dli_fname, testing::HasSubstr(".so")) << __PRETTY_FUNCTION__;
}

// tClass has member functions of exactly this type.
template <typename tClass, typename tSignature, typename... tOperations>
void has(tOperations... operations)
{
    static_assert((... && std::is_same_v<tOperations, tSignature tClass::*>), "another type, or static");
    (expectInLibrary(operations), ...);
}

template <typename tSignature, typename... tOperations>
void hasStatic(tOperations... operations)
{
    static_assert((... && std::is_same_v<tOperations, tSignature*>), "another type, or no longer static");
    (expectInLibrary(operations), ...);
}

template <typename tClass, typename... tArguments>
void makeAndDelete(tArguments... arguments)
{
    delete new tClass(arguments...);
}

// tClass has a constructor that takes these, and the linker finds it and the destructor; neither is called.
template <typename tClass, typename... tArguments>
void constructs()
{
    [[maybe_unused]] void (*volatile const kept)(tArguments...) = &makeAndDelete<tClass, tArguments...>;
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

// Those of the observers' operations are held by the observers of the other tests, which override them.
TEST(tSignaturesTest, areThoseOfTheCodec)
{
    using namespace huffman;
    using tTree = tHuffmanTree;
    constructs<tTree, const tAlphaFreqMap&>();
    has<tTree, tNode()>(&tTree::GetHuffmanTree);
    has<tTree, void(tHuffmanCodeMap&)>(&tTree::GetHuffmanCode);
    has<tTree, void(const tNode*, const string&, tHuffmanCodeMap&)>(&tTree::huffmanCode);
    has<tTree, void(const tNode*)>(&tTree::deleteTree);
    hasStatic<void(const tHuffmanCodeMap&, tHuffmanEncodeMap&)>(&tTree::HuffmanCodeMap2EncodeMap);
    hasStatic<void(const tAlphaFreqMap&)>(&tTree::PrintAlphaFreq);
    hasStatic<void(const tHuffmanCodeMap&, const tHuffmanEncodeMap&)>(&tTree::PrintHuffmanCodeMap);

    using tEncode = tHuffmanEncode;
    constructs<tEncode>();
    constructs<tEncode, tCodeMode>();
    has<tEncode, void(tCodeMode)>(&tEncode::SetEncodeMode);
    has<tEncode, void()>(&tEncode::PreReadClear);
    has<tEncode, bool(const string&)>(&tEncode::PreReadSrcFileSegment);
    has<tEncode, uint32_t()>(&tEncode::GetPreReadSize);
    has<tEncode, bool()>(&tEncode::PreReadFinish);
    has<tEncode, string()>(&tEncode::GetHuffmanHead);
    has<tEncode, tEncodedSegment(char*, uint32_t)>(&tEncode::EncodeSrcFileSegment);
    has<tEncode, tEncodedSegment()>(&tEncode::SegmentEncodeFinish);
    has<tEncode, bool(const char*, const char*)>(&tEncode::Encode);
    has<tEncode, tEncodedResult(const char*, uint32_t, char*, uint32_t)>(&tEncode::EncodeByteArray);
    hasStatic<void(const char*, int)>(&tEncode::PrintBuffBinary);

    using tDecode = tHuffmanDecode;
    constructs<tDecode>();
    constructs<tDecode, tCodeMode>();
    has<tDecode, void(tCodeMode)>(&tDecode::SetDecodeMode);
    has<tDecode, bool(const tFileHead&)>(&tDecode::SetHuffmanHead);
    has<tDecode, string(char*, uint32_t, uint8_t, uint8_t)>(&tDecode::DecodeSrcFileSegment);
    has<tDecode, string(const char*, uint32_t)>(&tDecode::DecodeByteArray);
    has<tDecode, bool(const char*, const char*)>(&tDecode::Decode);
}

TEST(tSignaturesTest, areThoseOfTheStorageEngine)
{
    using t = storage::tDataStorageIO;
    constructs<t, const string&, const char*>();
    using tByTime = bool(unsigned long, const string&, bool);
    using tByFolder = bool(const string&, const string&, bool);
    has<t, tByTime, tByTime t::*>(&t::CreateNewWritingFile);
    has<t, tByFolder, tByFolder t::*>(&t::CreateNewWritingFile);
    has<t, void(const char*, unsigned long, unsigned long)>(&t::WriteData);
    has<t, bool() const>(&t::IsWriteEnable);
    has<t, void()>(&t::FinishWrite, &t::CloseReadingFile);
    has<t, string() const>(&t::GetCurrentWriteDataFileName);
    has<t, uint32_t() const>(&t::GetWriteDataFifoSize);
    has<t, bool(const string&, storage::iDataReadReplayObserver*)>(&t::OpenReadDataFileorFolder);
    has<t, bool(bool)>(&t::Pause);
    has<t, void(double)>(&t::FastSlowForward);
    has<t, bool()>(&t::Stop);
    has<t, bool(double)>(&t::Jump);
    static_assert(std::is_same_v<decltype(&t::DiskCheckThreadEnable), bool*>);
    EXPECT_TRUE(t::DiskCheckThreadEnable);

    hasStatic<bool(const string&)>(&t::IsExistPath, &t::MakePath);
    hasStatic<storage::tPathProperty(const string&)>(&t::IsFileOrFolder);
    hasStatic<void(string&)>(&t::NormalizePath, &t::Relative2AbsolutePath);
    hasStatic<int64_t(const char*)>(&t::GetFileSize);
    hasStatic<int32_t(const char*)>(&t::GetDiskFreeSize_MB);
    hasStatic<int64_t(const string&)>(&t::GetMountDiskSize);
    hasStatic<void(const string&, std::set<string>&, bool, const string&)>(&t::GetFileFolderInDir);
}

TEST(tSignaturesTest, areThoseOfTheSaverAndTheReplayer)
{
    using tSaver = Kestova::tRadarDataSaver;
    constructs<tSaver, const eReadWriteType*, int, const string&, const char*, const string&>();
    has<tSaver, bool(const char*, unsigned short, bool)>(&tSaver::connect);
    has<tSaver, bool()>(&tSaver::disconnect, &tSaver::isConnected);
    has<tSaver, void()>(&tSaver::SocketClear, &tSaver::FinishWrite);
    has<tSaver, void(Kestova::iRadarRecDataModifyObserver*)>(&tSaver::SetRecDataModifyObserver);
    has<tSaver, void(const char*, int, const char*, int)>(&tSaver::ManualWriteRadarData);
    has<tSaver, void(const char*, int, const char*, int, unsigned long)>(&tSaver::ManualWriteData);
    has<tSaver, bool(string, bool, unsigned long)>(&tSaver::CreateNewWritingFile);
    has<tSaver, string()>(&tSaver::GetCurrentWriteDataFileName);
    has<tSaver, uint32_t()>(&tSaver::GetWriteDataFifoSize);

    using t = Kestova::tRadarDataReplayer;
    constructs<t, const eReadWriteType*, int, bool, const char*, const char*>();
    has<t, bool(const string&, Kestova::iRadarDataReplayObserver*)>(&t::OpenReadDataFileorFolder);
    has<t, bool(bool)>(&t::Pause);
    has<t, void(double)>(&t::FastSlowForward);
    has<t, bool()>(&t::Stop);
    has<t, bool(double)>(&t::Jump);
    has<t, void()>(&t::CloseReadingFile);
    has<t, void(Kestova::iRadarReplayModifyObserver*)>(&t::SetReplayModifyObserver);
    has<t, void(bool)>(&t::CircleLoop);
}

TEST(tSignaturesTest, areThoseOfTheFacadeThePackageBuilderAndTheCaptureReader)
{
    using t = Kestova::tRadarSaverAndReplayer;
    constructs<t, Kestova::iSaveReplayObserver*>();
    has<t, Kestova::eSaveReplayState() const>(&t::State);
    has<t, bool(const string&)>(&t::StartSaving, &t::StartReplaying);
    has<t, void(int, const char*, int)>(&t::SaveData);
    has<t, void()>(&t::EndSave, &t::EndReplay);
    has<t, bool()>(&t::Pause, &t::Resume);
    has<t, bool(double)>(&t::Jump);
    has<t, void(double)>(&t::SetSpeed);

    using tBuilder = tPackageBuilderAndSplitter;
    constructs<tBuilder>();
    has<tBuilder, void(int)>(&tBuilder::SetID);
    has<tBuilder, uint32_t()>(&tBuilder::GetSplittedPackageCnt, &tBuilder::GetBuildedPackageCnt);
    has<tBuilder, void(const char*, int)>(&tBuilder::LoadRecBuff);
    using tReady = void(const char*, int);
    using tMessage = void(const tUdpMsgInfo&, const char*, int, const char*, int, unsigned long);
    has<tBuilder, tReady, tReady tBuilder::*>(&tBuilder::BuildPackage);
    has<tBuilder, tMessage, tMessage tBuilder::*>(&tBuilder::BuildPackage);
    has<tBuilder, void(iPackageObserver*)>(&tBuilder::AddPackageObserer, &tBuilder::RemovePackageObserer);
    has<tBuilder, void()>(&tBuilder::Clear);

    constructs<pcap::tPcapReader, const string&, pcap::iPcapDataReadObserver*>();
    has<pcap::tPcapReader, void(const std::set<std::pair<string, int>>&)>(&pcap::tPcapReader::Read);
}

TEST(tSignaturesTest, areThoseOfTheSocketsAndUtilities)
{
    hasStatic<uint32_t(const char*), uint32_t (*)(const char*)>(&net::transAddr);
    hasStatic<string(uint32_t), string (*)(uint32_t)>(&net::transAddr);
    hasStatic<uint16_t(uint16_t)>(&net::HtoNs, &net::NtoHs);
    constructs<net::UdpReceiver, net::iUdpDataListener*, uint32_t, const NetAddress&, int>();
    constructs<net::UdpSender, const NetAddress&, uint32_t, int>();
    has<net::UdpSender, bool(const char*, int)>(&net::UdpSender::sendData);
    has<net::UdpSender, void(bool)>(&net::UdpSender::setMulticastLoop);

    using tTime = utils::time::tTimeParser;
    hasStatic<tTimes_ms()>(&tTime::GetCurrentTime_ms);
    hasStatic<tTimes_s()>(&tTime::GetCurrentTime_s);
    hasStatic<tTimes_s(const string&)>(&tTime::String2Time_s);
    hasStatic<string(tTimes_ms)>(&tTime::Time_ms2String);

    using t = MultiRadarClient;
    hasStatic<t*()>(&t::getInstance);
    has<t, bool(const string&, string*)>(&t::loadDirectory);
    has<t, void(const char*, unsigned short, const RadarAddress&)>(&t::setAddress);
    has<t, const RadarAddress*(const char*, unsigned short)>(&t::getAddress);
    has<t, bool(const string&)>(&t::setLocalInterface);
    has<t, void(iMultiRadarCheckerListener*)>(&t::addListener, &t::removeListener);
}
