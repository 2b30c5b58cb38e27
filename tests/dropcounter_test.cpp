#include "UdpSocket/internal/dropcounter.h"

#include <gtest/gtest.h>

TEST(tDropCounterTest, takesTheNewestOfWhatIsTold)
{
    net::tDropCounter counter;
    counter.told(10);
    counter.told(25);
    counter.told(12);  // rode with a datagram that had waited
    EXPECT_EQ(counter.total(), 25U);
}

TEST(tDropCounterTest, goesOnWhereTheKernelCounterWraps)
{
    net::tDropCounter counter;
    for (std::uint64_t dropped = 0; dropped <= 0x3'0000'0007; dropped += 0x7000'0001)
    {
        counter.told(static_cast<std::uint32_t>(dropped));
        EXPECT_EQ(counter.total(), dropped);
    }
    EXPECT_GT(counter.total(), 0x2'0000'0000U);
}
