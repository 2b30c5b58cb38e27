// addressText: "239.17.0.1:6001". Packed records cannot be given to EXPECT_EQ field by field: it takes references.
#ifndef KESTOVA_TESTS_ADDRESSTEXT_H
#define KESTOVA_TESTS_ADDRESSTEXT_H

#include <string>

#include "UdpSocket/udpsocket.h"

inline std::string addressText(const NetAddress& address)
{
    return net::transAddr(address.ip) + ":" + std::to_string(net::NtoHs(address.port));
}

#endif
