// kestova serve as a program: what it prints, how it ends, and that its recordings outlive it.
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

#include "KestovaStorage/companions.h"
#include "support/httpclient.h"
#include "support/toolfixture.h"

namespace
{
class tToolServeTest : public tToolFixture
{
protected:
    tToolServeTest()
    {
        std::filesystem::create_directories(root);
        std::ofstream(radars) << R"({"radars": [{"serial": "S1:7", "id": 2,
            "streams": {"imageStream": "239.192.43.78:16180"}}]})";
    }
    // Waits for the line with the address.
    std::uint16_t portOf(tChildProcess& server) const
    {
        const auto line = [&] { return server.out().find('\n') != std::string::npos; };
        EXPECT_TRUE(waitUntil(line, std::chrono::seconds(60))) << server.err();
        const std::string url = server.out();
        EXPECT_EQ(url.substr(0, 25), "serving http://127.0.0.1:");
        return static_cast<std::uint16_t>(std::stoi(url.substr(25)));
    }
    tArguments serve(tArguments more = {}) const
    {
        tArguments arguments{"serve",      "--root",    root,       "--radars",   radars,
                             "--local-ip", "127.0.0.1", "--listen", "127.0.0.1:0"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    const std::string root = dir.file("root"), radars = dir.file("radars.json");
};
}  // namespace

TEST_F(tToolServeTest, endsWithCtrlCAndRefusesToStart)
{
    tChildProcess server(tool(serve()));
    const std::uint16_t port = portOf(server);
    const std::string taken = "127.0.0.1:" + std::to_string(port), token = dir.file("token");
    EXPECT_NE(said({"serve", "--root", root, "--listen", taken}, 1).find("choose another"), std::string::npos);
    EXPECT_NE(said({"serve", "--root", root, "--listen", "0.0.0.0:0"}, 1).find("--token-file"), std::string::npos);
    std::ofstream(token) << "0123456789abcdef\n";
    ::chmod(token.c_str(), 0640);
    EXPECT_NE(said({"serve", "--root", root, "--token-file", token}, 1).find("chmod 600"), std::string::npos);
    const tWebSocketClient viewer(port);
    server.signal(SIGINT);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(server.err(), "");
}

TEST_F(tToolServeTest, recordingsOutliveItAndAreEndedByTheNextOne)
{
    std::string id;
    {
        tChildProcess server(tool(serve({"--allow-record"})));
        tHttpClient client(portOf(server));
        const tHttpResponse made = client.post("/api/v1/radars/S1:7/2/record", "{}");
        ASSERT_EQ(made.status, 201) << made.body;
        id = tJson::parse(made.body).at("id").get<std::string>();
        EXPECT_EQ(client.post("/api/v1/radars/S1:7/2/record", "{}").status, 409);
        EXPECT_EQ(tJson::parse(client.ask("GET", "/api/v1/radars").body).at("radars").at(0).at("recording"), id);
        server.signal(SIGKILL);
        EXPECT_EQ(server.wait(), 1000 + SIGKILL);
    }
    tChildProcess next(tool(serve({"--allow-record"})));
    tHttpClient client(portOf(next));
    const std::string target = "/api/v1/recordings/" + id;
    EXPECT_EQ(tJson::parse(client.ask("GET", target).body).at("state"), "recording");
    EXPECT_EQ(client.post(target + "/note", R"({"text":"seen"})").status, 200);
    EXPECT_EQ(client.post(target + "/keep", R"({"kept":true})").status, 200);
    const tHttpResponse stopped = client.post(target + "/stop", "{}");
    ASSERT_EQ(stopped.status, 200) << stopped.body;
    expectIn(tJson::parse(stopped.body), {{"state", "finished"}, {"notes", 1}, {"kept", true}});
    EXPECT_EQ(client.post(target + "/stop", "{}").status, 409);
}
