#include "UdpSocket/internal/interfacetable.h"

#include <gtest/gtest.h>

#include "UdpSocket/udpsocket.h"

namespace
{
class tInterfaceTableTest : public testing::Test
{
protected:
    static std::uint32_t ip(const char* dotted) { return net::transAddr(dotted); }

    // What a text chooses, and the address of it: "10.0.0.1 link 2".
    std::string addressFor(const std::string& nameOrAddress) const
    {
        const auto choice = net::choiceNamed(m_table, nameOrAddress);
        return choice ? text(net::localAddress(m_table, net::settled(m_table, *choice))) : "neither";
    }
    static std::string text(const net::tLocalAddress& address)
    {
        return net::transAddr(address.ip) + " link " + std::to_string(address.linkIndex);
    }

    net::tInterfaceTable m_table{
        {{1, "lo", true}, {2, "eth0", false}, {3, "eth1", false}},
        {{1, ip("127.0.0.1")}, {2, ip("10.0.0.1")}, {2, ip("10.0.0.2")}},
        2,
    };
};
}  // namespace

TEST_F(tInterfaceTableTest, takesAnInterfacesMainAddress)
{
    EXPECT_EQ(addressFor("eth0"), "10.0.0.1 link 2");
    EXPECT_EQ(addressFor("eth1"), "0.0.0.0 link 3");
    EXPECT_EQ(addressFor("lo"), "127.0.0.1 link 1");
}

TEST_F(tInterfaceTableTest, prefersTheGivenAddressWhileTheInterfaceHasIt)
{
    EXPECT_EQ(addressFor("10.0.0.2"), "10.0.0.2 link 2");
    m_table.addresses.pop_back();
    EXPECT_EQ(text(net::localAddress(m_table, {"eth0", ip("10.0.0.2")})), "10.0.0.1 link 2");
}

TEST_F(tInterfaceTableTest, givesAStrangeAddressAsItStands)
{
    EXPECT_EQ(addressFor("192.0.2.9"), "192.0.2.9 link 0");
    EXPECT_EQ(addressFor("eth7"), "neither");
    EXPECT_EQ(addressFor("0.0.0.0"), "neither");
    EXPECT_EQ(addressFor(""), "neither");
}

TEST_F(tInterfaceTableTest, takesTheDefaultRouteElseTheLoopback)
{
    EXPECT_EQ(text(net::localAddress(m_table, {})), "10.0.0.1 link 2");
    m_table.defaultRouteLink = 0;
    EXPECT_EQ(text(net::localAddress(m_table, {})), "127.0.0.1 link 1");
    EXPECT_EQ(text(net::localAddress({}, {})), "0.0.0.0 link 0");
    EXPECT_EQ(text(net::localAddress(m_table, {"gone", 0})), "0.0.0.0 link 0");
}

TEST_F(tInterfaceTableTest, tellsWhatMakesADifference)
{
    EXPECT_TRUE(net::mustTell({1, 2}, {3, 2}));
    EXPECT_TRUE(net::mustTell({1, 2}, {1, 3}));
    EXPECT_TRUE(net::mustTell({1, 2}, {0, 2}));
    EXPECT_FALSE(net::mustTell({1, 2}, {1, 2}));
    EXPECT_FALSE(net::mustTell({0, 2}, {0, 3}));
}
