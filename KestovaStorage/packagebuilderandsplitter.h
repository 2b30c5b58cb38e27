// Wraps radar messages into packages, and cuts received byte streams back into packages.
#ifndef KESTOVA_PACKAGEBUILDERANDSPLITTER_H
#define KESTOVA_PACKAGEBUILDERANDSPLITTER_H

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

// Receives what a tPackageBuilderAndSplitter makes. Pointers are valid during the call only. An exception that leaves
// an observer ends the process.
class KESTOVA_API iPackageObserver
{
public:
    virtual ~iPackageObserver() = default;
    // A whole package of `size` bytes, head to end marker, cut from the stream; `id` as SetID set it. Kinds eReadType
    // and eWriteType come on the pop thread, all others on the parse thread: two calls may be under way at once.
    virtual void UpdateSplittedPackage(const tRadarMsgPackage* package, unsigned int size, int id) = 0;
    // A whole built package; `timestamp` is its timestamp_ms. Called on the send thread, in building order.
    virtual void UpdateBuildedPackage(const char* package, unsigned int size, int id, unsigned long timestamp) = 0;
};

class tPackageBuilderAndSplitterPrivate;

// Both jobs run on worker threads of this object; the queues between them have no bound, and a line on standard output
// reports every split package behind which more than 50 wait for the pop thread. Every operation may be called
// from any thread, from inside an observer call too, except destruction: never destroy the object from inside one.
class KESTOVA_API tPackageBuilderAndSplitter
{
public:
    tPackageBuilderAndSplitter();
    // Stops the threads: waits for an observer call under way and discards queued packages.
    virtual ~tPackageBuilderAndSplitter();
    tPackageBuilderAndSplitter(const tPackageBuilderAndSplitter&) = delete;
    tPackageBuilderAndSplitter& operator=(const tPackageBuilderAndSplitter&) = delete;

    void SetID(int id);  // the identity given to observers and printed; -1 at the start

    unsigned int GetSplittedPackageCnt() const;  // the number expected of the next split package
    unsigned int GetBuildedPackageCnt() const;   // packages built since construction or the last Clear

    // Passes `len` bytes of a received stream to the splitter, in any portions; does nothing for `len` of 0 or less.
    // Damage is reported on standard output and skipped: 41 bytes at a bad end marker, everything up to the next head
    // at a bad head, everything if there is none. A heartbeat is recognised once 41 bytes are buffered.
    void LoadRecBuff(const char* buff, int len);

    // Queues a ready-made package of `len` bytes (at least 41, less is ignored) for the observers. The package is
    // stamped in place with its number, so the buffer must be writable and not shared with another caller.
    void BuildPackage(const char* package, int len);

    // Wraps `len` bytes of `data` into a package and queues it. `udpAddr` is dotted text or null (stored as 0),
    // `udpPort` a plain number, `timestamp` in ms (0: now). A `len` below 0 is taken as 0. msgLen keeps the low
    // 16 bits of `len`: payloads above 65494 bytes are stored whole but cannot be split from a stream.
    void BuildPackage(const tUdpMsgInfo& info, const char* udpAddr, int udpPort, const char* data, int len,
                      unsigned long timestamp);

    // Observers are called in the order of registration and are not owned. The spelling is part of the interface.
    // An added observer is called from the next package on; a removed one is not called again, not even for the current
    // package. When RemovePackageObserer returns, no call to that observer is under way; called from inside an observer
    // call of this object, it returns without waiting for calls on the other threads.
    void AddPackageObserer(iPackageObserver* observer);
    void RemovePackageObserer(iPackageObserver* observer);

    // Drops received bytes and waiting split packages, and resets both counts to 0. Waiting built packages stay, and so
    // do bytes that the parse thread already has.
    void Clear();

    // Waits until every package queued by BuildPackage before the call has been passed to the observers; returns false
    // if that took longer than timeout_ms, or at once when called from inside UpdateBuildedPackage.
    bool WaitBuildIdle(unsigned int timeout_ms);

private:
    tPackageBuilderAndSplitterPrivate* d;
};

#endif
