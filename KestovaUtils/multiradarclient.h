// The directory of radars: the UDP group of each stream of each radar, and the interface to receive on.
#ifndef KESTOVA_MULTIRADARCLIENT_H
#define KESTOVA_MULTIRADARCLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

#include "UdpSocket/kestovaapi.h"
#include "UdpSocket/netaddress.h"

typedef uint8_t tSocketType;

// One radar's addresses: a packed record of 116 bytes. The recorder reads it as eighteen addresses from byte 6 on, one
// for each stream kind (kind t at byte 6 + 6 t); the named fields overlap those slots. Use streamAddress for the slots.
#pragma pack(push, 1)
struct KESTOVA_API RadarAddress
{
    uint32_t radarIP;
    bool dedicated;
    uint8_t dedicatedNumber;
    NetAddress imageStream;
    tSocketType imageStreamType;
    NetAddress imageCtrl;
    tSocketType imageCtrlType;
    NetAddress imageState;
    tSocketType imageStateType;
    NetAddress arpaStream;
    tSocketType arpaStreamType;
    NetAddress arpaCtrl;
    tSocketType arpaCtrlType;
    NetAddress arpaState;
    tSocketType arpaStateType;
    NetAddress originalImage;
    tSocketType originalImageType;
    NetAddress aisDev;
    NetAddress gpsDev;
    tSocketType gpsDevType;
    NetAddress depthDev;
    NetAddress headingDev;
    NetAddress cameraCtrl;
    NetAddress cameraState;
    NetAddress arpaServerCtrl;
    NetAddress arpaServerState;
    NetAddress radarClientCtrl;
    NetAddress radarClientState;

    // Returns the address of stream kind `kind` (0 to 17, see eReadWriteType); ip and port 0 if the radar has none or
    // the kind has no slot.
    NetAddress streamAddress(unsigned int kind) const;
    // Stores the address of stream kind `kind`; does nothing above 17.
    void setStreamAddress(unsigned int kind, const NetAddress& address);

    // Returns the name of a stream kind as in a directory file, "imageStream" to "radarClientState"; null above 17.
    static const char* streamName(unsigned int kind);
    // Returns the kind of that name; -1 if there is none.
    static int streamKind(const char* name);
};
#pragma pack(pop)

static_assert(sizeof(RadarAddress) == 116, "RadarAddress is a packed record of 116 bytes");

class KESTOVA_API iMultiRadarCheckerListener
{
public:
    virtual ~iMultiRadarCheckerListener() = default;
    // Reports the address of the local interface, as net::transAddr returns it; 0 while it has none. Called on the
    // client's own thread, soon after the listener is added and then at every change, in order. Also called when the
    // same address moves to another interface, because the kernel drops the memberships of the first one. One call at
    // a time for all listeners: a slow one delays the others. Must not throw.
    virtual void OnLocalIpChanged(unsigned int localIp) = 0;
};

// The key of a radar in the directory.
struct tRadarName
{
    std::string serial;
    unsigned short id;
};

// The process's directory. All operations may be called from any thread, from inside OnLocalIpChanged too.
class KESTOVA_API MultiRadarClient
{
public:
    static MultiRadarClient* getInstance();  // never returns null; lives until the process ends

    // Reads a directory file (JSON) and adds all its radars, replacing those of the same serial and id. An error in the
    // file fails the whole file: returns false, the directory unchanged, and one line in `error` (on standard error if
    // `error` is null) that names file, entry and reason.
    bool loadDirectory(const std::string& path, std::string* error = nullptr);
    // Adds or replaces one radar. A null or empty serial is ignored.
    void setAddress(const char* serial, unsigned short id, const RadarAddress& record);
    // Returns the record of a radar, null if unknown. The record stays valid and unchanged until the process ends.
    const RadarAddress* getAddress(const char* serial, unsigned short id);
    // Returns how the radar's spokes are laid out, as its directory file says with the key "spoke": JSON text for
    // utils::parseSpokeLayouts (spokelayout.h), which accepts it. Empty if it says nothing.
    std::string spokeLayout(const char* serial, unsigned short id) const;
    // Returns the radars of the directory, ordered by serial, then id.
    std::vector<tRadarName> radars() const;

    // Chooses the interface to receive on, by name ("eth0") or by its dotted address ("192.168.1.5", "127.0.0.1"), and
    // follows its address: notifies listeners of each new one, and of 0 while there is none. A dotted address that no
    // interface of this machine has is reported as it is, and again when an interface takes it. Returns false and
    // changes nothing for text that is neither an existing interface nor an address. Until the first call the interface
    // is the one of the default route, or the loopback interface if there is none.
    bool setLocalInterface(const std::string& nameOrAddress);

    // Registers a listener (not owned; a second registration does nothing). May be called from inside a call.
    void addListener(iMultiRadarCheckerListener* listener);
    // Removes a listener; ignores an unknown one. After the return no call to it is under way, except when called from
    // inside a call: that call is then the last. The caller must hold no lock that the listener takes.
    void removeListener(iMultiRadarCheckerListener* listener);

private:
    MultiRadarClient();
    ~MultiRadarClient();
    MultiRadarClient(const MultiRadarClient&) = delete;
    MultiRadarClient& operator=(const MultiRadarClient&) = delete;
    class tMultiRadarClientPrivate;
    tMultiRadarClientPrivate* d;
};

#endif
