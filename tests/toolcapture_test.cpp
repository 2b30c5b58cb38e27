// kestova pcap and kestova export: captures of every kind become recordings, and recordings captures.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>

#include "KestovaRecordings/frames.h"
#include "support/capturekinds.h"
#include "support/radarreplay.h"
#include "support/recordedpackages.h"
#include "support/toolfixture.h"

using testing::HasSubstr;

namespace
{
std::uint32_t word(const std::string& bytes, std::size_t at)
{
    return static_cast<unsigned char>(bytes.at(at)) * 256u + static_cast<unsigned char>(bytes.at(at + 1));
}

// Of bytes that hold their own checksum, and it is right.
bool hasRightChecksum(std::string bytes)
{
    bytes.resize((bytes.size() + 1) / 2 * 2);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 2)
        sum += word(bytes, i);
    return sum != 0 && sum % 0xFFFF == 0;  // ones' complement: carries come back in
}

// The stamps, in us, of a capture as export writes it.
std::vector<std::uint64_t> timesOf(const std::string& capture)
{
    std::vector<std::uint64_t> times;
    for (std::size_t at = 24; at + 16 <= capture.size();)
    {
        std::uint32_t head[3];  // s, us, length
        std::memcpy(head, &capture[at], sizeof head);
        times.push_back(head[0] * std::uint64_t{1'000'000} + head[1]);
        at += 16 + head[2];
    }
    return times;
}

class tToolCaptureTest : public tToolFixture
{
protected:
    // Datagrams of all forms to 239.1.1.1:5000: plain, tagged, tagged twice, with options, and one in fragments of
    // which the last has options. Their times are 1 ms apart and are rounded to it.
    static tTimedFrames frames()
    {
        const tFrame begin{.payload = "four, in", .flags = 1, .id = 9};
        const tFrame end{.payload = " parts", .offset = 2, .id = 9};
        const std::vector<std::string> bytes = {tFrame{.payload = "zero"}.bytes(),
                                                tagged(tFrame{.payload = "one"}.bytes()),
                                                tagged(tagged(tFrame{.payload = "two"}.bytes()), 0x88A8),
                                                withOptions(tFrame{.payload = "three"}.bytes(), 10),
                                                begin.bytes(),
                                                tagged(withOptions(end.bytes(), 1))};
        tTimedFrames frames;
        for (const std::string& frame : bytes)
            frames.push_back({cTime * 1'000'000 + frames.size() * 1'000'000 + 499'999, frame});
        return frames;
    }
    static std::string plainCapture() { return pcapOf(frames(), 0xA1B2C3D4, 1); }
    std::string put(const char* name, const std::string& bytes) const
    {
        std::ofstream(dir.file(name), std::ios::binary) << bytes;
        return dir.file(name);
    }
    static tJson captureIn(const tJson& result) { return result.at("captures").at(0); }

    // What `pcap --select all --to` makes of a capture holds the datagrams of frames(), each once.
    void expectFrames(const std::string& name, const std::string& root, tChildProcess& child) const
    {
        SCOPED_TRACE(name);
        EXPECT_EQ(child.wait(), 0) << child.err();
        const tJson capture = captureIn(parsed(child.out()));
        EXPECT_EQ(capture.at("streams").size(), 1u) << capture;
        expectIn(capture, {{"records", 6}, {"skipped", 0}, {"finished", true}, {"cut", false}});
        const std::vector<tRecordedPackage> packages = recordedPackages(root);
        const std::vector<std::string> payloads = {"zero", "one", "two", "three", "four, in parts"};
        ASSERT_EQ(packages.size(), payloads.size());
        for (std::size_t i = 0; i < payloads.size(); ++i)
        {
            EXPECT_EQ(packages[i].payload, payloads[i]);
            EXPECT_EQ(groupText(packages[i]), "239.1.1.1:5000");
            EXPECT_EQ(packages[i].timeMs, cTime + (i < 4 ? i : 5));
        }
    }
    static tArguments importing(const std::string& path, const std::string& root)
    {
        return {"pcap", path, "--select", "all", "--to", root, "--json"};
    }
};

struct tPipe
{
    tPipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0); }
    ~tPipe()
    {
        close(0);
        close(1);
    }
    void close(int end)
    {
        if (ends[end] >= 0)
            ::close(std::exchange(ends[end], -1));
    }
    int ends[2] = {-1, -1};
};
}  // namespace

