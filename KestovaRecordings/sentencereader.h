// tSentenceReader: the sentences in the messages of one stream.
//
// Sources: IEC 61162-1 (sentences), IEC 61162-450 (datagrams with a head and tag blocks), ITU-R M.1371 (AIS messages).
// Understood: RMC, GGA, GLL, VTG, ZDA, HDT, THS, DPT, DBT, TTM, TLL, and VDM and VDO with AIS messages 1 to 5, 18, 19,
// 21 and 24. Of other sentences talker and type are known.
#ifndef KESTOVA_RECORDINGS_SENTENCEREADER_H
#define KESTOVA_RECORDINGS_SENTENCEREADER_H

#include <cstdint>
#include <memory>
#include <string_view>

#include "KestovaRecordings/sentence.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
class iSentenceSink
{
public:
    virtual ~iSentenceSink() = default;
    virtual void onSentence(const tSentence& sentence) = 0;  // valid during the call
    // The line of a sentence as it came, without tag blocks and its end, before what it says; of an AIS message each
    // fragment. `valid`: its checksum is there and right. Does nothing unless it is overridden.
    virtual void onLine(std::string_view /*line*/, bool /*valid*/) {}
};

// One thread at a time. Keeps the fragments of at most 32 AIS messages that are not complete.
class KESTOVA_API tSentenceReader
{
public:
    tSentenceReader();
    ~tSentenceReader();
    tSentenceReader(tSentenceReader&&) noexcept;
    tSentenceReader& operator=(tSentenceReader&&) noexcept;

    // Passes on every sentence of a message, in its order: one a line, or a datagram of IEC 61162-450. Text that is no
    // sentence is passed over, as are lines of more than 1,024 bytes. `timeMs`, when the message was recorded, gives
    // the date to times of day. An AIS message of several fragments is one sentence, passed on with its last fragment.
    void read(std::string_view message, std::uint64_t timeMs, iSentenceSink& sink);

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};
}  // namespace recordings

#endif
