// What applications compiled against the headers call: every operation with its type, linked from the shared libraries.
// An operation that goes, moves into a header, or changes its type or its const breaks the build or fails here; so does
// an addition that overloads the name of another, since &t::NAME is ambiguous then.
#include <cstring>
#include <dlfcn.h>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/huffmantree.h"
#include "KestovaStorage/packagebuilderandsplitter.h"
#include "KestovaStorage/pcapreader.h"
#include "KestovaStorage/radardatareplayer.h"
#include "KestovaStorage/radardatasaver.h"
#include "KestovaStorage/radarsaverandreplayer.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"

namespace
{
using std::string;

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

// tClass has member functions of exactly this type. Those of interfaces are only compared: they are no symbols.
template <typename tClass, typename tSignature, typename... tOperations>
void has(tOperations... operations)
{
    static_assert((... && std::is_same_v<tOperations, tSignature tClass::*>), "another type, or static");
    if constexpr (!std::is_abstract_v<tClass>)
        (expectInLibrary(operations), ...);
}

template <typename tSignature, typename... tOperations>
void hasStatic(tOperations... operations)
{
    static_assert((... && std::is_same_v<tOperations, tSignature*>), "another type, or no longer static");
    (expectInLibrary(operations), ...);
}

// Converts to tValue and to nothing else.
template <typename tValue>
struct tExactly
{
    template <typename tWanted, typename = std::enable_if_t<std::is_same_v<tWanted, std::decay_t<tValue>>>>
    operator tWanted() const;
};

template <typename tClass, typename... tArguments>
void makeAndDelete(tArguments... arguments)
{
    delete new tClass(arguments...);
}

// tClass has a constructor of these parameters, and the linker finds it and the destructor; neither is called.
template <typename tClass, typename... tArguments>
void constructs()
{
    static_assert(std::is_constructible_v<tClass, tExactly<tArguments>...>, "no such constructor");
    [[maybe_unused]] void (*volatile const kept)(tArguments...) = &makeAndDelete<tClass, tArguments...>;
}

template <typename... tClasses>
constexpr bool cDestroyedThroughABase = (... && std::has_virtual_destructor_v<tClasses>);
}  // namespace

static_assert(cDestroyedThroughABase<huffman::tHuffmanTree, huffman::tHuffmanEncode, huffman::tHuffmanDecode,
                                     storage::tDataStorageIO, storage::iDataReadReplayObserver,
                                     tPackageBuilderAndSplitter, iPackageObserver, Kestova::tRadarDataSaver,
                                     Kestova::iRadarRecDataModifyObserver, Kestova::tRadarDataReplayer,
                                     Kestova::iRadarDataReplayObserver, Kestova::iRadarReplayModifyObserver,
                                     pcap::tPcapReader, pcap::iPcapDataReadObserver, Kestova::tRadarSaverAndReplayer,
                                     Kestova::iSaveReplayObserver, net::iUdpDataListener, iMultiRadarCheckerListener>);

TEST(tSignaturesTest, areThoseOfTheHuffmanTree)
{
    using namespace huffman;
    using t = tHuffmanTree;
    constructs<t, const tAlphaFreqMap&>();
    has<t, tNode()>(&t::GetHuffmanTree);
    has<t, void(tHuffmanCodeMap&)>(&t::GetHuffmanCode);
    has<t, void(const tNode*, const string&, tHuffmanCodeMap&)>(&t::huffmanCode);
    has<t, void(const tNode*)>(&t::deleteTree);
    hasStatic<void(const tHuffmanCodeMap&, tHuffmanEncodeMap&)>(&t::HuffmanCodeMap2EncodeMap);
    hasStatic<void(const tAlphaFreqMap&)>(&t::PrintAlphaFreq);
    hasStatic<void(const tHuffmanCodeMap&, const tHuffmanEncodeMap&)>(&t::PrintHuffmanCodeMap);
}

