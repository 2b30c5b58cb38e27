// kestova serve: recordings and live radars on a page.
#include <climits>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "server/server.h"
#include "server/token.h"
#include "tools/commands/commands.h"
#include "tools/commands/spokelayouts.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"

namespace tool
{
namespace
{
constexpr std::chrono::milliseconds cStopTime{1500};

struct tOptions
{
    server::tServeOptions serve;
    std::string listen = "127.0.0.1:8780";
    std::string tokenFile, layout;
    bool json = false;
};

struct tListen
{
    std::string address;
    std::uint16_t port;
};

// Returns the parts of "127.0.0.1:8780" or "[::1]:8780".
tListen parseListen(const std::string& text)
{
    const std::size_t colon = text.rfind(':');
    const auto wrong = [&] {
        return std::invalid_argument("'" + text + "' is no address to listen on: write 127.0.0.1:8780 or [::1]:8780");
    };
    if (colon == std::string::npos)
        throw wrong();
    std::string address = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    if (address.size() > 2 && address.front() == '[' && address.back() == ']')
        address = address.substr(1, address.size() - 2);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoul(port) > 65535 || !server::isAddress(address))
        throw wrong();
    return {address, static_cast<std::uint16_t>(std::stoul(port))};
}

std::string thisProgram()
{
    char path[PATH_MAX];
    const ssize_t len = ::readlink("/proc/self/exe", path, sizeof(path));
    return len > 0 ? std::string(path, static_cast<std::size_t>(len)) : "kestova";
}

server::tServeOptions serveOptions(const tOptions& given)
{
    server::tServeOptions options = given.serve;
    const tListen listen = parseListen(given.listen);
    options.address = listen.address;
    options.port = listen.port;
    if (!given.tokenFile.empty())
        options.token = server::readToken(given.tokenFile);
    if (!given.layout.empty())
    {
        options.layouts = spokeLayoutsFor({}, given.layout);
        options.layoutFile = given.layout;
    }
    options.program = thisProgram();
    return options;
}

int serve(const tOptions& given, tConsole& console)
{
    const tStopSignal stop;
    const auto running = std::make_unique<server::tServer>(serveOptions(given));
    if (given.json)
        printJson(console, {{"schema", "kestova/serve/1"}, {"url", running->url()}});
    else
        console.print("serving " + running->url() + "\n");
    console.flush();
    while (!stop.wait(std::chrono::hours(1)))
    {}
    if (!running->stop(cStopTime))
        std::_Exit(eDone);  // a disk keeps a request waiting; nothing is written that could be lost
    return eDone;
}

void addAccess(CLI::App& command, tOptions& options)
{
    command.add_option("--listen", options.listen, "Where to listen; port 0 takes a free one")
        ->type_name("ADDR:PORT")
        ->check(checkedBy(parseListen))
        ->capture_default_str();
    command.add_option("--host", options.serve.hosts, "A further name of this server, repeatable")
        ->type_name("NAME[:PORT]");
    command.add_option("--token-file", options.tokenFile, "Ask for the token in the first line of this file")
        ->type_name("FILE");
    command.add_flag("--allow-record", options.serve.allowRecord,
                     "Let pages start and end recordings, note and keep them");
    command.add_flag("--allow-replay", options.serve.allowReplay, "Let pages send recordings to the network");
    command.add_option("--max-viewers", options.serve.maxViewers, "Pages at a time")
        ->type_name("N")
        ->check(wholeNumber(1, 200))
        ->capture_default_str();
}
}  // namespace

void addServe(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("serve", "Show radars and recordings on a page in a browser");
    command.footer("Prints the address of the page and serves it until Ctrl-C; recordings that were started from it go "
                   "on.\n"
                   "Example: kestova serve --root recordings --radars radars.json");
    command.add_option("--root", options->serve.roots, "Storage root, repeatable; new recordings go into the first")
        ->type_name("FOLDER")
        ->required();
    command.add_option("--radars", options->serve.radars, "Directory file of the radars (JSON)")->type_name("FILE");
    command.add_option("--local-ip", options->serve.localIp, "Interface to receive and send on, by address or name")
        ->type_name("ADDRESS");
    addLayout(command, options->layout);
    addAccess(command, *options);
    command.add_option("--page", options->serve.pageFolder, "Serve the files of the page from this folder")
        ->type_name("FOLDER");
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return serve(*options, console); }; });
}
}  // namespace tool
