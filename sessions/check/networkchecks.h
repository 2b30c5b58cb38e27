// The checks of the way from the network to a recorder.
#ifndef KESTOVA_SESSIONS_CHECK_NETWORKCHECKS_H
#define KESTOVA_SESSIONS_CHECK_NETWORKCHECKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "UdpSocket/netaddress.h"
#include "sessions/check/check.h"

namespace session
{
// An interface of this machine as the kernel lists it.
struct tLink
{
    std::string name;
    std::uint32_t ip = 0;  // 0 without an IPv4 address
    bool isUp = false;
    bool isRunning = false;  // has a carrier
    bool isLoopback = false;
    bool canMulticast = false;
};
std::vector<tLink> links();  // one for each address; throws tFailure if the system does not list them

// Checks the interface that --local-ip names, or without it (an empty text) the one with the address `localIp`.
tCheck checkInterface(const std::vector<tLink>& all, const std::string& nameOrAddress, std::uint32_t localIp);

// Checks that the kernel knows a way to each group; needed only where it chooses the interface.
tCheck checkRoute(const std::vector<tLink>& all, const std::vector<NetAddress>& groups, bool kernelChooses);

// A process that has a UDP port, and shares it with nobody.
struct tPortHolder
{
    std::uint64_t inode = 0;
    int pid = 0;          // 0 if it is another user's
    std::string program;  // empty then
};
// Returns who holds the port of a group that could not be bound; the inode is 0 if nobody does.
tPortHolder holderOf(const NetAddress& group);
// Both take the groups that could not be joined: those whose port is held belong to the first.
tCheck checkPort(const std::vector<NetAddress>& notJoined);
tCheck checkJoin(const std::vector<NetAddress>& notJoined, std::size_t groups, const std::string& interface);

// Checks what the kernel grants of the recorder's receive buffer, on a group that can be joined.
tCheck checkReceiveBuffer(const NetAddress& group, std::uint32_t localIp);

// What the kernel does with a datagram whose sender it would answer through another interface.
enum class eReversePath : int
{
    eAccepts = 0,
    eDropsUnlessSameWay = 1,
    eDropsUnlessAnyWay = 2
};
eReversePath reversePathOf(const std::string& interface);
bool hasDefaultRoute();
// Drops by this filter are counted nowhere: it is suspected only where a stream is silent.
tCheck checkReversePath(const tLink& link, eReversePath filter, bool defaultRoute, bool isStreamSilent);
}  // namespace session

#endif