TEST_F(tToolCaptureTest, readsCapturesOfEveryKind)
{
    const tNumbers big{true};
    const auto raw = [](const std::string& frame) { return frame.substr(frame.find('\x08') + 2); };
    const auto loop = [&](const std::string& frame) { return littleEndian(2, 4) + raw(frame); };
    const std::pair<std::string, std::string> captures[] = {
        {"plain", plainCapture()},
        {"big", pcapOf(frames(), 0xA1B2C3D4, 1, big)},
        {"nano", pcapOf(frames(), 0xA1B23C4D, 1)},
        {"nano-big", pcapOf(frames(), 0xA1B23C4D, 1, big)},
        {"ng", pcapngOf(frames(), 1)},
        {"ng-big", pcapngOf(frames(), 1, big)},
        {"any", pcapOf(each(frames(), cooked), 0xA1B2C3D4, 113)},
        {"any2", pcapOf(each(frames(), cooked2), 0xA1B2C3D4, 276)},
        {"any-ng", pcapngOf(each(frames(), cooked2), 276)},
        {"raw", pcapOf(each(frames(), raw), 0xA1B2C3D4, 101)},
        {"null", pcapOf(each(frames(), loop), 0xA1B2C3D4, 0)},
    };
    for (const auto& [name, bytes] : captures)
    {
        const std::string root = dir.file(name + "-rec");
        tChildProcess child(tool(importing(put(name.c_str(), bytes), root)));
        expectFrames(name, root, child);
    }
}

TEST_F(tToolCaptureTest, readsStandardInputAndPipes)
{
    for (const std::string& bytes : {plainCapture(), pcapngOf(frames(), 1)})
    {
        tPipe pipe;
        const std::string root = dir.file("in" + std::to_string(bytes.size()));
        tChildProcess child(tool(importing("-", root)), -1, pipe.ends[0]);
        ASSERT_EQ(::write(pipe.ends[1], bytes.data(), 30), 30);  // a head, and a part of a record
        ASSERT_EQ(::write(pipe.ends[1], bytes.data() + 30, bytes.size() - 30), static_cast<ssize_t>(bytes.size() - 30));
        pipe.close(1);
        expectFrames("standard input", root, child);
    }
    ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);
    std::thread writer([&] { put("fifo", plainCapture()); });  // opens it before the reader does
    tChildProcess child(tool(importing(dir.file("fifo"), dir.file("fifo-rec"))));
    expectFrames("fifo", dir.file("fifo-rec"), child);
    writer.join();
}

