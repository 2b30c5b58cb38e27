#include <filesystem>
#include <map>
#include <pthread.h>
#include <random>
#include <thread>

#include "support/processentries.h"
#include "support/replayfixture.h"

using namespace std::chrono_literals;
using storage::tDataStorageIO;

class tReplayControlTest : public tReplayFixture
{
protected:
    bool call(const std::string& name)
    {
        return name == "pause"    ? player->Pause(true)
               : name == "resume" ? player->Pause(false)
               : name == "stop"   ? player->Stop()
               : name == "jump"   ? player->Jump(1.0)
               : name == "open"   ? player->OpenReadDataFileorFolder(dir.file("o.data"), &log)
                                  : (player->CloseReadingFile(), true);
    }
    std::thread closeElsewhere()
    {
        return std::thread([this] {
            player->CloseReadingFile();
            closed = true;
        });
    }
    bool isClosed(std::chrono::steady_clock::duration within) const
    {
        return waitUntil([&] { return closed.load(); }, within);
    }

    std::atomic<bool> closed{false};
};

TEST_F(tReplayControlTest, answersEveryCallInEveryState)
{
    const std::string path = recordWaiting();
    const char* const calls[] = {"pause", "resume", "stop", "jump", "close"};
    // What each call reports before it returns.
    const std::map<std::string, std::vector<std::string>> cases = {{"play", {"2", "1", "1 4 3", "1 4 3 1", "1 4 3"}},
                                                                   {"pause", {"2", "1", "1 4 3", "1 4 3 1", "1 4 3"}},
                                                                   {"jump", {"2", "1", "1 3", "1 3 1", "1 3"}},
                                                                   {"stop", {"no", "no", "no", "1", ""}},
                                                                   {"close", {"no", "no", "no", "no", ""}}};
    for (const auto& [state, reported] : cases)
        for (std::size_t i = 0; i < reported.size(); ++i)
        {
            SCOPED_TRACE(state + " " + calls[i]);
            open(path);
            ASSERT_TRUE(log.waitFor("a"));
            if (state != "play")
                call(state);
            EXPECT_TRUE(state != "jump" || log.waitForText("0 28800000-36000000 1 a 1 4 3 1 z 4"));  // the end
            log.clear();
            const bool done = call(calls[i]);
            EXPECT_EQ((done ? "" : "no") + log.text().substr(0, reported[i].size()), reported[i]);
            player->CloseReadingFile();
            log.clear();
        }
}

TEST_F(tReplayControlTest, refusesCallsUntilOpeningHasFinished)
{
    std::atomic<bool> tried{false};
    log.react = [&](const std::string& word) { word == "0" && waitUntil([&] { return tried.load(); }); };
    EXPECT_FALSE(call("pause") || call("stop") || call("jump"));
    open(recordWaiting());
    ASSERT_TRUE(log.waitFor("0"));
    EXPECT_FALSE(call("pause") || call("stop") || call("jump"));
    tried = true;
    EXPECT_TRUE(log.waitForText("0 28800000-36000000 1 a")) << log.text();
}

// What is reported after a word whose callback makes a call. If the word is a 2, 4 or 3, a pause and a stop come from
// outside as well.
TEST_F(tReplayControlTest, takesCallsFromInsideEveryCallback)
{
    const std::string path = recordWaiting();
    record("o.data", {{5, "o"}});
    const char* const calls[] = {"pause", "stop", "jump", "close", "open"};
    const std::vector<std::string> playing = {"2", "1 4 3", "1 4 3 1 z 4", "1 4 3", "1 4 3 0 5-5 1 o 4"};
    const std::map<std::string, std::vector<std::string>> cases = {
        {"0", {"no 28800000-36000000 1 a", "no 28800000-36000000 1 a", "no 28800000-36000000 1 a", "", "0 5-5 1 o 4"}},
        {"28800000-36000000", {"no 1 a", "no 1 a", "no 1 a", "", "0 5-5 1 o 4"}},
        {"1", playing},
        {"a", playing},
        {"2", playing},
        {"4", {"2 3", "3", "3 1 z 4", "3", "3 0 5-5 1 o 4"}},
        {"3", {"no ", "no ", "1 z 4", "", "0 5-5 1 o 4"}}};
    for (const auto& [place, reported] : cases)
        for (std::size_t i = 0; i < reported.size(); ++i)
        {
            SCOPED_TRACE(place + " " + calls[i]);
            const std::string& expected = reported[i];
            std::atomic<const char*> result{nullptr};
            log.react = [&, at = place](const std::string& word) {
                if (word != at || result != nullptr)
                    return;
                log.clear();
                result = "";
                result = call(calls[i]) ? "" : "no ";
            };
            open(path);
            if (place != "0" && place != "28800000-36000000" && place != "1" && place != "a" && log.waitFor("a"))
                player->Pause(true);
            if (place == "3" || place == "4")
                player->Stop();
            EXPECT_TRUE(waitUntil([&] { return result != nullptr && result.load() + log.text() == expected; }))
                << log.text();
            player->CloseReadingFile();
        }
}