TEST(tSignaturesTest, areThoseOfTheHuffmanEncoder)
{
    using namespace huffman;
    using t = tHuffmanEncode;
    constructs<t>();
    constructs<t, tCodeMode>();
    has<t, void(tCodeMode)>(&t::SetEncodeMode);
    has<t, void()>(&t::PreReadClear);
    has<t, bool(const string&)>(&t::PreReadSrcFileSegment);
    has<t, uint32_t()>(&t::GetPreReadSize);
    has<t, bool()>(&t::PreReadFinish);
    has<t, string()>(&t::GetHuffmanHead);
    has<t, tEncodedSegment(char*, uint32_t)>(&t::EncodeSrcFileSegment);
    has<t, tEncodedSegment()>(&t::SegmentEncodeFinish);
    has<t, bool(const char*, const char*)>(&t::Encode);
    has<t, tEncodedResult(const char*, uint32_t, char*, uint32_t)>(&t::EncodeByteArray);
    hasStatic<void(const char*, int)>(&t::PrintBuffBinary);
}

TEST(tSignaturesTest, areThoseOfTheHuffmanDecoder)
{
    using namespace huffman;
    using t = tHuffmanDecode;
    constructs<t>();
    constructs<t, tCodeMode>();
    has<t, void(tCodeMode)>(&t::SetDecodeMode);
    has<t, bool(const tFileHead&)>(&t::SetHuffmanHead);
    has<t, string(char*, uint32_t, uint8_t, uint8_t)>(&t::DecodeSrcFileSegment);
    has<t, string(const char*, uint32_t)>(&t::DecodeByteArray);
    has<t, bool(const char*, const char*)>(&t::Decode);
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

    using i = storage::iDataReadReplayObserver;
    has<i, void(uint8_t)>(&i::UpdateReplayStatus);
    has<i, void(uint64_t, uint64_t)>(&i::UpdateDataTimeSpan);
    has<i, void(uint64_t, double, const char*, unsigned int, string)>(&i::UpdateReplayData);
}

TEST(tSignaturesTest, areThoseOfThePackageBuilder)
{
    using t = tPackageBuilderAndSplitter;
    constructs<t>();
    has<t, void(int)>(&t::SetID);
    has<t, uint32_t()>(&t::GetSplittedPackageCnt, &t::GetBuildedPackageCnt);
    has<t, void(const char*, int)>(&t::LoadRecBuff);
    using tReady = void(const char*, int);
    using tMessage = void(const tUdpMsgInfo&, const char*, int, const char*, int, unsigned long);
    has<t, tReady, tReady t::*>(&t::BuildPackage);
    has<t, tMessage, tMessage t::*>(&t::BuildPackage);
    has<t, void(iPackageObserver*)>(&t::AddPackageObserer, &t::RemovePackageObserer);
    has<t, void()>(&t::Clear);

    using i = iPackageObserver;
    has<i, void(const tRadarMsgPackage*, unsigned int, int)>(&i::UpdateSplittedPackage);
    has<i, void(const char*, unsigned int, int, unsigned long)>(&i::UpdateBuildedPackage);
}

TEST(tSignaturesTest, areThoseOfTheSaver)
{
    using t = Kestova::tRadarDataSaver;
    constructs<t, const eReadWriteType*, int, const string&, const char*, const string&>();
    has<t, bool(const char*, unsigned short, bool)>(&t::connect);
    has<t, bool()>(&t::disconnect, &t::isConnected);
    has<t, void()>(&t::SocketClear, &t::FinishWrite);
    has<t, void(Kestova::iRadarRecDataModifyObserver*)>(&t::SetRecDataModifyObserver);
    has<t, void(const char*, int, const char*, int)>(&t::ManualWriteRadarData);
    has<t, void(const char*, int, const char*, int, unsigned long)>(&t::ManualWriteData);
    has<t, bool(string, bool, unsigned long)>(&t::CreateNewWritingFile);
    has<t, string()>(&t::GetCurrentWriteDataFileName);
    has<t, uint32_t()>(&t::GetWriteDataFifoSize);

    using i = Kestova::iRadarRecDataModifyObserver;
    has<i, void(const tUdpMsgInfo&, const char*, int, char*, int)>(&i::UpdateRecDataModify);
}

