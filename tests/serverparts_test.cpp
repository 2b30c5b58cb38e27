#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "server/access.h"
#include "server/answers.h"
#include "server/livebatch.h"
#include "server/target.h"
#include "server/viewermessage.h"
#include "server/viewerqueue.h"

namespace
{
using namespace server;
using namespace std::chrono_literals;

constexpr std::uint16_t cPort = 8780;

tHttpRequest requestOf(const std::string& method, const tHeaders& headers)
{
    tHttpRequest request;
    request.method = method;
    request.target = "/api/v1/server";
    request.headers = headers;
    request.peer = "127.0.0.1";
    request.local = "127.0.0.1:8780";
    return request;
}

template <typename tWork>
unsigned statusOf(tWork work)
try
{
    work();
    return 200;
}
catch (const tRefusal& refusal)
{
    return refusal.status;
}

TEST(tAccessTest, letsItsOwnPagesAskAndNoOthers)
{
    tServeOptions options;
    options.hosts = {"radar.example", "other.example:443"};
    const tAccess access(options, cPort);
    const struct
    {
        const char* method;
        tHeaders headers;
        unsigned status;
    } cCases[] = {{"GET", {{"host", "127.0.0.1:8780"}}, 200},
                  {"GET", {{"host", "LOCALHOST:8780"}}, 200},
                  {"GET", {{"host", "[::1]:8780"}}, 200},
                  {"GET", {{"host", "radar.example"}}, 200},
                  {"GET", {{"host", "radar.example:8780"}}, 200},
                  {"GET", {{"host", "other.example:443"}}, 200},
                  {"GET", {{"host", "other.example"}}, 421},
                  {"GET", {{"host", "127.0.0.1:8781"}}, 421},
                  {"GET", {{"host", "localhost"}}, 421},
                  {"GET", {{"host", "localhost.evil.example:8780"}}, 421},
                  {"GET", {{"host", "localhost:8780"}, {"host", "localhost:8780"}}, 421},
                  {"GET", {}, 421},
                  {"GET", {{"host", "localhost:8780"}, {"x-forwarded-host", "evil.example"}}, 200},
                  {"GET", {{"host", "localhost:8780"}, {"origin", "http://localhost:8780"}}, 200},
                  {"GET", {{"host", "localhost:8780"}, {"origin", "http://127.0.0.1:8780"}}, 403},
                  {"GET", {{"host", "localhost:8780"}, {"origin", "https://localhost:8780"}}, 403},
                  {"GET", {{"host", "radar.example"}, {"origin", "https://radar.example"}}, 200},
                  {"GET", {{"host", "radar.example"}, {"origin", "null"}}, 403},
                  {"GET", {{"host", "radar.example"}, {"origin", ""}}, 403},
                  {"GET", {{"host", "radar.example"}, {"sec-fetch-site", "cross-site"}}, 403},
                  {"GET", {{"host", "radar.example"}, {"sec-fetch-site", "same-site"}}, 403},
                  {"GET", {{"host", "radar.example"}, {"sec-fetch-site", "same-origin"}}, 200},
                  {"OPTIONS", {{"host", "radar.example"}}, 405},
                  {"POST", {{"host", "radar.example"}, {"content-type", "application/json"}}, 403},
                  {"POST", {{"host", "radar.example"}, {"x-kestova", "1"}, {"content-type", "text/plain"}}, 415},
                  {"POST",
                   {{"host", "radar.example"}, {"x-kestova", "1"}, {"content-type", "application/json; charset=utf-8"}},
                   200}};
    for (const auto& c : cCases)
    {
        const tHttpRequest request = requestOf(c.method, c.headers);
        std::string trace = c.method;
        for (const auto& [name, value] : c.headers)
            trace += ' ' + name + '=' + value;
        SCOPED_TRACE(trace);
        EXPECT_EQ(statusOf([&] { access.checkSender(request); }), c.status);
    }
}

TEST(tAccessTest, asksForTheTokenAndBlocksWhoGuesses)
{
    tServeOptions options;
    options.token = "0123456789abcdef";
    tAccess access(options, cPort);
    const auto asked = [&](const std::string& token, const std::string& ticket = "") {
        return statusOf([&] { access.checkToken(requestOf("GET", {{"authorization", token}}), ticket); });
    };
    EXPECT_EQ(asked(""), 401U);
    EXPECT_EQ(asked("Bearer 0123456789abcdef"), 200U);
    const std::string ticket = access.tickets().issue("/api/v1/server", std::chrono::steady_clock::now());
    EXPECT_EQ(asked("", ticket), 200U);
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(asked("Bearer 0123456789abcdeX"), 401U);
    EXPECT_EQ(asked("", ticket), 401U) << "a ticket is good once, and a wrong token then";
    EXPECT_EQ(asked("Bearer 0123456789abcdef"), 429U);
    // "0123456789abcdef" as base64url
    const auto upgraded = [&](const std::string& peer, const std::string& protocols) {
        tHttpRequest request = requestOf("GET", {{"origin", "x"}, {"sec-websocket-protocol", protocols}});
        request.peer = peer;
        return statusOf([&] { EXPECT_EQ(access.checkUpgrade(request), "kestova.v1"); });
    };
    EXPECT_EQ(upgraded("10.0.0.1", "kestova.v1, bearer.MDEyMzQ1Njc4OWFiY2RlZg"), 200U);
    EXPECT_EQ(upgraded("10.0.0.1", "kestova.v1"), 401U);
    EXPECT_EQ(statusOf([&] { access.checkUpgrade(requestOf("GET", {})); }), 403U);
}

TEST(tTicketsTest, areForOneTargetAndThirtySeconds)
{
    tTickets tickets;
    const tTickets::tTime now{};
    const std::string one = tickets.issue("/a?x=1", now);
    EXPECT_FALSE(tickets.redeem(one, "/b?x=1&ticket=" + one, now));
    EXPECT_FALSE(tickets.redeem(one, "/a?x=2&ticket=" + one, now));
    EXPECT_TRUE(tickets.redeem(one, "/a?ticket=" + one + "&x=1", now));
    EXPECT_FALSE(tickets.redeem(one, "/a?x=1&ticket=" + one, now));
    const std::string late = tickets.issue("/a", now);
    EXPECT_FALSE(tickets.redeem(late, "/a?ticket=" + late, now + 31s));
}

TEST(tTargetTest, takesPathsApartAndRefusesTricks)
{
    const auto target = parseTarget("/api/v1/recordings/x%20y?q=a+b%26&limit=5&empty");
    ASSERT_TRUE(target);
    EXPECT_EQ(target->segments, (std::vector<std::string>{"api", "v1", "recordings", "x y"}));
    EXPECT_EQ(target->text("q"), "a b&");
    EXPECT_EQ(target->number("limit", 1, 10), 5U);
    EXPECT_THROW((void)target->number("limit", 6, 10), tRefusal);
    EXPECT_THROW((void)target->number("q", 0, 10), tRefusal);
    EXPECT_TRUE(parseTarget("/")->segments.empty());
    for (const char* const trick : {"",
                                    "x",
                                    "//x",
                                    "/a//b",
                                    "/a/",
                                    "/..",
                                    "/a/../b",
                                    "/%2e%2e/a",
                                    "/a%2fb",
                                    "/a%5cb",
                                    "/a\\b",
                                    "/a%00",
                                    "/a%0d%0aX: y",
                                    "/%",
                                    "/%4",
                                    "/%zz",
                                    "/a?x=%",
                                    "/a?x=1&x=2",
                                    "/a#b",
                                    "*",
                                    "http://evil.example/a"})
        EXPECT_FALSE(parseTarget(trick)) << trick;
}

TEST(tBatchBuilderTest, laysSpokesOutByteForByte)
{
    const unsigned char bytes[] = {1, 2, 3, 0x12, 0x34};
    recordings::tSpoke spoke;
    spoke.bearingFrom = 0.25;
    spoke.bearingTo = 0.5;
    spoke.reference = utils::eReferenceNorth;
    spoke.firstCellM = 1.5;
    spoke.cellM = 2;
    spoke.cells = {bytes, 3, 8, false};
    spoke.sequence = 0x1'0000'0007;
    tBatchBuilder builder;
    builder.add(spoke, 0x0102030405060708, 90.0, 0.25);
    spoke.cells = {bytes, 3, 12, true};  // 0x010, 0x203, 0x123
    builder.add(spoke, 1, std::nullopt, 0.25);
    const tBatch batch = builder.take({5, 6, cWhole, 9});
    EXPECT_EQ(batch.spokes, 2U);
    EXPECT_DOUBLE_EQ(batch.turns, 0.5);
    const std::string head("\x01\x01\x02\0\x05\0\0\0\x06\0\0\0\x02\0\0\0\x09\0\0\0\0\0\0\0", 24);
    const std::string first(
        "\x08\x07\x06\x05\x04\x03\x02\x01\0\0\0\x40\0\0\0\x80\0\0\xC0\x3F\0\0\0\x40\x07\0\0\0\x03\0\0\0"
        "\0\0\xB4\x42\x08\x01\x02\0\x01\x02\x03\0\0\0\0\0",
        48);
    ASSERT_EQ(batch.bytes->size(), 24U + 48 + 48);
    EXPECT_EQ(batch.bytes->substr(0, 24), head);
    EXPECT_EQ(batch.bytes->substr(24, 48), first);
    float heading = 0;
    std::memcpy(&heading, batch.bytes->data() + 72 + 32, sizeof(heading));
    EXPECT_TRUE(std::isnan(heading));
    EXPECT_EQ(batch.bytes->substr(72 + 36, 4), std::string("\x0C\x02\x02\0", 4));
    EXPECT_EQ(batch.bytes->substr(72 + 40, 6), std::string("\x10\0\x03\x02\x23\x01", 6));
    EXPECT_EQ(builder.take({5, 6, 0, 10}).bytes->size(), 24U);
}

tBatch batchOf(std::size_t bytes, double turns)
{
    return {std::make_shared<const std::string>(bytes, 'x'), 10, turns};
}

TEST(tViewerQueueTest, dropsTheOldestWholeBatchesOfASlowViewer)
{
    tViewerQueue queue;
    std::vector<tBatch> given;
    for (int i = 0; i < 12; ++i)
        given.push_back(batchOf(1000, 0.125));
    for (const tBatch& batch : given)
        queue.addBatch(0, batch);
    EXPECT_EQ(queue.thinned(0), 40U) << "a turn is eight of them";
    EXPECT_EQ(queue.addBatch(1, given[0]), 0U) << "each picture has a turn of its own";
    queue.addText("first");
    tFrame frame;
    ASSERT_TRUE(queue.next(frame));
    EXPECT_EQ(*frame.bytes, "first");
    ASSERT_TRUE(queue.next(frame));
    EXPECT_EQ(frame.bytes, given[4].bytes) << "the same bytes for all viewers";
    queue.clear(0);
    ASSERT_TRUE(queue.next(frame));
    EXPECT_EQ(frame.bytes, given[0].bytes);
    EXPECT_FALSE(queue.next(frame));
    for (int i = 0; i < 6; ++i)
        queue.addBatch(0, batchOf(1 << 20, 0.01));
    EXPECT_EQ(queue.waiting(0).bytes, std::size_t{4} << 20);
    EXPECT_EQ(queue.thinned(0), 60U);
}

TEST(tViewerMessageTest, isReadOrRefused)
{
    const auto open = parseViewerMessage(R"({"type":"open","picture":"b","radar":"A1/2","id":"live","at_ms":5})");
    EXPECT_EQ(open.picture, 1U);
    EXPECT_EQ(open.radar, "A1/2");
    EXPECT_EQ(open.id, "");
    EXPECT_EQ(open.atMs, 5U);
    EXPECT_EQ(parseViewerMessage(R"({"type":"speed","value":"max"})").speed, 0);
    EXPECT_EQ(parseViewerMessage(R"({"type":"step","unit":"gap","count":-2})").count, -2);
    EXPECT_FALSE(parseViewerMessage(R"({"type":"loop"})").loop);
    for (const char* const wrong :
         {"", "[]", "{}", R"({"type":"fly"})", R"({"type":"seek"})", R"({"type":"seek","time_ms":-1})",
          R"({"type":"seek","time_ms":1e300})", R"({"type":"speed","value":11})", R"({"type":"speed","value":"fast"})",
          R"({"type":"step","unit":"turn","count":0})", R"({"type":"step","unit":"turn","count":1e9})",
          R"({"type":"open","id":5})", R"({"type":"play","picture":"c"})", R"({"type":"loop","from_ms":5,"to_ms":5})"})
        EXPECT_THROW(parseViewerMessage(wrong), tRefusal) << wrong;
    EXPECT_THROW(parseViewerMessage(std::string(16'000, '[')), tRefusal);
}
}  // namespace
