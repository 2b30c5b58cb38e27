// Observers that are removed while they are being called: the gate to one and the list of many keep one promise.
#include "common/observers.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "support/gate.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;

namespace
{
struct tObserver
{
    std::function<void()> call = [] {};
    std::atomic<int> calls{0};
    static void run(tObserver& observer) { ++observer.calls, observer.call(); }
    static void runAt(tObserver* observer) { run(*observer); }
};

// The same verbs for all.
struct tGateToOne : tObserverGate<tObserver>
{
    void add(tObserver& observer) { set(&observer); }
    void remove(tObserver&) { set(nullptr); }
    void replace(tObserver&, tObserver& next) { set(&next); }
    void fire() { through(&tObserver::run); }
    void fireWhile(const std::atomic<bool>& on)
    {
        while (on)
            fire();
    }
};
struct tGateByCaller : tGateToOne
{
    void fire() { tCaller(*this).through(&tObserver::run); }
    void fireWhile(const std::atomic<bool>& on)
    {
        for (tCaller caller(*this); on;)
            caller.through(&tObserver::run);
    }
};
struct tListOfMany : tObserverList<tObserver>
{
    void add(tObserver& observer) { tObserverList::add(&observer); }
    void remove(tObserver& observer) { tObserverList::remove(&observer); }
    void replace(tObserver& observer, tObserver& next) { remove(observer), add(next); }
    void fire() { tCaller(*this).each(&tObserver::runAt); }
    void fireWhile(const std::atomic<bool>& on)
    {
        for (tCaller caller(*this); on;)
            caller.each(&tObserver::runAt);
    }
};

template <typename tObservers>
struct tObserversTest : testing::Test
{
    // The first call to `a` is under way on another thread; those that follow return at once.
    void holdFirstCall()
    {
        a.call = [this] {
            if (tGate* const gate = heldAt.exchange(nullptr))
                gate->pass();
        };
        observers.add(a);
        caller = std::thread([this] { observers.fire(); });
        EXPECT_TRUE(waitUntil([this] { return heldAt == nullptr; }));
    }
    bool isOutOfReach(const tObserver& observer)
    {
        return waitUntil([&, calls = 0]() mutable {
            calls = observer.calls;
            observers.fire();
            return observer.calls == calls;
        });
    }
    tObservers observers;
    tObserver a, b;
    tGate held, heldLater;
    std::atomic<tGate*> heldAt{&held};
    std::thread caller;
};
using tObserverListTest = tObserversTest<tListOfMany>;
using tAll = testing::Types<tGateToOne, tGateByCaller, tListOfMany>;
TYPED_TEST_SUITE(tObserversTest, tAll, );
}  // namespace

TYPED_TEST(tObserversTest, replacesAnObserverOnlyWhenNoCallToItIsUnderWay)
{
    this->holdFirstCall();
    std::atomic<bool> replaced{false};
    std::thread replacer([&] {
        this->observers.replace(this->a, this->b);
        replaced = true;
    });
    EXPECT_TRUE(this->isOutOfReach(this->a));
    EXPECT_FALSE(waitUntil([&] { return replaced.load(); }, 30ms));
    this->held.open();
    replacer.join();
    this->caller.join();
    this->observers.fire();
    EXPECT_GE(this->b.calls, 1);
}

// Each of two calls under way waits for nobody: for the other it would wait forever.
TYPED_TEST(tObserversTest, returnsAtOnceWhenItRemovesFromInsideACall)
{
    this->a.call = [this] {
        EXPECT_TRUE(waitUntil([this] { return this->a.calls == 2; }));
        this->observers.remove(this->a);
    };
    this->observers.add(this->a);
    std::thread other([this] { this->observers.fire(); });
    this->observers.fire();
    other.join();
    this->observers.fire();
    EXPECT_EQ(this->a.calls, 2);
}

TYPED_TEST(tObserversTest, neverCallsAnObserverThatIsGone)
{
    std::atomic<bool> firing{true};
    this->caller = std::thread([&] { this->observers.fireWhile(firing); });
    for (int round = 0; round < 1'000; ++round)
    {
        std::atomic<bool> gone{false};
        tObserver observer;
        observer.call = [&] { EXPECT_FALSE(gone); };
        this->observers.add(observer);
        EXPECT_TRUE(round % 100 != 0 || waitUntil([&] { return observer.calls != 0; }));
        this->observers.remove(observer);
        gone = true;
    }
    firing = false;
    this->caller.join();
}

TEST_F(tObserverListTest, waitsNeitherForCallsToOthersNorForThoseThatBeganLater)
{
    holdFirstCall();
    observers.add(b);
    observers.remove(b);
    std::thread remover([this] { observers.remove(a); });
    EXPECT_TRUE(isOutOfReach(a));
    heldAt = &heldLater;
    observers.add(a);
    std::thread laterCaller([this] { observers.fire(); });
    EXPECT_TRUE(waitUntil([this] { return heldAt == nullptr; }));
    held.open();
    remover.join();
    heldLater.open();
    laterCaller.join();
    caller.join();
}

TEST_F(tObserverListTest, callsInTheOrderOfRegistrationAndLeavesOutWhatAnEarlierCallRemoved)
{
    std::string order;
    tListOfMany::tCaller keepsItsCopy(observers);
    const auto fired = [&] {
        order.clear();
        keepsItsCopy.each(&tObserver::runAt);
        return order;
    };
    EXPECT_EQ(fired(), "");
    a.call = [&] { order += 'a'; };
    b.call = [&] { order += 'b'; };
    for (tObserver* observer : {&b, &a, &b})
        observers.add(*observer);
    EXPECT_EQ(fired(), "bab");
    a.call = [&] { order += 'a', observers.remove(b); };
    EXPECT_EQ(fired(), "ba");
    EXPECT_EQ(fired(), "a");
}
