// tReassembly: datagrams of which some fragments were seen, by their identification alone. Fragments are joined
// in the order in which they come.
//
// Memory   what is pending, each datagram up to cDatagramLimit and all together up to cTotalLimit: captures cut to a
//          snap length claim far more bytes than they hold. A datagram that grows beyond is abandoned with its
//          fragments; if all together exceed the limit, everything pending is dropped.
// Threads  starts none, locks nothing.
#ifndef KESTOVA_STORAGE_CAPTURE_REASSEMBLY_H
#define KESTOVA_STORAGE_CAPTURE_REASSEMBLY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace pcap
{
// The bytes that an IP header claims. Those that the capture does not hold read as zeros.
struct tFragment
{
    const char* bytes;
    std::size_t held, claimed;  // held is at most claimed
    void appendTo(std::string& to) const
    {
        to.reserve(to.size() + claimed);
        to.append(bytes, held);
        to.append(claimed - held, '\0');
    }
};

class tReassembly
{
public:
    // The 13 bits of a fragment's offset reach to 65,528: no datagram on a network comes near this.
    static constexpr std::size_t cDatagramLimit = std::size_t{1} << 20;
    static constexpr std::size_t cTotalLimit = std::size_t{256} << 20;

    enum class eOutcome
    {
        eUnknown,  // nothing is pending under that identification
        eEmpty,    // what was pending had no bytes
        eLost,     // it had no whole UDP header, or was abandoned
        eWhole
    };

    void begin(std::uint16_t id, const tFragment& fragment);  // replaces what was pending
    void drop(std::uint16_t id);
    bool append(std::uint16_t id, const tFragment& fragment);  // returns false if nothing is pending
    // Ends the datagram. If it is whole, `datagram` points to its bytes, UDP header first, until the next call.
    eOutcome finish(std::uint16_t id, const tFragment& fragment, std::string*& datagram);
    std::size_t count() const { return m_pending.size(); }

private:
    struct tPending
    {
        std::string bytes;
        bool abandoned;
    };
    using tPendingMap = std::unordered_map<std::uint16_t, tPending>;

    bool dropAllBeyondLimit(const tFragment& fragment);
    void grow(tPending& pending, const tFragment& fragment);
    void release(tPendingMap::iterator place);

    tPendingMap m_pending;
    tPendingMap::node_type m_spare;  // of the datagram that ended last: the next one needs no new memory
    std::size_t m_total = 0;         // bytes allocated for all that is pending
};
}  // namespace pcap

#endif