TEST_F(tToolCaptureTest, endsASilentPipeAtCtrlC)
{
    tPipe pipe;
    const std::string bytes = plainCapture();
    tChildProcess child(tool({"pcap", "-", "--json"}), -1, pipe.ends[0]);
    pipe.close(0);
    ASSERT_EQ(::write(pipe.ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    ASSERT_TRUE(waitUntil([&] {
        int unread = 0;
        return ::ioctl(pipe.ends[1], FIONREAD, &unread) == 0 && unread == 0;
    }));
    child.signal(SIGINT);
    EXPECT_EQ(child.wait(), 3) << child.err();
    EXPECT_THAT(child.err(), HasSubstr("interrupted"));
    EXPECT_EQ(captureIn(parsed(child.out())).at("finished"), false);
}

TEST_F(tToolCaptureTest, namesWhatItCannotRead)
{
    const std::string other = pcapOf(each(frames(), cooked), 0xA1B2C3D4, 105);
    const std::pair<std::string, const char*> cases[] = {{other, "link type 105 (802.11)"},
                                                         {cPlainMagic + std::string(100, '\0'), "is a data file"},
                                                         {"\x1F\x8B and so on, compressed", "gzip -dc"},
                                                         {"text, long enough for a head", "is no capture"},
                                                         {"short", "is no capture"},
                                                         {"\xD4\xC3\xB2\xA1 short", "shorter than a capture's head"},
                                                         {"", "is empty"}};
    for (const auto& [bytes, reason] : cases)
        EXPECT_THAT(said({"pcap", put("other", bytes)}, 1), HasSubstr(reason));
    EXPECT_THAT(said({"pcap", dir.file("missing")}, 1), HasSubstr("no such file"));
    EXPECT_THAT(said({"pcap", dir.string()}, 1), HasSubstr("a folder"));
    recordByHand(dir.file("r.data"), {{1, "segment"}});
    const int data = ::open(dir.file("r.data").c_str(), O_RDONLY | O_CLOEXEC);
    tChildProcess child(tool({"pcap", "-"}), -1, data);
    ::close(data);
    EXPECT_EQ(child.wait(), 1);
    EXPECT_THAT(child.err(), HasSubstr("standard input is a data file"));
}

TEST_F(tToolCaptureTest, reportsWhereACaptureEnds)
{
    const std::string ng = pcapngOf(frames(), 1);
    tJson result = captureIn(this->result({"pcap", put("cut", ng.substr(0, ng.size() - 20))}, 3));
    expectIn(result, {{"cut", true}, {"finished", true}, {"records", 5}});
    const std::string mixed = ng + pcapngInterface(113) + pcapngFrame(1, {1, cooked(frames()[0].bytes)});
    tChildProcess child(tool({"pcap", put("mixed", mixed + ng)}));  // what follows is not reached
    EXPECT_EQ(child.wait(), 3);
    EXPECT_THAT(child.err(), HasSubstr("could not be read to its end: an interface has a type 113"));
}

TEST_F(tToolCaptureTest, readsSeveralCapturesAndOneAsBad)
{
    const std::string good = put("good", plainCapture()), bad = put("bad", "text, long enough for a head");
    const auto several = [&](const std::string& other) {
        tChildProcess child(tool({"pcap", other, good, "--json"}));
        EXPECT_EQ(child.wait(), other == bad ? 1 : 0) << child.err();
        return parsed(child.out()).at("captures");
    };
    const tJson captures = several(bad);
    EXPECT_THAT(captures.at(0).at("error"), HasSubstr("no capture"));
    EXPECT_EQ(captures.at(1).at("datagrams"), 5);
    EXPECT_EQ(several(good).at(0).at("datagrams"), 5);
    said({"pcap", "-", "-"}, 2);
}

TEST_F(tToolCaptureTest, keepsTheStreamsOfARadar)
{
    const std::string radars = dir.file("radars.json");
    std::ofstream(radars) << R"({"radars": [{"serial": "T1:1", "id": 1, "streams": {
        "imageStream": "239.1.1.1:5000", "imageCtrl": "239.1.1.2:5000", "cameraCtrl": "239.1.1.3:5000",
        "gpsDev": "239.1.1.4:5000"}}]})";
    tTimedFrames sent;
    for (const auto& [to, port] : {std::pair{"239.1.1.1", 5000u},
                                   {"239.1.1.2", 5000u},
                                   {"239.1.1.3", 5000u},
                                   {"236.6.7.5", 6878u},
                                   {"239.1.1.1", 5001u}})
        sent.push_back({cTime * 1'000'000, tFrame{.to = to, .port = port}.bytes()});
    tArguments arguments = {"pcap", put("c", pcapOf(sent, 0xA1B2C3D4, 1)), "--radars", radars, "--radar", "T1:1"};
    EXPECT_THAT(said(arguments, 1), HasSubstr("no radar T1:1 with id 0"));
    arguments.insert(arguments.end(), {"--id", "1", "--to", dir.file("rec")});
    const tJson capture = captureIn(result(arguments));
    EXPECT_EQ(capture.at("streams").size(), 4u) << "the silent gpsDev is no loss, 5001 is not the radar's";
    std::map<std::string, std::string> infos;  // as kestova record stamps them
    for (const tRecordedPackage& package : recordedPackages(dir.file("rec")))
        infos[groupText(package)] = asText(package.msgInfo);
    const std::map<std::string, std::string> expected = {{"239.1.1.1:5000", "1,2,4,0,0"},
                                                         {"239.1.1.2:5000", "2,1,5,1,0"},
                                                         {"239.1.1.3:5000", "1,2,4,13,0"},
                                                         {"236.6.7.5:6878", "0,0,3,255,0"}};
    EXPECT_EQ(infos, expected);
    arguments.insert(arguments.end(), {"--select", "239.1.1.4:5000"});
    result(arguments, 3);  // asked for, and silent
}

