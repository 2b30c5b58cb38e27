// How a tPackageBuilderAndSplitter begins and ends.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include "KestovaStorage/packagebuilderandsplitter.h"
#include "support/packagerecorder.h"
#include "support/radarpackages.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;

namespace
{
std::atomic<int> s_threadsAllowed{-1};  // threads that may still be created; negative: any number
}

// Every thread of this program and of the libraries is created through here, so that a test can let one fail.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    using tCreate = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto s_create = reinterpret_cast<tCreate>(::dlsym(RTLD_NEXT, "pthread_create"));
    if (s_threadsAllowed == 0)
        return EAGAIN;
    if (s_threadsAllowed > 0)
        --s_threadsAllowed;
    return s_create(thread, attributes, body, argument);
}

namespace
{
const tUdpMsgInfo cInfo{1, 2, eRadarClientType, 3, 4};

TEST(tPackageBuilderAndSplitterEndTest, discardsWhatWaitsWhenItIsDestroyed)
{
    tGate gate;
    tPackageRecorder seen;
    seen.m_onCall = [&] { gate.pass(); };
    auto object = std::make_unique<tPackageBuilderAndSplitter>();
    object->AddPackageObserer(&seen);
    std::string stream;
    for (std::uint32_t i = 0; i < 2'000; ++i)
    {
        object->BuildPackage(cInfo, nullptr, 1, "x", 1, 1);
        stream += makePackage(2 * i, "", eReadType) + makePackage(2 * i + 1, std::string(100, 'p'));
    }
    object->LoadRecBuff(stream.data(), static_cast<int>(stream.size()));
    ASSERT_TRUE(waitUntil([&] { return seen.count() == 3; }));
    std::thread destroyer([&] { object.reset(); });
    EXPECT_FALSE(waitUntil([&] { return seen.count() > 3; }, 30ms));
    gate.open();
    destroyer.join();
    EXPECT_EQ(seen.count(), 3U);  // the calls under way, and no other
}

TEST(tPackageBuilderAndSplitterEndTest, canBeMadeAndDestroyedTwoHundredTimes)
{
    tPackageRecorder seen;
    const std::string stream = makePackage(0) + makePackage(1, "", eReadType);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i)
    {
        tPackageBuilderAndSplitter object;
        object.AddPackageObserer(&seen);
        object.BuildPackage(cInfo, nullptr, 1, "x", 1, 1);
        object.LoadRecBuff(stream.data(), static_cast<int>(stream.size()));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
}

TEST(tPackageBuilderAndSplitterEndTest, survivesThatAThreadCannotBeStarted)
{
    for (const int allowed : {0, 1, 2})
    {
        SCOPED_TRACE(allowed);
        s_threadsAllowed = allowed;
        EXPECT_THROW(tPackageBuilderAndSplitter(), std::system_error);
        s_threadsAllowed = -1;
    }
    tPackageRecorder seen;
    tPackageBuilderAndSplitter object;
    object.AddPackageObserer(&seen);
    object.BuildPackage(cInfo, nullptr, 1, "x", 1, 1);
    EXPECT_TRUE(object.WaitBuildIdle(5000));
    EXPECT_EQ(seen.count(), 1U);
}
}  // namespace
