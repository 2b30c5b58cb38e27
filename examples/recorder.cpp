// Records a radar of a directory file for some seconds:
//
//     recorder RADARS.json SERIAL ID ROOT SECONDS [LOCAL-IP]
//
// Exit status 0: recorded; 1: failed; 2: wrong usage; 3: recorded, but datagrams were lost.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <thread>
#include <vector>

#include "KestovaStorage/radardatasaver.h"
#include "KestovaStorage/servicegroups.h"
#include "KestovaUtils/multiradarclient.h"
#include "UdpSocket/udpsocket.h"

namespace
{
const std::vector<eReadWriteType> cKinds = {eImageStream, eImageState, eArpaStream, eArpaState,
                                            eAisDev,      eGpsDev,     eDepthDev,   eHeadingDev};

std::vector<Kestova::tGroupCounters> groupsOf(const Kestova::tRadarDataSaver& saver)
{
    const std::size_t most = eTotalReadWriteTypes + sizeof cServiceGroups / sizeof cServiceGroups[0];
    std::vector<Kestova::tGroupCounters> groups(most);
    groups.resize(static_cast<std::size_t>(saver.GetGroupCounters(groups.data(), static_cast<int>(groups.size()))));
    return groups;
}

// The saver joins the groups when the client reports the local address, on the client's thread.
bool waitForGroups(const Kestova::tRadarDataSaver& saver)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (groupsOf(saver).empty() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return !groupsOf(saver).empty();
}

// Prints one line a group. Returns true if the kernel dropped nothing.
bool report(const std::vector<Kestova::tGroupCounters>& groups)
{
    std::uint64_t dropped = 0;
    for (const Kestova::tGroupCounters& group : groups)
    {
        std::cout << net::transAddr(group.ip) << ':' << group.port << ' ' << group.datagrams << " datagrams "
                  << group.bytes << " bytes\n";
        dropped += group.kernelDropped;
    }
    return dropped == 0;
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 6)
        return std::cerr << "usage: recorder RADARS.json SERIAL ID ROOT SECONDS [LOCAL-IP]\n", 2;

    MultiRadarClient* client = MultiRadarClient::getInstance();
    if (!client->loadDirectory(argv[1]))  // reports errors in the file on standard error
        return 1;
    if (argc > 6 && !client->setLocalInterface(argv[6]))
        return std::cerr << "no such interface: " << argv[6] << '\n', 1;

    Kestova::tRadarDataSaver saver(cKinds.data(), static_cast<int>(cKinds.size()), argv[4], ".data", "");
    if (!saver.connect(argv[2], static_cast<unsigned short>(std::atoi(argv[3])), false) || !waitForGroups(saver))
        return std::cerr << "cannot record radar " << argv[2] << '\n', 1;
    std::cerr << "recording to " << saver.GetCurrentWriteDataFileName() << std::endl;

    std::this_thread::sleep_for(std::chrono::seconds(std::atoi(argv[5])));

    const std::vector<Kestova::tGroupCounters> groups = groupsOf(saver);
    saver.disconnect();  // waits until every received datagram is in the file
    return report(groups) && saver.GetWriteLostCnt() == 0 ? 0 : 3;
}