TEST_F(tReplayControlTest, carriesOutSeveralCallsOfOneCallbackInTheirOrder)
{
    const std::string other = record("o.data", {{5, "o"}});
    log.react = [&](const std::string& word) {
        if (word == "a" && call("jump") && call("close") && call("stop"))
            player->OpenReadDataFileorFolder(other, &otherLog);
    };
    open(recordWaiting());
    EXPECT_TRUE(otherLog.waitForText("0 5-5 1 o 4")) << otherLog.text();
    EXPECT_EQ(log.text(), "0 28800000-36000000 1 a 1 4 3 1 1 4 3");
}

TEST_F(tReplayControlTest, playsOnAfterAJumpThoughThePauseCameDuringTheStop)
{
    std::atomic<bool> pausing{true};
    log.react = [&](const std::string& word) { word == "4" && pausing && player->Pause(true); };
    open(recordWaiting());
    ASSERT_TRUE(log.waitFor("a"));
    EXPECT_TRUE(player->Stop());
    EXPECT_EQ(log.text(), "0 28800000-36000000 1 a 1 4 2 3");
    pausing = false;
    EXPECT_TRUE(player->Jump(1.0));
    EXPECT_TRUE(log.waitForText("0 28800000-36000000 1 a 1 4 2 3 1 z 4")) << log.text();
}

TEST_F(tReplayControlTest, closesThoughTheObserverAsksForMoreAtEveryStop)
{
    std::atomic<bool> asking{true};
    log.react = [&](const std::string& word) { (word == "3" || word == "1") && asking && player->Jump(0); };
    open(recordWaiting());
    EXPECT_TRUE(log.waitFor("3", 20));
    std::thread closer = closeElsewhere();
    EXPECT_TRUE(isClosed(5s));
    asking = false;
    closer.join();
}

TEST_F(tReplayControlTest, poursNothingOutOnceAStopHasBegun)
{
    log.react = [&](const std::string& word) {
        if (word == "b")
            waitUntil([&] { return log.count("1") == 2; });  // a slow observer, until the stop has begun
        if (word == "1" && log.count("1") == 2)
            waitUntil([&] { return log.count("b") > 1; }, 200ms);
    };
    open(recordBurst());
    ASSERT_TRUE(log.waitFor("b"));
    EXPECT_TRUE(player->Stop());
    EXPECT_EQ(log.text(), "0 1000-1000 1 b 1 4 3");
}

TEST_F(tReplayControlTest, waitsForACallbackUnderWayBeforeItIsClosed)
{
    std::atomic<bool> let{false};
    log.react = [&](const std::string& word) { word == "2" && waitUntil([&] { return let.load(); }); };
    open(recordWaiting());
    ASSERT_TRUE(log.waitFor("a"));
    std::thread pauser([&] { player->Pause(true); });
    ASSERT_TRUE(log.waitFor("2"));
    std::thread closer = closeElsewhere();
    EXPECT_TRUE(log.waitFor("3"));
    EXPECT_FALSE(isClosed(100ms));
    let = true;
    EXPECT_TRUE(isClosed(5s));
    pauser.join();
    closer.join();
}

TEST_F(tReplayControlTest, reportsTheEndToTheOldObserverAndNothingOnceItIsClosed)
{
    const std::string path = recordBurst();
    for (std::size_t round = 0; round < 20; ++round)
    {
        tReplayLog ended, next;
        player->OpenReadDataFileorFolder(path, &ended);
        ASSERT_TRUE(ended.waitFor("b", 1 + round % 7));
        player->OpenReadDataFileorFolder(path, &next);
        const std::string reported = ended.text();
        EXPECT_EQ(reported.substr(reported.size() - 2), " 3");
        ASSERT_TRUE(next.waitFor("4"));
        player->CloseReadingFile();
        ASSERT_EQ(ended.text(), reported);
        ASSERT_EQ(next.text().substr(0, 15), "0 1000-1000 1 b");
    }
}