TEST(tSignaturesTest, areThoseOfTheReplayer)
{
    using t = Kestova::tRadarDataReplayer;
    using iObserver = Kestova::iRadarDataReplayObserver;
    using iModify = Kestova::iRadarReplayModifyObserver;
    constructs<t, const eReadWriteType*, int, bool, const char*, const char*>();
    has<t, bool(const string&, iObserver*)>(&t::OpenReadDataFileorFolder);
    has<t, bool(bool)>(&t::Pause);
    has<t, void(double)>(&t::FastSlowForward);
    has<t, bool()>(&t::Stop);
    has<t, bool(double)>(&t::Jump);
    has<t, void()>(&t::CloseReadingFile);
    has<t, void(iModify*)>(&t::SetReplayModifyObserver);
    has<t, void(bool)>(&t::CircleLoop);

    has<iObserver, void(tReplayStatus)>(&iObserver::UpdateReplayStatus);
    has<iObserver, void(tTimes_ms, tTimes_ms)>(&iObserver::UpdateDataTimeSpan);
    has<iObserver, void(string)>(&iObserver::UpdateFileName);
    has<iObserver, void(tTimes_ms, tTimes_ms, tMsgType, tReadWriteType, double, const char*, int, const char*, int)>(
        &iObserver::UpdateReplayData);
    has<iModify, void(tTimes_ms, tTimes_ms, tMsgType, tReadWriteType, double, const char*, int, char*, int)>(
        &iModify::UpdateReplayDataModify);
    has<iModify, void(uint32_t*, uint16_t*)>(&iModify::UpdateReplayAddrModify);
    has<iModify, bool(tMsgType, tReadWriteType, const char*, int, char*, int, int&, int&)>(
        &iModify::CheckIfNeededCircleLoop);
}

TEST(tSignaturesTest, areThoseOfTheCaptureReader)
{
    using t = pcap::tPcapReader;
    constructs<t, const string&, pcap::iPcapDataReadObserver*>();
    has<t, void(const std::set<std::pair<string, int>>&)>(&t::Read);

    using i = pcap::iPcapDataReadObserver;
    has<i, void(tTimes_ms, double, const char*, int, const char*, int)>(&i::UpdatePcapReadData);
    has<i, void(double, tTimes_ms)>(&i::UpdatePcapReadProgress);
    has<i, void(const std::vector<pcap::tUdpMulticast>&)>(&i::UpdatePcapUdpMulticast);
}

TEST(tSignaturesTest, areThoseOfTheFacade)
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

    using i = Kestova::iSaveReplayObserver;
    has<i, void(Kestova::eSaveReplayState)>(&i::UpdateState);
    has<i, void(double, int, const char*, int)>(&i::UpdateReplayData);
}

TEST(tSignaturesTest, areThoseOfTheSockets)
{
    hasStatic<uint32_t(const char*), uint32_t (*)(const char*)>(&net::transAddr);
    hasStatic<string(uint32_t), string (*)(uint32_t)>(&net::transAddr);
    hasStatic<uint16_t(uint16_t)>(&net::HtoNs, &net::NtoHs);
    constructs<net::UdpReceiver, net::iUdpDataListener*, uint32_t, const NetAddress&, int>();
    constructs<net::UdpSender, const NetAddress&, uint32_t, int>();
    has<net::UdpSender, bool(const char*, int)>(&net::UdpSender::sendData);
    has<net::UdpSender, void(bool)>(&net::UdpSender::setMulticastLoop);
    using i = net::iUdpDataListener;
    has<i, void(const char*, int, const char*, int, const char*, int)>(&i::OnUdpGroupDataReceived);
}

TEST(tSignaturesTest, areThoseOfTheUtilities)
{
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
    has<iMultiRadarCheckerListener, void(unsigned int)>(&iMultiRadarCheckerListener::OnLocalIpChanged);
}
