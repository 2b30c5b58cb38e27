// The server as clients meet it, inside this process.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KestovaRecordings/sheet.h"
#include "common/byteorder.h"
#include "server/server.h"
#include "support/filebytes.h"
#include "support/httpclient.h"
#include "support/sheetedrecording.h"
#include "support/tempdir.h"
#include "support/waituntil.h"

namespace
{
using namespace server;
using namespace std::chrono_literals;
using tJson = nlohmann::json;

constexpr std::uint64_t cTime = 1'715'940'000'000;
constexpr unsigned cSpokesPerTurn = 64, cSpokeMs = 10, cTurnMs = cSpokesPerTurn * cSpokeMs;

// A recording of 16 s: a spoke of 16 cells every 10 ms, none from 6 s to 10 s.
class tServeTest : public testing::Test
{
protected:
    tServeTest()
    {
        std::filesystem::create_directories(m_root.file("made"));
        tSegments segments;
        for (unsigned i = 0; i < 1600; ++i)
            if (i < 600 || i >= 1000)
                segments.push_back({cTime + i * cSpokeMs, spoke(i)});
        recordWithSheet(dataFile(), segments);
        m_options.roots = {m_root.string()};
        m_options.port = 0;
        std::string error;
        EXPECT_TRUE(utils::parseSpokeLayouts(
            R"({"match": {"0": "7370"}, "azimuth": {"at": 2, "width": 1, "per_turn": 64}, "range": 1852,
                "sequence": {"at": 3, "width": 1}, "cells": {"at": 4, "count": "rest", "bits": 8}, "order": "little",
                "reference": "bow"})",
            m_options.layouts, error))
            << error;
    }
    static std::string spoke(unsigned i)
    {
        std::string package = makePackage(i, std::string("sp") + static_cast<char>(i % cSpokesPerTurn) +
                                                 static_cast<char>(i) + std::string(16, static_cast<char>(200)));
        package[11] = eImageStream;
        return package;
    }
    std::string dataFile() const { return m_root.file("made/0000_2024-05-17_10-00-00.data"); }

    std::uint16_t start(const tHttpLimits& limits = {})
    {
        m_server.emplace(m_options, limits);
        const std::string url = m_server->url();
        return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }
    tJson get(std::uint16_t port, const std::string& target) const
    {
        const tHttpResponse answer = tHttpClient(port).ask("GET", target);
        EXPECT_EQ(answer.status, 200) << target << ' ' << answer.body;
        return tJson::parse(answer.body, nullptr, false);
    }
    std::string idOf(std::uint16_t port) const
    {
        return get(port, "/api/v1/recordings").at("recordings").at(0).at("id").get<std::string>();
    }

    tTempDir m_root;
    tServeOptions m_options;
    std::optional<tServer> m_server;
};

