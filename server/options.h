// What `kestova serve` is started with.
#ifndef KESTOVA_SERVER_OPTIONS_H
#define KESTOVA_SERVER_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KestovaUtils/spokelayout.h"

namespace server
{
struct tServeOptions
{
    std::vector<std::string> roots;
    std::string radars;      // the directory file; empty: recordings alone
    std::string localIp;     // interface to receive and send on, by address or name; empty: the system chooses
    std::string layoutFile;  // of spokes, in place of what sheets and directory say; empty: none
    std::vector<utils::tSpokeLayout> layouts;  // of that file
    std::string address = "127.0.0.1";         // to listen on
    std::uint16_t port = 8780;                 // 0: a free one
    std::vector<std::string> hosts;            // further names of the server, "NAME" or "NAME:PORT"
    std::string token;                         // empty: none is asked for
    std::size_t maxViewers = 32;
    std::string pageFolder;  // in place of the page that is built in; empty: that one
    bool allowRecord = false, allowReplay = false;
    std::string program;  // of this command, which records in processes of its own
};
}  // namespace server

#endif
