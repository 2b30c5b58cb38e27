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
    void run() { ++calls, call(); }
};
using tGateToOne = tObserverGate<tObserver>;
using tListOfMany = tObserverList<tObserver>;

// The same verbs for both.
void add(tGateToOne& gate, tObserver& observer)
{
    gate.set(&observer);
}
void remove(tGateToOne& gate, tObserver&)
{
    gate.set(nullptr);
}
void fire(tGateToOne& gate)
{
    gate.through([](tObserver& observer) { observer.run(); });
}
void add(tListOfMany& list, tObserver& observer)
{
    list.add(&observer);
}
void remove(tListOfMany& list, tObserver& observer)
{
    list.remove(&observer);
}
void fire(tListOfMany& list)
{
    tListOfMany::tCaller(list).each([](tObserver* observer) { observer->run(); });
}

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
        add(observers, a);
        caller = std::thread([this] { fire(observers); });
        EXPECT_TRUE(waitUntil([this] { return heldAt == nullptr; }));
    }
    bool isOutOfReach(const tObserver& observer)
    {
        return waitUntil([&, calls = 0]() mutable {
            calls = observer.calls;
            fire(observers);
            return observer.calls == calls;
        });
    }
    tObservers observers;
    tObserver a, b;
    tGate held, heldLater;
    std::atomic<tGate*> heldAt{&held};
    std::thread caller;
};
using tObserverGateTest = tObserversTest<tGateToOne>;
using tObserverListTest = tObserversTest<tListOfMany>;
using tBoth = testing::Types<tGateToOne, tListOfMany>;
TYPED_TEST_SUITE(tObserversTest, tBoth, );
}  // namespace

TYPED_TEST(tObserversTest, removesAnObserverOnlyWhenNoCallToItIsUnderWay)
{
    this->holdFirstCall();
    std::atomic<bool> removed{false};
    std::thread remover([&] {
        remove(this->observers, this->a);
        removed = true;
    });
    EXPECT_TRUE(this->isOutOfReach(this->a));
    EXPECT_FALSE(waitUntil([&] { return removed.load(); }, 30ms));
    this->held.open();
    remover.join();
    this->caller.join();
}

// Each of two calls under way waits for nobody: for the other it would wait forever.
TYPED_TEST(tObserversTest, returnsAtOnceWhenItRemovesFromInsideACall)
{
    this->a.call = [this] {
        EXPECT_TRUE(waitUntil([this] { return this->a.calls == 2; }));
        remove(this->observers, this->a);
    };
    add(this->observers, this->a);
    std::thread other([this] { fire(this->observers); });
    fire(this->observers);
    other.join();
    fire(this->observers);
    EXPECT_EQ(this->a.calls, 2);
}

TYPED_TEST(tObserversTest, neverCallsAnObserverThatIsGone)
{
    std::atomic<bool> firing{true};
    this->caller = std::thread([&] {
        while (firing)
            fire(this->observers);
    });
    for (int round = 0; round < 1'000; ++round)
    {
        std::atomic<bool> gone{false};
        tObserver observer;
        observer.call = [&] { EXPECT_FALSE(gone); };
        add(this->observers, observer);
        EXPECT_TRUE(round % 100 != 0 || waitUntil([&] { return observer.calls != 0; }));
        remove(this->observers, observer);
        gone = true;
    }
    firing = false;
    this->caller.join();
}

TEST_F(tObserverGateTest, callsTheNewObserverWhileItWaitsForTheCallToTheOldOne)
{
    holdFirstCall();
    EXPECT_TRUE(observers.open() && !observers.inside());
    b.call = [this] { EXPECT_TRUE(observers.inside()); };
    std::atomic<bool> replaced{false};
    std::thread replacer([&] {
        observers.set(&b);
        replaced = true;
    });
    EXPECT_TRUE(isOutOfReach(a));
    EXPECT_TRUE(b.calls == 1 && !replaced);
    held.open();
    replacer.join();
    caller.join();
    observers.set(nullptr);
    EXPECT_FALSE(observers.open());
}

TEST_F(tObserverListTest, waitsNeitherForCallsToOthersNorForThoseThatBeganLater)
{
    holdFirstCall();
    observers.add(&b);
    observers.remove(&b);
    std::thread remover([this] { observers.remove(&a); });
    EXPECT_TRUE(isOutOfReach(a));
    heldAt = &heldLater;
    observers.add(&a);
    std::thread laterCaller([this] { fire(observers); });
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
        keepsItsCopy.each([](tObserver* observer) { observer->run(); });
        return order;
    };
    EXPECT_EQ(fired(), "");
    a.call = [&] { order += 'a'; };
    b.call = [&] { order += 'b'; };
    for (tObserver* observer : {&b, &a, &b})
        observers.add(observer);
    EXPECT_EQ(fired(), "bab");
    a.call = [&] {
        order += 'a';
        observers.remove(&b);
        observers.add(&a);  // from the next event on
    };
    EXPECT_EQ(fired(), "ba");
    a.call = [&] { order += 'a'; };
    EXPECT_EQ(fired(), "aa");
}