TEST_F(tServeTest, refusesWhatIsTooLongOrLeadsAstray)
{
    const std::uint16_t port = start();
    const auto status = [&](const std::string& method, const std::string& target, const std::string& headers = "",
                            const std::string& body = "") {
        return tHttpClient(port).ask(method, target, headers, body).status;
    };
    const std::string json = "X-Kestova: 1\r\nContent-Type: application/json\r\n";
    EXPECT_EQ(status("GET", "/"), 200);
    EXPECT_EQ(status("GET", "/", "X: " + std::string(17'000, 'x') + "\r\n"), 431);
    EXPECT_EQ(status("POST", "/api/v1/tickets", json, std::string(66'000, ' ')), 413);
    EXPECT_EQ(status("POST", "/api/v1/tickets", json, R"({"path":"/a/../b"})"), 400);
    EXPECT_EQ(status("POST", "/api/v1/tickets", json, std::string(60'000, '[')), 400);
    EXPECT_EQ(status("OPTIONS", "/api/v1/server"), 405);
    EXPECT_EQ(status("POST", "/api/v1/server", json, "{}"), 405);
    for (const char* const trick : {"/../../etc/passwd", "/%2e%2e/x.js", "/..%2fx.js", "/.git/x.js", "//etc/passwd"})
        EXPECT_GE(status("GET", trick), 400) << trick;
    EXPECT_EQ(status("GET", "/api/v1/recordings/0123456789abcdef"), 404);
    EXPECT_EQ(status("GET", "/api/v1/recordings?limit=0"), 400);
    EXPECT_EQ(status("GET", "/", "Host: evil.example\r\n"), 421);
    EXPECT_EQ(status("POST", "/api/v1/radars/A/1/record", json, "{}"), 403);
    tHttpClient garbage(port);
    garbage.send("\x16\x03\x01 hello\r\n\r\n");
    EXPECT_EQ(garbage.response().status, 400);
    const tHttpResponse page = tHttpClient(port).ask("GET", "/");
    EXPECT_NE(page.headers.at("content-security-policy").find("default-src 'none'"), std::string::npos);
    EXPECT_EQ(page.headers.at("x-content-type-options"), "nosniff");
    EXPECT_FALSE(page.headers.contains("access-control-allow-origin"));
}

TEST_F(tServeTest, answersSlowHeadsAndBoundsIdleConnections)
{
    tHttpLimits limits;
    limits.headTime = 300ms;
    limits.idleTime = 1s;
    limits.connections = 8;
    const std::uint16_t port = start(limits);
    tHttpClient slow(port);
    slow.send("GET / HTTP/1.1\r\nHost: ");
    EXPECT_EQ(slow.response().status, 408);
    std::vector<std::unique_ptr<tHttpClient>> idle;
    for (int i = 0; i < 40; ++i)
        idle.push_back(std::make_unique<tHttpClient>(port));
    EXPECT_EQ(idle.back()->response().status, 503);
    EXPECT_TRUE(idle.front()->isClosed());
    idle.clear();
    EXPECT_TRUE(waitUntil([&] { return tHttpClient(port).ask("GET", "/").status == 200; }, 60s));
}

TEST_F(tServeTest, sendsRangesOfAFile)
{
    const std::uint16_t port = start();
    const std::string target = "/api/v1/recordings/" + idOf(port) + "/files/0", bytes = contentsOf(dataFile());
    tHttpClient client(port);
    EXPECT_EQ(client.ask("GET", target).body, bytes);
    const tHttpResponse part = client.ask("GET", target, "Range: bytes=10000000-10000009\r\n");
    EXPECT_EQ(part.status, 206);
    EXPECT_EQ(part.body, bytes.substr(10'000'000, 10));
    EXPECT_EQ(part.headers.at("content-range"), "bytes 10000000-10000009/" + std::to_string(bytes.size()));
    EXPECT_EQ(client.ask("GET", target, "Range: bytes=-4\r\n").body, bytes.substr(bytes.size() - 4));
    EXPECT_EQ(client.ask("GET", target, "Range: bytes=" + std::to_string(bytes.size()) + "-\r\n").status, 416);
    EXPECT_EQ(client.ask("GET", target, "Range: bytes=x\r\n").status, 200);
    EXPECT_EQ(client.ask("GET", target + "0").status, 404);
}

TEST_F(tServeTest, drawsTheTimelineFromTheSheet)
{
    recordings::addNote(dataFile(), {cTime + 3000, "<img onerror>"});
    const std::uint16_t port = start();
    const std::string target = "/api/v1/recordings/" + idOf(port) + "/timeline?from_ms=" + std::to_string(cTime) +
                               "&to_ms=" + std::to_string(cTime + 20'000) + "&columns=20";
    const tJson timeline = get(port, target);
    const tJson& stream = timeline.at("streams").at(0);
    EXPECT_EQ(stream.at("mean").at(2), 100.0);
    EXPECT_EQ(stream.at("min").at(7), 0.0);
    EXPECT_EQ(stream.at("max").at(7), 0.0);
    EXPECT_TRUE(stream.at("mean").at(18).is_null()) << "nothing was recorded there";
    const tJson gap = timeline.at("gaps").at(0);
    EXPECT_EQ(gap.at("from_ms"), cTime + 5990);
    EXPECT_EQ(gap.at("to_ms"), cTime + 10'000);
    EXPECT_EQ(timeline.at("notes").at(0).at("text"), "<img onerror>");
    EXPECT_EQ(timeline.at("complete"), true);
    // Coarser than the sheet: the gap lowers the least rate of its column and its mean.
    const tJson coarse = get(port, "/api/v1/timeline?columns=2");
    EXPECT_EQ(coarse.at("streams").at(0).at("min").at(0), 0.0);
    EXPECT_NEAR(coarse.at("streams").at(0).at("mean").at(0).get<double>(), 75, 1);
}

TEST_F(tServeTest, showsARecordingItsRecordsPictureAndPieces)
{
    const std::uint16_t port = start();
    const std::string target = "/api/v1/recordings/" + idOf(port);
    const tJson row = get(port, target);
    EXPECT_FALSE(row.contains("path"));
    EXPECT_EQ(row.at("streams").at(0).at("records"), 1200);
    EXPECT_EQ(row.at("files").at(0).at("n"), 0);
    const tJson records = get(port, target + "/records?limit=3&at_ms=" + std::to_string(cTime + 1005));
    EXPECT_EQ(records.at("records").at(2).at("time_ms"), cTime + 1000);
    EXPECT_EQ(records.at("records").at(2).at("spokes").at(0).at("sequence"), 100);
    const tHttpResponse picture = tHttpClient(port).ask("GET", target + "/picture.png?size=64");
    EXPECT_EQ(picture.body.substr(1, 3), "PNG");
    const std::string span = "?from_ms=" + std::to_string(cTime) + "&to_ms=" + std::to_string(cTime + 100);
    const tHttpResponse capture = tHttpClient(port).ask("GET", target + "/cut.pcap" + span);
    EXPECT_EQ(capture.headers.at("transfer-encoding"), "chunked");
    EXPECT_EQ(capture.body.size(), 24U + 10 * (16 + 42 + 20));
    const tHttpResponse archive = tHttpClient(port).ask("GET", target + "/cut.tar" + span);
    EXPECT_EQ(archive.body.substr(257, 5), "ustar");
    EXPECT_EQ(archive.body.size() % 512, 0U);
    EXPECT_EQ(tHttpClient(port).ask("GET", target + "/cut.tar?from_ms=5&to_ms=6").status, 404);
}

struct tSpokes
{
    std::uint16_t count;
    std::uint32_t source, epoch, flags;
    std::uint64_t firstMs;
};

tSpokes headOf(const std::string& batch)
{
    const char* const bytes = batch.data();
    return {le::load<std::uint16_t>(bytes + 2), le::load<std::uint32_t>(bytes + 4), le::load<std::uint32_t>(bytes + 8),
            le::load<std::uint32_t>(bytes + 12), le::load<std::uint64_t>(bytes + 24)};
}

// Takes what a page gets until `isEnough`; returns the last state.
template <typename tEnough>
tJson watch(tWebSocketClient& page, std::vector<tSpokes>& batches, tEnough isEnough)
{
    tJson state;
    for (int i = 0; i < 10'000; ++i)
    {
        const auto message = page.next();
        if (message.opcode == 0 || message.opcode == 8)
            break;
        if (message.opcode == 2)
            batches.push_back(headOf(message.bytes));
        else if (tJson json = tJson::parse(message.bytes, nullptr, false); json.value("type", "") == "state")
            state = std::move(json);
        if (!state.is_null() && isEnough(state))
            break;
    }
    return state;
}

TEST_F(tServeTest, showsTheTurnBeforeThePlaceAfterEachJump)
{
    const std::uint16_t port = start();
    const std::string id = idOf(port);
    tWebSocketClient page(port, "Sec-WebSocket-Protocol: kestova.v1\r\n");
    ASSERT_EQ(page.answer().status, 101);
    EXPECT_EQ(page.answer().headers.at("sec-websocket-protocol"), "kestova.v1");
    page.say(R"({"type":"open","picture":"a","id":")" + id + R"(","at_ms":)" + std::to_string(cTime + 5000) + "}");
    std::vector<tSpokes> batches;
    const auto isFull = [&](const tJson&) { return !batches.empty() && (batches.back().flags & 2) != 0; };
    const tJson state = watch(page, batches, isFull);
    EXPECT_EQ(state.at("mode"), "replay");
    EXPECT_EQ(batches.front().flags & 1, 1U) << "before the place";
    EXPECT_EQ(batches.front().epoch, 1U);
    EXPECT_EQ(batches.front().firstMs, cTime + 5000 - (cSpokesPerTurn - 1) * cSpokeMs);
    batches.clear();
    page.say(R"({"type":"seek","time_ms":)" + std::to_string(cTime + 15'000) + "}");
    watch(page, batches, [&](const tJson& now) { return isFull(now) && batches.back().epoch == 2; });
    EXPECT_EQ(batches.back().epoch, 2U);
    batches.clear();
    page.say(R"({"type":"step","unit":"turn","count":1})");
    const tJson after = watch(page, batches, [](const tJson& now) { return now.at("time_ms") > cTime + 15'000; });
    EXPECT_EQ(after.at("time_ms"), cTime + 15'000 + cTurnMs);
    page.say(R"({"type":"step","unit":"gap","count":-1})");
    const tJson gap = watch(page, batches, [](const tJson& now) { return now.at("time_ms") < cTime + 10'000; });
    EXPECT_EQ(gap.at("time_ms"), cTime + 5990);
    page.say(R"({"type":"speed","value":"max"})");
    page.say(R"({"type":"play"})");
    watch(page, batches,
          [](const tJson& now) { return now.at("time_ms") == cTime + 15'990 && now.at("playing") == false; });
    page.say(std::string(17'000, ' '));
    unsigned opcode = 0;
    do
        opcode = page.next().opcode;
    while (opcode != 8 && opcode != 0);
    EXPECT_EQ(opcode, 8U);
}

TEST_F(tServeTest, takesPagesOfItsOwnOriginAlone)
{
    m_options.maxViewers = 1;
    const std::uint16_t port = start();
    EXPECT_EQ(tHttpClient(port)
                  .ask("GET", "/api/v1/live",
                       "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                       "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n")
                  .status,
              403);
    const tWebSocketClient one(port);
    EXPECT_EQ(one.answer().status, 101);
    EXPECT_EQ(tWebSocketClient(port).answer().status, 503);
}
}  // namespace
