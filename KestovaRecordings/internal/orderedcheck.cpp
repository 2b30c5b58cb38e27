#include "KestovaRecordings/internal/orderedcheck.h"

#include <fmt/format.h>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
tOrderedCheck::tOrderedCheck(const tSheet* sheet)
    : m_sheet(sheet != nullptr && !sheet->notesOnly ? sheet : nullptr), m_checksNumbers(m_sheet && !m_sheet->cut)
{}

void tOrderedCheck::add(const tFindingPlace& place, std::string_view segment, tFindingList& findings)
{
    if (segment.data() == nullptr)
    {
        m_allRead &= m_records++ >= m_sheet->records;
        m_nextNumber.reset();
        return;
    }
    const tRadarMsgPackage* const package = asWholePackage(segment.data(), segment.size());
    if (m_records++ < m_sheet->records)
        count(package, segment);
    if (m_checksNumbers && package != nullptr)
        checkNumber(storage::fileOrder(package->packCnt), place, findings);
}

void tOrderedCheck::count(const tRadarMsgPackage* package, std::string_view segment)
{
    if (package == nullptr)
    {
        if (m_raw == nullptr)
            m_raw = &m_streams[tStreamKey::raw()];
        return m_raw->add(segment);
    }
    const std::uint8_t kind = package->msgInfo.rwType;
    const std::uint16_t port = package->udpPort;
    const std::uint32_t ip = package->udpAddr;
    tStreamAtHand& found = m_atHand[(kind ^ port ^ ip >> 24) % cPlaces];
    if (found.count == nullptr || found.kind != kind || found.port != port || found.ip != ip)
        found = {ip, port, kind, &m_streams[tStreamKey::of(kind, ip, port)]};
    found.count->add(segment.substr(cPackageHeadSize, package->msgLen));
}

// Numbers go up by one and around.
void tOrderedCheck::checkNumber(std::uint32_t number, const tFindingPlace& place, tFindingList& findings)
{
    constexpr std::uint32_t cHalf = std::uint32_t{1} << 31;
    const std::uint32_t missing = m_nextNumber ? number - *m_nextNumber : 0;
    if (missing == 1)
        findings.add("sequence", place, fmt::format("package {} is missing before it", *m_nextNumber), false);
    else if (missing != 0 && missing < cHalf)
        findings.add("sequence", place,
                     fmt::format("packages {} to {} are missing before it", *m_nextNumber, number - 1), false);
    else if (missing != 0)
        findings.add("sequence", place, fmt::format("package {} comes behind {}", number, *m_nextNumber - 1), false);
    m_nextNumber = number + 1;
}

void tOrderedCheck::finish(tFindingList& findings) const
{
    if (m_sheet == nullptr || !m_allRead || m_records < m_sheet->records)
        return;
    for (const tSheetStream& wanted : m_sheet->streams)
    {
        const auto found = m_streams.find(wanted.key);
        const tStreamCount count = found != m_streams.end() ? found->second : tStreamCount{};
        if (count.messages != wanted.messages || count.bytes != wanted.bytes || count.digest.hash != wanted.digest.hash)
            findings.addOfFile("digest",
                               fmt::format("{} {}: {} messages, {} bytes, digest {}; its sheet has {}, {}, {}",
                                           wanted.key.name(), wanted.key.address(), count.messages, count.bytes,
                                           count.digest.text(), wanted.messages, wanted.bytes, wanted.digest.text()));
    }
}
}  // namespace recordings
