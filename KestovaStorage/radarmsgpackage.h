// The radar message package: the framed record in which every radar message is stored and replayed.
//
//   offset  width  field
//        0      8  head, the ASCII bytes "Quorvale"
//        8      5  msgInfo: sender, recver, type, rwType, radarMultiNum
//       13      4  packCnt        number of the package within the builder that made it, from 0
//       17      4  udpAddr        UDP group, as net::transAddr returns it; 0 when none was given
//       21      2  udpPort        UDP port as a plain number
//       23      8  timestamp_ms   milliseconds since the Unix epoch
//       31      2  msgLen         payload length in bytes
//       33      n  payload        n = msgLen
//   33 + n      8  end marker, the ASCII bytes "ZQ_Radar"
//
// All integers are little-endian and nothing is padded; a package is msgLen + 41 bytes long. On a byte stream there may
// also be heartbeats: the ASCII bytes "check" and one more byte of any value.
#ifndef KESTOVA_RADARMSGPACKAGE_H
#define KESTOVA_RADARMSGPACKAGE_H

#include <stddef.h>
#include <stdint.h>

typedef uint8_t tSenderType;
typedef uint8_t tRecverType;
typedef uint8_t tMsgType;        // an eMsgType value
typedef uint8_t tReadWriteType;  // an eReadWriteType value

// Kinds of message.
enum eMsgType : uint8_t
{
    eIdentify = 0,
    eRadarMultiNums = 1,
    eMultiRadarNegotiate = 2,
    eMultiRadarService = 3,
    eReadType = 4,
    eWriteType = 5,
    eDediReadType = 6,
    eDediWriteType = 7,
    eRadarClientType = 8,
    eTotalMsgTypes = 9  // count of the kinds above, not a kind
};

// Kinds of recorded stream.
enum eReadWriteType : uint8_t
{
    eImageStream = 0,           // radar image (spoke) data
    eImageCtrl = 1,             // image control commands
    eImageState = 2,            // image state reports
    eArpaStream = 3,            // ARPA target data
    eArpaCtrl = 4,              // ARPA control
    eArpaState = 5,             // ARPA state
    eOriginalImage = 6,         // unprocessed image data
    eAisDev = 7,                // AIS sensor sentences
    eGpsDev = 8,                // GPS sensor sentences
    eDepthDev = 9,              // depth sounder sentences
    eHeadingDev = 10,           // heading sensor sentences
    eSecondArpaStream = 11,     // second ARPA target stream
    eCameraCtrl = 12,           // camera control
    eCameraState = 13,          // camera state
    eArpaSeverCtrl = 14,        // ARPA server control; the name is part of the interface as it stands
    eArpaServerState = 15,      // ARPA server state
    eRadarClientCtrl = 16,      // radar client control
    eRadarClientState = 17,     // radar client state
    eTotalReadWriteTypes = 18,  // count of the kinds above, not a kind
    eRadarCheck = 254,          // radar check (multi-radar query) traffic
    eOtherType = 255            // anything else
};

#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc99-extensions"  // msgBuff, which __extension__ does not excuse there
#endif
#pragma pack(push, 1)
// What a message is and where it belongs; fields that a recorder does not know are 0.
struct tUdpMsgInfo
{
    tSenderType sender;
    tRecverType recver;
    tMsgType type;
    tReadWriteType rwType;
    uint8_t radarMultiNum;  // number of the radar among several
};

// The 33 bytes before the payload. The payload and the end marker follow; msgBuff is where the payload begins.
// Fields behind the head are unaligned: read them through the record, do not take their addresses.
struct tRadarMsgPackage
{
    uint64_t head;
    tUdpMsgInfo msgInfo;
    uint32_t packCnt;
    uint32_t udpAddr;
    uint16_t udpPort;
    uint64_t timestamp_ms;
    uint16_t msgLen;
#ifdef __GNUC__
    __extension__ uint8_t msgBuff[];
#else
    uint8_t msgBuff[1];
#endif
};
#pragma pack(pop)
#ifdef __clang__
#pragma clang diagnostic pop
#endif

// A stream kind's info block and the receive buffer, in bytes, wanted for its socket.
struct tUdpSocketInfo
{
    tUdpMsgInfo msgInfo;
    int recBuffSize;
};

static_assert(sizeof(tUdpMsgInfo) == 5, "the info block is five bytes");
static_assert(sizeof(tRadarMsgPackage) == 33, "the head part is 33 bytes");
static_assert(offsetof(tRadarMsgPackage, packCnt) == 13, "packed");
static_assert(offsetof(tRadarMsgPackage, udpAddr) == 17, "packed");
static_assert(offsetof(tRadarMsgPackage, udpPort) == 21, "packed");
static_assert(offsetof(tRadarMsgPackage, timestamp_ms) == 23, "packed");
static_assert(offsetof(tRadarMsgPackage, msgLen) == 31, "packed");

#endif
