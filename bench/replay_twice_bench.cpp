// How a replay onto the network compares with what was recorded, judged by a second recording of it.
//
//   replay_twice_bench FIRST SECOND
//
// FIRST is a recording, SECOND a recording of its replay at the recorded pace; bench/replay_twice.sh makes both.
// Group by group, without the service groups: payloads, order and destinations must be equal (image state messages
// without their time, which a replay sets anew), else status 1; and the error of every interval between two datagrams,
// in the recorders' milliseconds, is shown as p50, p99 and greatest.
#include <cmath>
#include <cstring>
#include <map>
#include <set>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/udpsocket.h"
#include "bench/measure.h"

namespace
{
struct tDatagram
{
    double ms;
    std::string payload;
};
using tGroups = std::map<std::string, std::vector<tDatagram>>;

std::string comparable(std::string payload)
{
    constexpr std::size_t cStateLen = 129, cTimePos = 114, cTimeLen = 8;
    if (payload.size() == cStateLen && payload.compare(0, 2, "\x03\xC4") == 0)
        payload.erase(cTimePos, cTimeLen);
    return payload;
}

tGroups groupsOf(const std::string& folder)
{
    std::set<std::string> files;
    storage::tDataStorageIO::GetFileFolderInDir(folder, files, true, ".data");
    tGroups groups;
    for (const std::string& path : files)
    {
        storage::tDataFile file;
        std::string bytes;
        if (!file.open(path))
            continue;
        for (std::size_t i = 0; i < file.recordCount(); ++i)
        {
            tRadarMsgPackage head;
            if (!file.read(i, bytes) || bytes.size() < sizeof head)
                std::exit(1);
            std::memcpy(&head, bytes.data(), sizeof head);
            const std::string ip = net::transAddr(head.udpAddr);
            if (ip.compare(0, 8, "236.6.7.") != 0)
                groups[ip + ":" + std::to_string(head.udpPort)].push_back(
                    {static_cast<double>(file.record(i).timeMs), comparable(bytes.substr(sizeof head, head.msgLen))});
        }
    }
    return groups;
}

bool samePayloads(const std::vector<tDatagram>& a, const std::vector<tDatagram>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const tDatagram& x, const tDatagram& y) { return x.payload == y.payload; });
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return std::fprintf(stderr, "usage: replay_twice_bench FIRST SECOND\n"), 2;
    const tGroups first = groupsOf(argv[1]), second = groupsOf(argv[2]);
    std::vector<double> errors;
    bool equal = !first.empty() && first.size() == second.size();
    for (const auto& [group, datagrams] : first)
    {
        const auto again = second.find(group);
        const bool same = again != second.end() && samePayloads(datagrams, again->second);
        std::printf("  %-20s %7zu datagrams  %s\n", group.c_str(), datagrams.size(), same ? "equal" : "DIFFERENT");
        equal = equal && same;
        for (std::size_t i = 1; same && i < datagrams.size(); ++i)
            errors.push_back(
                std::fabs((again->second[i].ms - again->second[i - 1].ms) - (datagrams[i].ms - datagrams[i - 1].ms)));
    }
    if (!equal || errors.empty())
        return std::printf("  the two recordings differ\n"), 1;
    std::printf("  interval error p50 %.1f ms, p99 %.1f ms (wanted: 1.5), greatest %.1f ms\n",
                bench::percentile(errors, 0.5), bench::percentile(errors, 0.99), bench::percentile(errors, 1.0));
    return 0;
}
