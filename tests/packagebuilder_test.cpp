#include "KestovaStorage/internal/packagebuilder.h"

#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "KestovaStorage/internal/segmentworker.h"
#include "support/waituntil.h"

using namespace std::chrono_literals;

namespace
{
// A number that was taken before the place in the queue could be overtaken on the way there.
TEST(tPackageBuilderTest, takesNumberAndPlaceTogether)
{
    for (const std::size_t len : {100UL, 2 * tPackageBuilder::cLongPackage})
    {
        SCOPED_TRACE(len);
        const std::string payload(len, 'p');
        std::string ready(len, 'r');
        tSegmentWorker queue;
        tPackageBuilder builder(queue);
        std::thread wrapping, copying;
        queue.between([&] {
            wrapping = std::thread([&] { builder.build({}, payload.data(), payload.size()); });
            copying = std::thread([&] { builder.queueReady(ready.data(), ready.size()); });
            EXPECT_FALSE(waitUntil([&] { return builder.count() != 0; }, 50ms));
        });
        wrapping.join();
        copying.join();
        EXPECT_EQ(builder.count(), 2U);
    }
}
}  // namespace
