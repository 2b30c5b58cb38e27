// tSaverFixture: a radar on loopback groups of this process's own, a recorder of it, and what it has recorded.
#ifndef KESTOVA_TESTS_SAVERFIXTURE_H
#define KESTOVA_TESTS_SAVERFIXTURE_H

#include <algorithm>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <utility>

#include "KestovaStorage/radardatasaver.h"
#include "KestovaUtils/multiradarclient.h"
#include "support/datagramcollector.h"
#include "support/recordedpackages.h"
#include "support/tempdir.h"

// An observer made of one function.
struct tObserver : Kestova::iRadarRecDataModifyObserver
{
    using tCall = std::function<void(const tUdpMsgInfo&, const char*, int, char*, int)>;
    explicit tObserver(tCall c) : call(std::move(c)) {}
    void UpdateRecDataModify(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len) override
    {
        call(info, groupAddr, port, data, len);
        ++calls;
    }
    tCall call;
    std::atomic<int> calls{0};
};

class tSaverFixture : public testing::Test
{
protected:
    static constexpr int cFixedGroupCount = 3;

    void SetUp() override { ASSERT_TRUE(client.setLocalInterface("127.0.0.1")); }

    static std::string groupIp() { return net::transAddr(group(0).ip); }
    static int port(int stream) { return net::NtoHs(group(stream).port); }
    static NetAddress group(int stream)
    {
        static const NetAddress s_first = testGroup();
        return {s_first.ip, net::HtoNs(static_cast<uint16_t>(net::NtoHs(s_first.port) + stream))};
    }
    // Enters a radar that sends each kind on the group of the kind's number plus `shift`.
    void enter(const char* serial, unsigned short id, std::initializer_list<eReadWriteType> kinds, int shift = 0)
    {
        RadarAddress radar{};
        for (const eReadWriteType kind : kinds)
            radar.setStreamAddress(kind, group(kind + shift));
        client.setAddress(serial, id, radar);
    }
    std::unique_ptr<Kestova::tRadarDataSaver> makeSaver(std::vector<eReadWriteType> kinds = {eImageStream})
    {
        return std::make_unique<Kestova::tRadarDataSaver>(kinds.data(), static_cast<int>(kinds.size()), dir.string(),
                                                          ".data", "");
    }
    // A saver of radar A1:2, number 1, whose sockets are open.
    std::unique_ptr<Kestova::tRadarDataSaver> connectedSaver(std::vector<eReadWriteType> kinds = {eImageStream})
    {
        enter("A1:2", 1, {eImageStream, eImageCtrl, eArpaStream, eGpsDev, eSecondArpaStream});
        auto made = makeSaver(kinds);
        EXPECT_TRUE(made->connect("A1:2", 1, false));
        EXPECT_TRUE(socketsOpen(*made));
        return made;
    }
    static std::vector<Kestova::tGroupCounters> groups(const Kestova::tRadarDataSaver& saver)
    {
        std::vector<Kestova::tGroupCounters> counters(32);
        counters.resize(static_cast<std::size_t>(saver.GetGroupCounters(counters.data(), 32)));
        return counters;
    }
    static bool socketsOpen(const Kestova::tRadarDataSaver& saver)
    {
        return waitUntil([&] { return saver.GetGroupCounters(nullptr, 0) >= cFixedGroupCount; });
    }
    static bool received(const Kestova::tRadarDataSaver& saver, int stream, uint64_t datagrams)
    {
        return waitUntil([&] {
            return std::ranges::any_of(groups(saver), [&](const Kestova::tGroupCounters& group) {
                return group.port == port(stream) && group.datagrams >= datagrams;
            });
        });
    }
    void send(int stream, const std::string& payload)
    {
        net::UdpSender(group(stream), loopbackIp(), 0).sendData(payload.data(), static_cast<int>(payload.size()));
    }
    // Everything recorded but what came on the fixed groups, which any recorder or player of this machine may use.
    std::vector<tRecordedPackage> recorded() const
    {
        std::vector<tRecordedPackage> own = recordedPackages(dir.string());
        std::erase_if(own, [](const tRecordedPackage& package) { return groupText(package).starts_with("236.6.7."); });
        return own;
    }
    std::vector<std::string> payloads() const
    {
        std::vector<std::string> texts;
        for (const tRecordedPackage& package : recorded())
            texts.push_back(package.payload);
        return texts;
    }

    MultiRadarClient& client = *MultiRadarClient::getInstance();
    tTempDir dir;
};

#endif
