// What a page says over its WebSocket.
#ifndef KESTOVA_SERVER_VIEWERMESSAGE_H
#define KESTOVA_SERVER_VIEWERMESSAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace server
{
struct tViewerMessage
{
    enum eType
    {
        eOpen,
        eClose,
        ePlay,
        ePause,
        eSeek,
        eLive,
        eSpeed,
        eStep,
        eLoop
    };
    enum eUnit
    {
        eSpoke,
        eTurn,
        eRecord,
        eNote,
        eGap
    };
    struct tLoop
    {
        std::uint64_t fromMs, toMs;
    };

    eType type = eClose;
    std::size_t picture = 0;            // 0 for "a", 1 for "b"; "a" where none is named
    std::string radar, id;              // eOpen; id empty for "live"
    std::optional<std::uint64_t> atMs;  // eOpen, eSeek
    double speed = 1;                   // eSpeed; 0 for "max"
    eUnit unit = eTurn;                 // eStep
    int count = 1;                      // eStep
    std::optional<tLoop> loop;          // eLoop
};

// Throws tRefusal (400) with a sentence for the user.
tViewerMessage parseViewerMessage(std::string_view text);
}  // namespace server

#endif
