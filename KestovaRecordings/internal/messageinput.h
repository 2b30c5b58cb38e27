// iMessageInput: the messages of one side of a comparison, read from its beginning to its end.
//
// Shapes   messages come in order of time from recordings, in the order of the file from captures. A recorded message
//          is the payload of its package, or a whole segment that is none. With `byAddress` streams have no kind.
// Threads  read() may run on a thread of its own; the rest belongs to its caller before and after it.
// Errors   read() throws tFailure if nothing can be read. What is left out or lost on the way is in result().
#ifndef KESTOVA_RECORDINGS_INTERNAL_MESSAGEINPUT_H
#define KESTOVA_RECORDINGS_INTERNAL_MESSAGEINPUT_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/internal/messages.h"
#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/netaddress.h"

namespace recordings
{
struct tMessageInputOptions
{
    std::string path;
    std::string suffix;
    bool byAddress = false;
    tStreamChoice streams;                                    // of recordings alone
    std::function<NetAddress(const NetAddress&)> mapGroup{};  // none: groups stay as they are
};

struct tMessageInputResult
{
    std::vector<tLeftOut> leftOut{};
    std::uint64_t damaged = 0;                        // records that could not be read
    std::map<tStreamNumber, tReadWriteType> kinds{};  // of recorded streams, by address if that was asked for
    std::set<tStreamNumber> notChosen{};              // recorded streams that `streams` does not include, by address
};

class iMessageInput
{
public:
    virtual ~iMessageInput() = default;
    // Reads until the end, or until the writer wants no more.
    virtual void read(tMessageWriter& to) = 0;
    virtual const tMessageInputResult& result() const = 0;
};

// Returns the reader of a capture, or of a file, folder or root of recordings. Opens nothing yet.
std::unique_ptr<iMessageInput> openMessageInput(const tMessageInputOptions& options);
}  // namespace recordings

#endif