TEST_F(tToolCaptureTest, makesACaptureOfARecordingAndTheRecordingOfTheCapture)
{
    const std::vector<std::string> payloads = {
        "", "a", std::string(1472, 'b'), std::string(1473, 'c'), std::string(65'000, 'd'), "\x5A\xA5\xE0\x01spoke"};
    std::vector<std::string> segments;
    for (const std::string& payload : payloads)
        segments.push_back(makePackage(1, payload, eReadType));
    segments.push_back("no package");
    fileOf(segments, 250, "r.data");
    expectIn(result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")}, 3),
             {{"datagrams", payloads.size()}, {"no_datagrams", 1}, {"frames", 4 + 2 + 44}});  // pieces of 1,480 bytes
    const tJson shown = captureIn(result({"pcap", dir.file("r.pcap"), "--select", "all", "--to", dir.file("again")}));
    expectIn(shown, {{"datagrams", payloads.size() - 1}, {"empty_beginnings", 0}});
    EXPECT_EQ(shown.at("recorded").at("datagrams"), payloads.size()) << "statistics leave the empty one out";
    EXPECT_EQ(shown.at("streams").at(0).at("datagrams_per_second"), 4.0) << "and so do rates";
    EXPECT_EQ(shown.at("streams").at(0).at("address"), "239.17.0.1:6001");
    const std::vector<tRecordedPackage> again = recordedPackages(dir.file("again"));
    ASSERT_EQ(again.size(), payloads.size());
    for (std::size_t i = 0; i < payloads.size(); ++i)
    {
        EXPECT_EQ(again[i].payload, payloads[i]) << i;
        EXPECT_EQ(again[i].timeMs, cTime + i * 250);
        EXPECT_EQ(groupText(again[i]), "239.17.0.1:6001");
    }
}

TEST_F(tToolCaptureTest, keepsTheMicrosecondsOfACapture)
{
    tTimedFrames frames;
    std::vector<std::uint64_t> times;
    for (std::uint64_t i = 0; i < 1500; ++i)
    {
        times.push_back(cTime * 1000 + i * 333);
        frames.push_back({times.back() * 1000, tFrame{.payload = std::to_string(i)}.bytes()});
    }
    std::string capture = put("0.pcap", pcapOf(frames, 0xA1B2C3D4, 1));
    for (const char* name : {"1", "2"})
    {
        result({"pcap", capture, "--select", "all", "--to", dir.file(name)});
        capture = dir.file(name + std::string(".pcap"));
        result({"export", dir.file(name), "--pcap", capture});
        EXPECT_EQ(timesOf(contentsOf(capture)), times);
    }
    EXPECT_TRUE(contentsOf(dir.file("1.pcap")) == contentsOf(dir.file("2.pcap")));
}

TEST_F(tToolCaptureTest, exportsSeveralRecordingsInOrderOfTime)
{
    const auto package = [](const char* payload) { return makePackage(1, payload, eReadType); };
    recordByHand(dir.file("a.data"), {{cTime + 30, package("d")}, {cTime, package("a")}, {cTime + 20, package("c")}});
    recordByHand(dir.file("b.data"),
                 {{cTime + 10, package("b")}, {cTime + 30, package("e")}, {cTime + 90, package("f")}});
    const tJson exported = result({"export", dir.file("b.data"), dir.file("a.data"), "--pcap", dir.file("c.pcap")});
    EXPECT_EQ(exported.at("datagrams"), 6);
    result({"pcap", dir.file("c.pcap"), "--select", "all", "--to", dir.file("again")});
    std::string order;
    for (const tRecordedPackage& one : recordedPackages(dir.file("again")))
        order += one.payload;
    EXPECT_EQ(order, "abcedf") << "of equal times the file that was named first";
}

TEST_F(tToolCaptureTest, exportsToStandardOutput)
{
    fileOf({makePackage(1, "x", eReadType), makePackage(2, std::string(3000, 'y'), eReadType)}, 5, "r.data");
    result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")});
    EXPECT_EQ(said({"export", dir.file("r.data"), "--pcap", "-"}), contentsOf(dir.file("r.pcap")));
    EXPECT_THAT(said({"export", dir.file("r.data"), "--pcap", "-", "--json"}, 2), HasSubstr("--json"));
    EXPECT_THAT(said({"export", "-", "--pcap", "-"}, 2), HasSubstr("not from standard input"));
    fileOf(std::vector<std::string>(1000, makePackage(1, std::string(1000, 'z'), eReadType)), 5, "r.data");
    tPipe pipe;
    pipe.close(0);
    tChildProcess child(tool({"export", dir.file("r.data"), "--pcap", "-"}), pipe.ends[1]);
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(child.err(), "");
}

TEST_F(tToolCaptureTest, namesWhatItDoesNotExport)
{
    fileOf({makePackage(1, "x", eReadType)}, 1, "r.data");
    const std::string junk = put("junk.data", "nothing of ours");
    const tJson partly = result({"export", dir.string(), "--pcap", dir.file("a.pcap")}, 3);
    EXPECT_EQ(partly.at("datagrams"), 1);
    EXPECT_EQ(partly.at("skipped").size(), 1u);
    EXPECT_EQ(partly.at("skipped").at(0).at("path"), junk);
    EXPECT_THAT(said({"export", junk, "--pcap", dir.file("b.pcap")}, 1), HasSubstr("junk.data"));
    tChildProcess child(tool({"export", dir.file("none"), dir.file("r.data"), "--pcap", dir.file("b.pcap"), "--json"}));
    EXPECT_EQ(child.wait(), 1) << "a path that was asked for has nothing";
    EXPECT_EQ(parsed(child.out()).at("datagrams"), 1);
    EXPECT_TRUE(std::filesystem::exists(dir.file("b.pcap")));
}

TEST_F(tToolCaptureTest, recordsOnlyWhatIsSelected)
{
    fileOf({makePackage(1, "x", eReadType)}, 1, "r.data");
    result({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")});
    const tJson none =
        captureIn(result({"pcap", dir.file("r.pcap"), "--select", "239.17.0.2:6001", "--to", dir.file("none")}, 3));
    EXPECT_EQ(none.at("recorded").at("datagrams"), 0);
    EXPECT_TRUE(none.at("streams").empty());
    EXPECT_TRUE(recordedPackages(dir.file("none")).empty());
    said({"export", dir.file("r.data"), "--pcap", dir.file("r.pcap")}, 1);  // it exists
    std::ofstream(dir.file("x.part")) << "somebody's";
    said({"export", dir.file("r.data"), "--pcap", dir.file("x")}, 1);
    EXPECT_TRUE(std::ifstream(dir.file("x.part")).good());
    said({"pcap", dir.file("r.pcap"), "--select", "all", "--to", dir.file("r.data")}, 1);  // no folder
    said({"pcap", dir.file("r.pcap"), "--to", dir.file("none")}, 2);                       // nothing is selected
}

TEST(tFramesTest, carriesRightChecksumsAndFragmentsThatFit)
{
    const NetAddress from = {net::transAddr("192.0.2.1"), net::HtoNs(6000)};
    const NetAddress to = {net::transAddr("239.200.3.4"), net::HtoNs(6001)};
    for (const std::size_t len : {0u, 1u, 1472u, 1473u, 2953u, 65'507u})
    {
        SCOPED_TRACE(len);
        std::string message;
        const std::vector<std::string> frames = recordings::framesOf(from, to, std::string(len, '\xFF'), 77);
        for (const std::string& frame : frames)
        {
            EXPECT_LE(frame.size(), 1514u);
            EXPECT_EQ(frame.substr(0, 6), std::string("\x01\x00\x5E\x48\x03\x04", 6));
            EXPECT_TRUE(hasRightChecksum(frame.substr(14, 20)));
            EXPECT_EQ(word(frame, 16), frame.size() - 14);
            EXPECT_EQ((word(frame, 20) & 0x1FFF) * 8, message.size());
            EXPECT_EQ((word(frame, 20) & 0x2000) != 0, &frame != &frames.back());
            message += frame.substr(34);
        }
        ASSERT_EQ(message.size(), 8 + len);
        EXPECT_NE(word(message, 6), 0u);
        const std::string pseudo = frames[0].substr(26, 8) + std::string("\0\x11", 2) + message.substr(4, 2);
        EXPECT_TRUE(hasRightChecksum(pseudo + message));
    }
}
