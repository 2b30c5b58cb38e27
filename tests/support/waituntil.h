// waitUntil: waits for a condition that another thread brings about, with a deadline instead of a guessed sleep.
#ifndef KESTOVA_TESTS_WAITUNTIL_H
#define KESTOVA_TESTS_WAITUNTIL_H

#include <chrono>
#include <thread>

// True as soon as `predicate` holds; false if it does not hold by the end of `timeout`. The predicate is called on the
// caller's thread, about once a millisecond, and at least once.
template <typename tPredicate>
bool waitUntil(tPredicate predicate, std::chrono::steady_clock::duration timeout = std::chrono::seconds(5))
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate())
    {
        if (std::chrono::steady_clock::now() >= deadline)
            return predicate();  // a thread that was not scheduled meanwhile is no failure of what it waits for
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