TEST_F(tReplayControlTest, doesNotOpenToTheEndWhatIsClosedMeanwhile)
{
    std::atomic<bool> closing{false};
    log.react = [&](const std::string& word) {
        if (word == "0" && waitUntil([&] { return closing.load(); }))
            waitUntil([] { return false; }, 20ms);  // the close begins
    };
    const std::string path = recordWaiting();
    for (int tries = 0; tries < 50 && log.text() != "0"; ++tries)
    {
        log.clear();
        closing = false;
        open(path);
        ASSERT_TRUE(log.waitFor("0"));
        closing = true;
        player->CloseReadingFile();
    }
    EXPECT_EQ(log.text(), "0");
}

TEST_F(tReplayControlTest, isDestroyedInAnyStateAndLeavesNothingBehind)
{
    std::filesystem::create_directory(dir.file("many"));
    for (int i = 0; i < 60; ++i)
        record("many/" + std::to_string(i) + ".data", {{1, "a"}, {1 + cHour, "z"}});
    const std::vector<std::pair<const char*, const char*>> states = {{nullptr, nullptr}, {"0", nullptr}, {"1", nullptr},
                                                                     {"a", "pause"},     {"a", "jump"},  {"a", "stop"},
                                                                     {"a", "close"}};
    player.reset();
    const auto descriptors = openDescriptors(), threads = runningThreads();
    for (std::size_t i = 0; i < 70; ++i)
    {
        const auto [reached, then] = states[i % states.size()];
        tReplayLog reported;
        player = std::make_unique<tDataStorageIO>("", ".data");
        player->OpenReadDataFileorFolder(dir.file("many"), &reported);
        const bool there = reached == nullptr || reported.waitFor(reached);
        EXPECT_TRUE(there && (then == nullptr || call(then))) << reported.text();
        player.reset();
        const std::string text = reported.text();
        EXPECT_TRUE(reported.count("1") == 0 || text.substr(text.size() - 1) == "3") << text;
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_LE(runningThreads(), threads + 1);  // one makes room on disks for as long as the process lives
}

TEST_F(tReplayControlTest, opensAgainAfterNoThreadCouldBeStarted)
{
    pthread_attr_t usual, huge;
    ASSERT_EQ(::pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(::pthread_getattr_default_np(&huge), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&huge, std::size_t{1} << 46), 0);
    ASSERT_EQ(::pthread_setattr_default_np(&huge), 0);
    open(recordWaiting());
    ASSERT_EQ(::pthread_setattr_default_np(&usual), 0);
    EXPECT_FALSE(call("pause"));
    EXPECT_EQ(log.text(), "");
    open(recordWaiting());
    EXPECT_TRUE(log.waitFor("a")) << log.text();
}

// Four threads and the callbacks themselves ask for everything at once, two seconds long.
TEST_F(tReplayControlTest, bearsCallsFromManyThreadsAtOnce)
{
    const std::string paths[] = {recordWaiting(), recordBurst(), dir.string(), dir.file("missing")};
    std::atomic<bool> asking{true};
    std::atomic<int> delivering{0}, overlaps{0};
    const std::function<void(unsigned)> calls[] = {
        [&](unsigned chance) { player->OpenReadDataFileorFolder(paths[chance % 4], chance % 7 != 0 ? &log : nullptr); },
        [&](unsigned) { player->CloseReadingFile(); },
        [&](unsigned) { player->Stop(); },
        [&](unsigned chance) { player->Pause(chance % 2 == 0); },
        [&](unsigned chance) { player->FastSlowForward(0.2 * (chance % 60)); },
        [&](unsigned chance) { player->Jump(0.125 * (chance % 10)); }};
    const auto ask = [&](std::mt19937& random) {
        calls[std::min<std::size_t>(random() % 8, 5)](static_cast<unsigned>(random() >> 8));
    };
    log.react = [&](const std::string& word) {
        static thread_local std::mt19937 random(
            static_cast<unsigned>(std::hash<std::thread::id>()(std::this_thread::get_id())));
        const bool segment = word == "a" || word == "b" || word == "m" || word == "z";
        overlaps += segment && delivering.fetch_add(1) != 0 ? 1 : 0;
        if (asking && random() % 16 == 0)
            ask(random);
        delivering -= segment ? 1 : 0;
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed)
        threads.emplace_back([&, seed] {
            for (std::mt19937 random(seed); asking;)
                ask(random);
        });
    EXPECT_FALSE(waitUntil([&] { return overlaps != 0; }, 2s));
    asking = false;
    for (std::thread& thread : threads)
        thread.join();
    player->CloseReadingFile();
    EXPECT_GE(log.count("3"), 10u);
    player->OpenReadDataFileorFolder(paths[0], &otherLog);
    EXPECT_TRUE(otherLog.waitForText("0 28800000-36000000 1 a")) << otherLog.text();
}
