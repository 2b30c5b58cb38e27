// What kestova answers to wrong usage, and what kestova record reports of silence, the disk and its network.
#include <fstream>
#include <gmock/gmock.h>

#include "KestovaStorage/datafileformat.h"
#include "support/ownnamespace.h"
#include "support/toolfixture.h"

namespace
{
using testing::HasSubstr;
using testing::Not;

class tToolRecordTest : public tToolFixture
{
protected:
    tToolRecordTest()
    {
        tJson list;
        for (const char* serial : {"T1:1", "T1:2"})
            list.push_back({{"serial", serial}, {"id", 4}, {"streams", {{"gpsDev", addressText(testGroup())}}}});
        std::ofstream(radars) << tJson{{"radars", list}};
    }

    tArguments simulate(const tArguments& more) const
    {
        tArguments all = {"simulate", "--radars", radars, "--radar", "T1:1", "--id", "4"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    tArguments record(const tArguments& more) const
    {
        tArguments all = {"record", "--root", root};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    tArguments radar(const char* localIp, const tArguments& more = {}) const
    {
        tArguments all = record({"--radars", radars, "--radar", "T1:1", "--id", "4", "--local-ip", localIp});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    // What the command line answers to wrong usage; each of `hints` is in it.
    static void expectUsage(const tArguments& arguments, const std::vector<std::string>& hints)
    {
        const std::string why = said(arguments, 2);
        EXPECT_EQ(std::count(why.begin(), why.end(), '\n'), 1) << why;
        for (const std::string& hint : hints)
            EXPECT_THAT(why, HasSubstr(hint));
    }

    const std::string radars = dir.file("radars.json"), root = dir.file("rec");
};

// In a network of its own; the test skips where there can be none.
class tToolNetworkTest : public tToolRecordTest
{
protected:
    void SetUp() override
    {
        if (!network().why().empty())
            GTEST_SKIP() << network().why();
    }
    static const tNetworkNamespace& network()
    {
        static const tNetworkNamespace s_network;
        return s_network;
    }
};
}  // namespace

TEST_F(tToolRecordTest, refusesNumbersInPlainWords)
{
    const struct
    {
        const char *option, *value, *hint;
    } cases[] = {{"--spokes", "0", "'0' is no whole number from 1 on"},
                 {"--spokes", "1.5", "'1.5' is no whole number"},
                 {"--seed", "-1", "'-1' is no whole number from 0 on"},
                 {"--seed", "99999999999999999999", "is no whole number"},
                 {"--rate", "nan", "'nan' is no number from 0.1 to 6000"},
                 {"--rate", "0", "'0' is no number"},
                 {"--start-time", "-5", "from 1 to 281474976710655"},
                 {"--duration", "0", "no duration to run for"},
                 {"--duration", "inf", "is no duration"},
                 {"--id", "65536", "'65536' is no whole number from 0 to 65535"}};
    for (const auto& c : cases)
    {
        expectUsage(simulate({c.option, c.value}), {c.option, c.hint, "kestova simulate --help"});
    }
    expectUsage(radar("127.0.0.1", {"--duration", "-1"}), {"--duration", "is no duration"});
    expectUsage(record({"--radars", radars, "--radar", "T1:1", "--id", "-1"}), {"--id", "is no whole number"});
}

TEST_F(tToolRecordTest, asksWhetherSomethingElseWasMeant)
{
    expectUsage({"recrod", "--root", root}, {"'recrod' is no command: did you mean record?"});
    expectUsage({"recrod", "--help"}, {"did you mean record?"});
    expectUsage({"dmup"}, {"did you mean dump?"});
    expectUsage({"help", "sim"}, {"did you mean simulate?"});
    expectUsage({"bogus"}, {"'bogus' is no command (see kestova --help)"});
    expectUsage(record({"--grup", "239.1.1.1:6000"}), {"--grup is no option: did you mean --group?"});
    expectUsage({"record", "--rot", root}, {"--rot is no option: did you mean --root?", "kestova record --help"});
    expectUsage({"simulate", "--dur=5"}, {"--dur is no option: did you mean --duration?"});
    expectUsage(record({"--zzz"}), {"--zzz is no option (see"});
    expectUsage(record({"--quiet", "--verbose"}), {"--quiet"});
}

TEST_F(tToolRecordTest, explainsACommandWithHelp)
{
    EXPECT_EQ(said({"help", "record"}), said({"record", "--help"}));
    EXPECT_EQ(said({"help"}), said({"--help"}));
}

TEST_F(tToolRecordTest, namesTheRadarsThatTheFileHas)
{
    EXPECT_THAT(said(record({"--radars", radars, "--radar", "T9:9"}), 1),
                HasSubstr("has no radar T9:9 with id 0: choose from T1:1 id 4, T1:2 id 4\n"));
}

TEST_F(tToolRecordTest, saysThatARadarHasNoStreams)
{
    std::ofstream(radars) << R"({"radars": [{"serial": "T1:1", "id": 4, "streams": {}}]})";
    EXPECT_THAT(said(simulate({"--duration", "1"}), 1),
                HasSubstr("radar T1:1 with id 4 has no address for any stream that can be simulated"));
    EXPECT_THAT(said(radar("127.0.0.1"), 1),
                HasSubstr("radar T1:1 with id 4 has no stream with an address: add one to " + radars + "\n"));
}

TEST_F(tToolRecordTest, showsTheLibrariesLinesOnlyIfVerboseAndNoLineIfQuiet)
{
    const auto lines = [&](const char* volume) {
        tArguments arguments = radar("127.0.0.1", {"--duration", "10ms"});
        if (*volume != '\0')
            arguments.push_back(volume);
        tChildProcess child(tool(arguments));
        EXPECT_EQ(child.wait(), 3);
        EXPECT_THAT(child.out(), HasSubstr("gpsDev"));
        return child.err();
    };
    const std::string nothing = "kestova record: nothing was recorded: no datagram came on any stream\n";
    EXPECT_THAT(lines("--verbose"), HasSubstr("Save T1_1_E\nRadar Data Saver Init ...\n"));
    EXPECT_THAT(lines(""), testing::MatchesRegex("receiving on lo \\(127.0.0.1\\)\nrecording to [^\n]*\n" + nothing));
    EXPECT_EQ(lines("--quiet"), nothing);
}

TEST_F(tToolRecordTest, endsWithStatusThreeAndTheSilentStreamsIfNothingCame)
{
    const tJson recorded = result(radar("127.0.0.1", {"--duration", "6"}), 3);  // its own query comes after 5 s
    EXPECT_GE(recorded.at("datagrams"), 1);
    ASSERT_EQ(recorded.at("silent").size(), 1u);
    EXPECT_EQ(recorded.at("silent")[0].at("stream"), "gpsDev");
    EXPECT_EQ(recorded.at("reclaimed"), tJson::array());
}

TEST_F(tToolRecordTest, warnsAfterTenSecondsWithoutADatagramAndReportsTheEnd)
{
    const NetAddress group = testGroup();
    tChildProcess recorder(tool(record({"--group", addressText(group), "--local-ip", "127.0.0.1"})));
    ASSERT_TRUE(recorder.says("kestova record: no datagram on lo (127.0.0.1) for 10 s")) << recorder.err();
    ASSERT_TRUE(net::UdpSender(group, loopbackIp(), 0).sendData("x", 1));
    EXPECT_TRUE(recorder.says("datagrams on lo (127.0.0.1), after ")) << recorder.err();
    recorder.signal(SIGINT);
    EXPECT_EQ(recorder.wait(), 0);
}

// A file takes so many records, however short they are. More are sent than that: the kernel may drop some.
TEST_F(tToolRecordTest, reportsARollOver)
{
    const NetAddress group = testGroup();
    tChildProcess recorder(tool(record({"--group", addressText(group), "--local-ip", "127.0.0.1", "--json"})));
    ASSERT_TRUE(recorder.says("/0000_")) << recorder.err();
    net::UdpSender sender(group, loopbackIp(), 0);
    const std::vector<net::tUdpDatagram> datagrams(500, {"x", 1});
    const auto rolledOver = [&] {
        sender.sendBatch(datagrams.data(), static_cast<int>(datagrams.size()));
        return recorder.err().find("/0001_") != std::string::npos;
    };
    ASSERT_TRUE(waitUntil(rolledOver, std::chrono::seconds(60))) << recorder.err();
    recorder.signal(SIGINT);
    EXPECT_THAT(recorder.wait(), testing::AnyOf(0, 3));
    const tJson files = parsed(recorder.out()).at("files");
    ASSERT_EQ(files.size(), 2u);
    EXPECT_THAT(recorder.err(), HasSubstr("recording to " + files[0].get<std::string>() + "\nrecording to " +
                                          files[1].get<std::string>() + "\n"));
    EXPECT_EQ(result({"info", files[0]}).at("total").at("records"), storage::cIndexCapacity);
}

// Old recordings on a disk with less than 1 GiB.
TEST_F(tToolRecordTest, deletesOldRecordingsOnlyIfAskedToAndReportsEach)
{
    if (!tTinyDisk::enter().empty())
        GTEST_SKIP() << tTinyDisk::enter();
    const tTinyDisk disk(dir.string(), 100);
    std::ofstream(radars) << "";
    const std::string old = root + "/Data_000000_2024.05.17/0000.data";
    std::filesystem::create_directories(std::filesystem::path(old).parent_path());
    std::ofstream(old) << std::string(8192, 'x');
    const tArguments arguments =
        record({"--group", addressText(testGroup()), "--local-ip", "127.0.0.1", "--duration", "5", "--json"});
    tChildProcess keeper(tool(arguments));
    EXPECT_EQ(keeper.wait(), 3);
    EXPECT_THAT(keeper.err(), HasSubstr("are left on the disk of " + root));
    EXPECT_TRUE(std::filesystem::exists(old));
    tArguments reclaiming = arguments;
    reclaiming.push_back("--reclaim");
    tChildProcess reclaimer(tool(reclaiming));
    EXPECT_EQ(reclaimer.wait(), 3);
    const std::string path = std::filesystem::canonical(dir.path()).string() + old.substr(dir.string().size());
    EXPECT_THAT(reclaimer.err(), HasSubstr("deleted " + path + " (8.2 kB) to make room\n"));
    EXPECT_THAT(reclaimer.err(), Not(HasSubstr("are left on the disk")));
    EXPECT_EQ(parsed(reclaimer.out()).at("reclaimed")[0],
              (tJson{{"path", path}, {"bytes", 8192}, {"cause", "reclaim"}}));
    EXPECT_FALSE(std::filesystem::exists(old));
}

TEST_F(tToolNetworkTest, saysThatThereIsNoRouteForAGroup)
{
    EXPECT_THAT(said(record({"--group", "239.17.0.9:6009"}), 1),
                HasSubstr("cannot receive 239.17.0.9:6009: this machine has no route for it (Network is unreachable); "
                          "choose the interface with --local-ip: lo 127.0.0.1"));
}

TEST_F(tToolNetworkTest, reportsWhenTheAddressOfItsInterfaceChanges)
{
    ASSERT_TRUE(network().addInterface("radar0") && network().ip("addr add 10.77.0.1/24 dev radar0"));
    tChildProcess recorder(tool(radar("radar0")));
    ASSERT_TRUE(recorder.says("receiving on radar0 (10.77.0.1)\nrecording to ")) << recorder.err();
    ASSERT_TRUE(network().ip("addr del 10.77.0.1/24 dev radar0"));
    EXPECT_TRUE(recorder.says("radar0 (10.77.0.1) has no address any more")) << recorder.err();
    ASSERT_TRUE(network().ip("addr add 10.77.0.2/24 dev radar0"));
    EXPECT_TRUE(recorder.says("receiving on radar0 (10.77.0.2) now: every group was joined again")) << recorder.err();
    recorder.signal(SIGINT);
    EXPECT_EQ(recorder.wait(), 3) << recorder.err();
    const std::string line = recorder.out().substr(0, recorder.out().find('\n'));
    const tJson lost = sheetOf(line).at("losses").at("joins_lost");
    ASSERT_GE(lost.size(), 4u) << "its group, and those of all radars";
    EXPECT_LT(lost[0].at("from_ms"), lost[0].at("to_ms").get<std::uint64_t>());
}

TEST_F(tToolNetworkTest, joinsGroupsAgainOnAnInterfaceThatWasAwayAndIsBack)
{
    const NetAddress group = testGroup();
    const auto plugIn = [](const std::string& address) {
        return network().addInterface("radar2") && network().ip("addr add " + address + "/24 dev radar2");
    };
    ASSERT_TRUE(plugIn("10.79.0.1"));
    tChildProcess recorder(tool(record({"--group", addressText(group), "--local-ip", "radar2", "--json"})));
    ASSERT_TRUE(recorder.says("receiving on radar2 (10.79.0.1)\nrecording to ")) << recorder.err();
    ASSERT_TRUE(network().ip("link del radar2"));
    EXPECT_TRUE(recorder.says("radar2 (10.79.0.1) has no address any more")) << recorder.err();
    ASSERT_TRUE(plugIn("10.79.0.2"));
    ASSERT_TRUE(recorder.says("receiving on radar2 (10.79.0.2) now: every group was joined again")) << recorder.err();
    ASSERT_TRUE(net::UdpSender(group, net::transAddr("10.79.0.2"), 0).sendData("x", 1));
    recorder.signal(SIGINT);
    EXPECT_EQ(recorder.wait(), 0);
    EXPECT_EQ(parsed(recorder.out()).at("datagrams"), 1);
}

TEST_F(tToolNetworkTest, simulateReportsWhyTheNetworkRefuses)
{
    ASSERT_TRUE(network().addInterface("radar1") && network().ip("addr add 10.78.0.1/24 dev radar1") &&
                network().ip("link set radar1 down"));
    tChildProcess child(tool(simulate({"--local-ip", "10.78.0.1", "--duration", "1"})));
    EXPECT_EQ(child.wait(), 3);
    EXPECT_THAT(child.err(), testing::ContainsRegex("kestova: the network refused [0-9]+ datagrams: Network is (down|"
                                                    "unreachable)\n"));
}
