// tReplayFixture: recordings made by hand, a player, and logs of what it tells.
#ifndef KESTOVA_TESTS_REPLAYFIXTURE_H
#define KESTOVA_TESTS_REPLAYFIXTURE_H

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "KestovaStorage/datastorageio.h"
#include "support/recording.h"
#include "support/replaylog.h"
#include "support/tempdir.h"

class tReplayFixture : public testing::Test
{
protected:
    static constexpr std::uint64_t cHour = 3'600'000;
    std::string record(const std::string& name, const tSegments& segments)
    {
        recordByHand(dir.file(name), segments);
        return dir.file(name);
    }
    // Plays "a" and then waits for hours; the span is told as "28800000-36000000".
    std::string recordWaiting() { return record("w.data", {{8 * cHour, "a"}, {9 * cHour, "m"}, {10 * cHour, "z"}}); }
    // 5,000 segments "b" of one millisecond, all due at once: the most that can pour out.
    std::string recordBurst() { return record("burst.data", tSegments(5'000, {1000, "b"})); }
    void open(const std::string& path) { player->OpenReadDataFileorFolder(path, &log); }

    tTempDir dir;
    tReplayLog log, otherLog;
    std::unique_ptr<storage::tDataStorageIO> player = std::make_unique<storage::tDataStorageIO>("", ".data");
};

#endif
