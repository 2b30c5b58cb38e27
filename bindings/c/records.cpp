#include <array>
#include <memory>
#include <unordered_map>
#include <vector>

#include "KestovaRecordings/groupaddress.h"
#include "KestovaRecordings/streamchoice.h"
#include "KestovaUtils/streamnames.h"
#include "UdpSocket/udpsocket.h"
#include "bindings/c/feed.h"
#include "bindings/c/guard.h"

namespace
{
using binding::tGroup;
using binding::tMessage;

constexpr std::size_t cMostBytes = 8 << 20;  // of one call, but for its last records
constexpr std::size_t cRun = 16;             // so many messages are handed out where they lie; fewer are copied

// Returns the name of a kind, which lives as long as the process.
const char* streamNameOf(std::uint8_t kind)
{
    static const auto* const s_numbers = [] {
        auto* const names = new std::array<std::string, 256>;
        for (unsigned i = 0; i < names->size(); ++i)
            (*names)[i] = "kind " + std::to_string(i);
        return names;
    }();
    const char* const name = utils::streamName(kind);
    return name != nullptr ? name : (*s_numbers)[kind].c_str();
}

std::set<tGroup> groupsIn(const char* text)
{
    std::set<tGroup> groups;
    std::string rest = text != nullptr ? text : "";
    while (!rest.empty())
    {
        const std::size_t end = std::min(rest.find(','), rest.size());
        const NetAddress group = recordings::parseGroup(rest.substr(0, end));
        groups.emplace(group.ip, net::NtoHs(group.port));
        rest.erase(0, end + 1);
    }
    return groups;
}

recordings::tStreamChoice streamsIn(const char* text)
{
    return text != nullptr && *text != '\0' ? recordings::parseStreams({text}) : recordings::tStreamChoice();
}
}  // namespace

// The bytes of the records of one call, and the texts of their addresses.
struct kestova_records
{
    kestova_records(const binding::tSource& source, const binding::tSpan& span, const char* streams, const char* groups)
        : m_span(source.isLive() ? binding::tSpan{KESTOVA_BEGINNING, KESTOVA_TO_END} : span),
          m_streams(streamsIn(streams)), m_groups(groupsIn(groups)), m_feed(binding::openFeed(source, span))
    {}

    kestova_result read(kestova_record* out, std::size_t capacity, std::size_t& count, int timeoutMs)
    {
        const binding::tDeadline deadline = binding::deadlineIn(timeoutMs);
        m_size = count = 0;
        kestova_result result = KESTOVA_OK;
        for (;;)
        {
            // What has come is handed out at once.
            result = fetch(capacity - count, count == 0 ? deadline : binding::tClock::time_point());
            if (result != KESTOVA_OK)
                break;
            const bool isRun = count == 0 && m_messages.size() >= cRun;
            for (const tMessage& message : m_messages)
                if (isWanted(message))
                    put(message, out[count++], !isRun);
            if (count == capacity || m_size >= cMostBytes || (isRun && count != 0))
                break;
            if (count == 0 && deadline && binding::tClock::now() >= *deadline)
                return KESTOVA_TIMEOUT;
        }
        std::size_t at = 0;
        for (std::size_t i = 0; i < count && m_size != 0; at += out[i++].length)
            out[i].data = m_bytes.data() + at;
        return count != 0 ? KESTOVA_OK : result;
    }
    std::uint64_t damaged() const { return m_feed->damaged(); }

private:
    // Sets the next messages, of which none lies behind the span.
    kestova_result fetch(std::size_t most, const binding::tDeadline& deadline)
    {
        if (m_isOver)
            return KESTOVA_END;
        const kestova_result result = m_feed->next(m_messages, most, deadline);
        if (result != KESTOVA_OK)
            return result;
        while (!m_messages.empty() && static_cast<std::int64_t>(m_messages.back().timeMs) >= m_span.endMs)
        {
            m_isOver = true;
            m_messages.pop_back();
        }
        return m_messages.empty() ? KESTOVA_END : KESTOVA_OK;
    }

    bool isWanted(const tMessage& message) const
    {
        const recordings::tPackageContents& package = message.package;
        if (static_cast<std::int64_t>(message.timeMs) < m_span.startMs)
            return false;
        if (!message.isPackage)
            return m_streams.includesAll() && m_groups.empty();
        return m_streams.includes(package.info.rwType) &&
               (m_groups.empty() || m_groups.count({package.ip, package.port}) != 0);
    }

    // With `keeps` a copy of the message joins the bytes of this call.
    void put(const tMessage& message, kestova_record& out, bool keeps)
    {
        const recordings::tPackageContents& package = message.package;
        const tUdpMsgInfo& info = package.info;
        out = {static_cast<std::int64_t>(message.timeMs),
               static_cast<std::int64_t>(package.timeMs),
               package.sequence,
               message.isPackage ? streamNameOf(info.rwType) : "raw",
               message.isPackage ? addressOf(package.ip) : "",
               reinterpret_cast<const std::uint8_t*>(package.payload.data()),
               package.payload.size(),
               package.port,
               info.rwType,
               {info.sender, info.recver, info.type, info.rwType, info.radarMultiNum}};
        if (!keeps)
            return;
        if (m_size + out.length > m_bytes.size())
            m_bytes.resize(std::max(2 * m_bytes.size(), m_size + out.length));
        package.payload.copy(reinterpret_cast<char*>(m_bytes.data()) + m_size, out.length);
        m_size += out.length;
    }

    const char* addressOf(std::uint32_t ip)
    {
        if (m_lastAddress == nullptr || ip != m_lastIp)
        {
            const auto known = m_addresses.find(ip);
            m_lastAddress = (known != m_addresses.end() ? known : m_addresses.emplace(ip, net::transAddr(ip)).first)
                                ->second.c_str();
            m_lastIp = ip;
        }
        return m_lastAddress;
    }

    const binding::tSpan m_span;
    const recordings::tStreamChoice m_streams;
    const std::set<tGroup> m_groups;
    std::vector<std::uint8_t> m_bytes = std::vector<std::uint8_t>(1 << 18);
    std::size_t m_size = 0;
    bool m_isOver = false;
    binding::tMessages m_messages;
    std::unordered_map<std::uint32_t, std::string> m_addresses;
    std::uint32_t m_lastIp = 0;
    const char* m_lastAddress = nullptr;
    const std::unique_ptr<binding::iFeed> m_feed;  // last: its thread may use what is above
};

kestova_result kestova_records_open(kestova_recording* recording, int64_t start_ms, int64_t end_ms, const char* streams,
                                    const char* groups, kestova_records** out)
{
    return binding::guarded([&] {
        binding::require(recording, "recording");
        binding::require(out, "out");
        *out = new kestova_records(*recording->source, {start_ms, end_ms}, streams, groups);
        return KESTOVA_OK;
    });
}

kestova_result kestova_records_read(kestova_records* records, kestova_record* out, size_t capacity, size_t* count,
                                    int timeout_ms)
{
    return binding::guarded([&] {
        binding::require(records, "records");
        binding::require(out, "out");
        binding::require(count, "count");
        if (capacity == 0)
            throw binding::tError(KESTOVA_ARGUMENT, "capacity is 0");
        return records->read(out, capacity, *count, timeout_ms);
    });
}

uint64_t kestova_records_damaged(const kestova_records* records)
{
    return records != nullptr ? records->damaged() : 0;
}

void kestova_records_close(kestova_records* records)
{
    delete records;
}
