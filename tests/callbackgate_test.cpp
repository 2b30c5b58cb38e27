#include "KestovaStorage/internal/callbackgate.h"

#include <functional>
#include <future>

#include <gtest/gtest.h>

#include "support/waituntil.h"

namespace
{
using namespace std::chrono_literals;

struct tHeldObserver
{
    void update()
    {
        ++calls;
        entered = true;
        if (during)
            during();
        waitUntil([this] { return released.load(); });
        ended = true;
    }
    std::function<void()> during;
    std::atomic<bool> entered{false}, released{false}, ended{false};
    std::atomic<int> calls{0};
};

using tGate = tCallbackGate<tHeldObserver>;

void pass(tGate& gate)
{
    gate.through([](tHeldObserver& observer) { observer.update(); });
}
}  // namespace

TEST(tCallbackGateTest, setWaitsForTheCallUnderWay)
{
    tGate gate;
    tHeldObserver observer;
    gate.set(&observer);
    auto call = std::async(std::launch::async, [&] { pass(gate); });
    ASSERT_TRUE(waitUntil([&] { return observer.entered.load(); }));
    auto removal = std::async(std::launch::async, [&] {
        gate.set(nullptr);
        return observer.ended.load();
    });
    auto second = std::async(std::launch::async, [&] {
        waitUntil([&] { return !gate.open(); });
        gate.set(nullptr);
        return observer.ended.load();
    });
    ASSERT_TRUE(waitUntil([&] { return !gate.open(); }));
    EXPECT_EQ(removal.wait_for(50ms), std::future_status::timeout);
    EXPECT_EQ(second.wait_for(0ms), std::future_status::timeout);
    observer.released = true;
    EXPECT_TRUE(removal.get());
    EXPECT_TRUE(second.get());
}

TEST(tCallbackGateTest, setFromInsideACallDoesNotWait)
{
    tGate gate;
    tHeldObserver observer;
    bool inside = false;
    observer.released = true;
    observer.during = [&] {
        inside = gate.inside();
        gate.set(nullptr);
    };
    gate.set(&observer);
    pass(gate);
    pass(gate);
    EXPECT_EQ(observer.calls, 1);
    EXPECT_TRUE(inside);
    EXPECT_FALSE(gate.inside());
}

TEST(tCallbackGateTest, knowsItsOwnCallsFromThoseOfAnotherGate)
{
    tGate outer;
    tGate inner;
    tHeldObserver first;
    tHeldObserver second;
    first.released = second.released = true;
    bool seen[3] = {};
    first.during = [&] {
        seen[0] = inner.inside();
        pass(inner);
        seen[1] = outer.inside();
    };
    second.during = [&] { seen[2] = outer.inside() && inner.inside(); };
    outer.set(&first);
    inner.set(&second);
    pass(outer);
    EXPECT_FALSE(seen[0]);
    EXPECT_TRUE(seen[1] && seen[2]);
}
