// The command line as its users meet it: the built program, run as a child process.
#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <netinet/in.h>
#include <sys/socket.h>

#include "support/radarreplay.h"
#include "support/toolfixture.h"

namespace
{
using testing::HasSubstr;

// A package with the number 7.
std::string packageOf(std::uint8_t kind, const std::string& payload)
{
    const NetAddress group{net::transAddr("239.17.0.9"), net::HtoNs(6009)};
    return radarRecord({1, 2, eReadType, kind, 0}, group, payload).replace(13, 4, littleEndian(7, 4));
}

class tToolTest : public tToolFixture
{
protected:
    tToolTest()
    {
        tJson streams;
        for (const char* name : {"imageStream", "imageState", "arpaStream", "aisDev", "gpsDev", "headingDev"})
            streams[name] = addressText(testGroup());
        std::ofstream(radars) << tJson{{"radars", {{{"serial", "T1:1"}, {"id", 1}, {"streams", streams}}}}};
    }

    tArguments radar(const char* verb, const tArguments& more) const
    {
        tArguments all = {verb, "--radars", radars, "--radar", "T1:1", "--id", "1", "--local-ip", "127.0.0.1"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    tJson info(const std::string& path, int status = 0) const { return result({"info", path}, status); }

    // Stream and address to count and digest, without the groups that all radars share.
    static std::map<std::string, std::string> ownStreams(const tJson& streams, const char* what)
    {
        std::map<std::string, std::string> rows;
        for (const tJson& row : streams)
        {
            const std::string address = row.at("address");
            if (!address.starts_with("236.6.7."))
                rows[row.at("stream").get<std::string>() + " " + address] =
                    row.at(what).dump() + " " + row.at("bytes").dump() + " " + row.at("digest").get<std::string>();
        }
        return rows;
    }
    std::string steadyFile(std::size_t packages, std::uint64_t stepMs, const char* name = "made.data",
                           std::uint64_t time = cTime) const
    {
        return fileOf(std::vector<std::string>(packages, packageOf(eGpsDev, std::string(64, 'x'))), stepMs, name, time);
    }

    const std::string radars = dir.file("radars.json"), root = dir.file("rec");
};

TEST_F(tToolTest, explainsEveryCommandWithAnExample)
{
    for (const char* verb : {"simulate", "record", "replay", "info", "dump"})
        EXPECT_THAT(said({verb, "--help"}), HasSubstr("Example"));
    EXPECT_EQ(said({"--version"}), "kestova " KESTOVA_VERSION "\n");
}

TEST_F(tToolTest, answersWrongUsageWithStatusTwo)
{
    const std::vector<tArguments> wrong = {
        {},
        {"bogus"},
        {"record", "--root", root},
        {"record", "--root", root, "--group", "239.1.2.3"},
        {"record", "--root", root, "--group", "239.1.2.3:70000"},
        {"record", "--root", root, "--group", "239.1.2.3:6000", "--radars", radars, "--radar", "T1:1"},
        {"record", "--root", root, "--radars", radars, "--radar", "T1:1", "--streams", "picture"},
        {"simulate", "--radars", radars, "--radar", "T1:1", "--rate", "0"},
        {"replay"},
        {"replay", root, "--start", "7"},
        {"replay", root, "--speed", "nan"},
        {"replay", root, "--speed", "fast"},
        {"replay", root, "--speed", "0"},
        {"replay", root, "--loop", "0"},
        {"replay", root, "--skip-silence", "0"},
        {"dump", root, "--limit", "-1"},
        {"dump", root, "--bytes", "3", "--all"}};
    for (const tArguments& arguments : wrong)
        EXPECT_THAT(said(arguments, 2), HasSubstr("--help"));
    EXPECT_FALSE(std::filesystem::exists(root));
}

TEST_F(tToolTest, reportsInOneLineWhyAJobFailed)
{
    const std::string noData = dir.file("no.data"), broken = dir.file("broken.json"), missing = dir.file("missing");
    std::ofstream(noData) << "neither plain nor Huffman";
    std::ofstream(broken) << "{";
    const NetAddress group = testGroup();  // another program holds its port
    const int holder = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in everything{AF_INET, group.port, {}, {}};
    ASSERT_EQ(::bind(holder, reinterpret_cast<const sockaddr*>(&everything), sizeof(everything)), 0);
    const std::string held = addressText(group), free = addressText(testGroup());
    const std::vector<std::pair<tArguments, std::string>> failures = {
        {{"record", "--radars", missing, "--radar", "T1:1", "--root", root}, missing},
        {{"record", "--radars", broken, "--radar", "T1:1", "--root", root}, "broken.json"},
        {{"record", "--radars", radars, "--radar", "T9:9", "--root", root}, "no radar T9:9"},
        {{"record", "--radars", radars, "--radar", "T1:1", "--id", "1", "--streams", "radarCheck", "--root", root},
         "radarCheck is recorded with any stream"},
        {{"simulate", "--radars", radars, "--radar", "T1:1"}, "no radar T1:1 with id 0"},
        {{"record", "--group", "239.1.2.3:6000", "--local-ip", "192.0.2.77", "--root", root}, "192.0.2.77"},
        {{"record", "--group", free, "--local-ip", "127.0.0.1", "--root", noData + "/rec"}, "cannot record"},
        {{"record", "--group", held, "--local-ip", "127.0.0.1", "--root", root}, "cannot receive " + held},
        {{"replay", missing}, "no such file"},
        {{"replay", noData}, "nothing to play"},
        {{"info", missing}, "no such file"},
        {{"info", noData}, "no.data"},
        {{"dump", noData}, "no.data"},
        {{"info", dir.string(), "--suffix", ".none"}, "holds no .none files"}};
    for (const auto& [arguments, reason] : failures)
    {
        const std::string why = said(arguments, 1);
        EXPECT_THAT(why, HasSubstr(reason));
        EXPECT_TRUE(reason.starts_with("cannot receive") || std::count(why.begin(), why.end(), '\n') == 1) << why;
    }
    EXPECT_FALSE(std::filesystem::exists(root));
    ::close(holder);
}

TEST_F(tToolTest, recordsPlaysAndShowsExactlyWhatWasSimulated)
{
    tChildProcess recorder(tool(radar("record", {"--root", root, "--json", "--streams",
                                                 "imageStream,imageState,arpaStream", "--streams", "aisDev,gpsDev"})));
    ASSERT_TRUE(recorder.says("recording to " + root)) << recorder.err();
    const tJson sent = result(radar("simulate", {"--spokes", "1500"}));
    recorder.signal(SIGINT);
    ASSERT_EQ(recorder.wait(), 0) << recorder.err();
    const tJson recorded = parsed(recorder.out());
    expectIn(sent, {{"schema", "kestova/simulate/2"}, {"spokes", 1500}});
    expectIn(recorded, {{"schema", "kestova/record/2"}, {"kernel_dropped", 0}, {"complete", true}});
    auto expected = ownStreams(sent.at("streams"), "datagrams");
    EXPECT_EQ(expected.size(), 6u);
    std::erase_if(expected, [](const auto& row) { return row.first.starts_with("headingDev"); });
    EXPECT_EQ(ownStreams(recorded.at("streams"), "datagrams"), expected);

    const tJson played = result({"replay", root, "--speed", "10"});
    EXPECT_EQ(played.at("schema"), "kestova/replay/2");
    EXPECT_EQ(ownStreams(played.at("streams"), "records"), expected);
    EXPECT_EQ(result({"replay", root, "--speed", "10", "--streams", "imageStream"}).at("records"), 1500);
    const tJson shown = result({"info", root, "--digest"});
    EXPECT_EQ(shown.at("schema"), "kestova/info/2");
    ASSERT_EQ(shown.at("files").size(), 1u);
    expectIn(shown.at("files")[0], {{"path", recorded.at("files")[0]}, {"finished", true}});
    EXPECT_EQ(shown.at("total").at("records"), recorded.at("datagrams"));
    EXPECT_EQ(ownStreams(shown.at("total").at("streams"), "records"), expected);

    const tJson sheet = sheetOf(recorded.at("files")[0]);
    expectIn(sheet,
             {{"schema", "kestova/recording/1"}, {"lost", 0}, {"finished", true}, {"interface", "lo 127.0.0.1"}});
    EXPECT_EQ(sheet.at("records"), recorded.at("datagrams"));
    EXPECT_EQ(sheet.at("radar").at("serial"), "T1:1");
    EXPECT_EQ(ownStreams(sheet.at("streams"), "messages"), expected);
    EXPECT_LT(std::abs(sheet.at("clock").at("offset_ms").get<double>()), 1000.0);
}

TEST_F(tToolTest, recordsAnyGroupForATimeAndCompressesIt)
{
    const NetAddress group = testGroup();
    tChildProcess recorder(tool({"record", "--group", addressText(group), "--local-ip", "lo", "--root", root,
                                 "--duration", "1500ms", "--compress", "--json"}));
    ASSERT_TRUE(recorder.says("recording to ")) << recorder.err();
    net::UdpSender sender(group, loopbackIp(), 0);
    for (const std::string payload : {"one", "", "three"})
        ASSERT_TRUE(sender.sendData(payload.data(), static_cast<int>(payload.size())));
    ASSERT_EQ(recorder.wait(), 0) << recorder.err();
    const tJson recorded = parsed(recorder.out());
    EXPECT_GE(recorded.at("duration_ms"), 1500);
    ASSERT_EQ(recorded.at("streams").size(), 1u);
    expectIn(recorded.at("streams")[0], {{"stream", "otherType"}, {"address", addressText(group)}, {"datagrams", 3}});
    EXPECT_THAT(recorded.at("files")[0], testing::EndsWith(".tar.data"));
    EXPECT_EQ(info(recorded.at("files")[0]).at("total").at("records"), 3);
    expectIn(sheetOf(recorded.at("files")[0]), {{"form", "huffman"}, {"records", 3}, {"finished", true}});
}

TEST_F(tToolTest, simulatesTheSameForTheSameSeedAndTime)
{
    const auto run = [&](const char* seed) {
        return ownStreams(
            result(radar("simulate", {"--spokes", "200", "--seed", seed, "--start-time", "1715940000250"}))
                .at("streams"),
            "datagrams");
    };
    const auto first = run("5");
    EXPECT_EQ(run("5"), first);
    EXPECT_NE(run("6"), first);
}

TEST_F(tToolTest, dumpsARecordToTheByte)
{
    const std::string path = fileOf({packageOf(eGpsDev, "abc\x01\xff"), "no package", packageOf(eImageStream, "")}, 1);
    const std::string whole = said({"dump", path});
    EXPECT_THAT(whole, HasSubstr("gpsDev           readType            239.17.0.9:6009           5  61626301ff\n"));
    const std::string out = said({"dump", path, "--json", "--bytes", "2", "--limit", "2"});
    ASSERT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
    const tJson expected = {{"schema", "kestova/dump/2"},
                            {"file", path},
                            {"time_ms", cTime},
                            {"stream", "gpsDev"},
                            {"kind", "readType"},
                            {"address", "239.17.0.9:6009"},
                            {"sequence", 7},
                            {"package_ms", 1'700'000'000'123},
                            {"info", {1, 2, 4, 8, 0}},
                            {"length", 5},
                            {"payload", "6162"},
                            {"truncated", true}};
    EXPECT_EQ(parsed(out.substr(0, out.find('\n'))), expected);
    expectIn(parsed(out.substr(out.find('\n') + 1)), {{"stream", "raw"}, {"payload", "6e6f"}});
}

TEST_F(tToolTest, dumpsOnlyWhatWasAskedFor)
{
    const std::string path = fileOf(
        {packageOf(eGpsDev, "0"), packageOf(eImageStream, "1"), packageOf(eGpsDev, "2"), packageOf(eGpsDev, "3")},
        1000);
    const std::pair<tArguments, const char*> cases[] = {{{"--streams", "gpsDev"}, "30 32 33 "},
                                                        {{"--from", "1s", "--to", "00:00:02"}, "31 32 "},
                                                        {{"--from", std::to_string(cTime + 2500)}, "33 "},
                                                        {{"--from", "-1s"}, "32 33 "},
                                                        {{"--to", "50%"}, "30 31 "},
                                                        {{"--limit", "1"}, "30 "}};
    for (const auto& [asked, payloads] : cases)
    {
        tArguments arguments = {"dump", path, "--json"};
        arguments.insert(arguments.end(), asked.begin(), asked.end());
        std::istringstream lines(said(arguments));
        std::string dumped;
        for (std::string line; std::getline(lines, line);)
            dumped += parsed(line).at("payload").get<std::string>() + " ";
        EXPECT_EQ(dumped, payloads);
    }
}

TEST_F(tToolTest, endsQuietlyWhenItsReaderHasGone)
{
    const std::string path = steadyFile(3000, 1);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::close(ends[0]);
    tChildProcess child(tool({"dump", path, "--all"}), ends[1]);
    ::close(ends[1]);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.err(), "");
}

TEST_F(tToolTest, reportsADamagedFileByItsExitStatus)
{
    const std::string path = steadyFile(3, 10);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
    for (const tJson& shown : {info(path, 3).at("total"), result({"replay", path}, 3)})
        expectIn(shown, {{"records", 2}, {"damaged", 1}});
    said({"dump", path}, 3);
    recordByHand(dir.file("u.data"), {{cTime, "never finished"}}, false);
    EXPECT_EQ(info(dir.file("u.data")).at("files")[0].at("finished"), false);
    EXPECT_EQ(result({"replay", dir.file("u.data")}).at("records"), 1);
}

TEST_F(tToolTest, findsTheGapInAStream)
{
    const std::string path = steadyFile(20, 100);
    steadyFile(20, 100, "next.data", cTime + 10'000);
    const tJson gaps = info(dir.string()).at("total").at("streams")[0].at("gaps");
    ASSERT_EQ(gaps.size(), 1u);
    expectIn(gaps[0], {{"from_ms", cTime + 1900}, {"length_ms", 8100}});
    const tJson one = info(path).at("total").at("streams")[0];
    EXPECT_TRUE(one.at("gaps").empty());
    EXPECT_DOUBLE_EQ(one.at("records_per_second"), 10.0);
}

TEST_F(tToolTest, namesWhatItSkipsAndDoesTheRest)
{
    const std::string path = steadyFile(3, 1), bad = dir.file("bad.data"), missing = dir.file("missing");
    std::ofstream(bad) << "neither plain nor Huffman";
    for (const char* verb : {"info", "replay", "dump"})
    {
        SCOPED_TRACE(verb);
        const auto lastLine = [](std::string out) {
            out.pop_back();
            return parsed(out.substr(out.find_last_of('\n') + 1));
        };
        const tJson below = lastLine(said({verb, dir.string(), "--json"}, 3)).at("skipped");
        ASSERT_EQ(below.size(), 1u);
        EXPECT_EQ(below[0].at("path"), bad);
        EXPECT_THAT(below[0].at("reason"), testing::Not(HasSubstr("bad.data")));
        tChildProcess child(tool({verb, missing, path, path, "--json"}));
        EXPECT_EQ(child.wait(), 1) << "the worst of all paths";
        const std::string out = child.out();
        EXPECT_THAT(child.err(), HasSubstr("skipped " + missing + ": no such file"));
        EXPECT_EQ(lastLine(out).at("skipped").at(0).at("path"), missing);
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), verb == std::string("dump") ? 4 : 1);
    }
}

TEST_F(tToolTest, showsWhenNothingWasRecordedAndRatesWithoutIt)
{
    const std::string path = steadyFile(20, 100);
    steadyFile(20, 100, "later.data", cTime + 60'000);
    const tJson total = info(dir.string()).at("total");
    EXPECT_EQ(total.at("gaps"), (tJson{{{"from_ms", cTime + 1900}, {"to_ms", cTime + 60'000}, {"length_ms", 58'100}}}));
    EXPECT_DOUBLE_EQ(total.at("streams")[0].at("records_per_second"), 10.0);
    EXPECT_LT(total.at("disk_size"), total.at("size")) << "there is a hole before the payload";
    EXPECT_THAT(said({"info", dir.string(), "--utc"}), HasSubstr("00:00:58.100  from 2024-05-17 10:00:02.150"));
}

TEST_F(tToolTest, dumpsSentencesAsText)
{
    const std::string path =
        fileOf({packageOf(eGpsDev, std::string("\x04$GPRMC,1\\*0A\r\n\0\0", 17)), packageOf(eImageStream, "$")}, 1);
    const std::string out = said({"dump", path, "--text"});
    EXPECT_THAT(out, HasSubstr("   17  \\x04$GPRMC,1\\\\*0A\\r\\n\n"));
    EXPECT_THAT(out, HasSubstr("    1  24\n"));
}

TEST_F(tToolTest, playsFromAPlaceSeveralTimesAndEndsALoopAtCtrlC)
{
    const std::string path = steadyFile(21, 100);
    const tJson half = result({"replay", path, "--start", "0.5", "--speed", "10"});
    expectIn(half, {{"start_ms", cTime + 1000}, {"records", 11}, {"played_ms", 1000}});
    EXPECT_GE(half.at("took_ms"), 95);
    const tJson thrice = result({"replay", path, "--start", "1.9s", "--loop", "3"});
    expectIn(thrice, {{"passes", 3}, {"records", 6}});
    EXPECT_GT(half.at("pace").get<double>(), 2.0 * thrice.at("pace").get<double>());
    tChildProcess child(tool({"replay", path, "--speed", "10", "--json", "--loop"}));
    ASSERT_TRUE(child.says("playing "));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(std::chrono::seconds(5)), 0);
    EXPECT_GE(parsed(child.out()).at("passes"), 1);
}
}  // namespace
