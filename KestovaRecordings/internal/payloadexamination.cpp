#include "KestovaRecordings/internal/payloadexamination.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>

#include "KestovaRecordings/internal/crc32c.h"
#include "KestovaRecordings/internal/flippedbit.h"
#include "KestovaRecordings/internal/packagecheck.h"
#include "common/worker.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cUnitBytes = 256 * 1024;              // stay in a core's cache
constexpr std::uint64_t cLongBytes = std::uint64_t{4} << 20;  // such a unit is in memory alone
}  // namespace

tPayloadExamination::tPayloadExamination(const storage::tRawDataFile& file, tExaminedIndex& index, const tSheet* sheet,
                                         tFindingList& findings)
    : m_file(file), m_index(index), m_sheet(sheet), m_findings(findings),
      m_codesAreRight(!file.isCompressed() || !findings.hasDamage("head")), m_ordered(sheet)
{
    if (m_sheet != nullptr)
        m_blocks = blocksOf(*m_sheet, m_index.count());
    divide();
}

std::uint64_t tPayloadExamination::storedBytes(std::size_t i) const
{
    return m_index.worth[i] != eBroken ? m_file.record(m_index.slots[i]).bytes() : 0;
}

// Blocks stay whole; behind them a unit ends with any record.
void tPayloadExamination::divide()
{
    tUnit unit{};
    for (std::size_t i = 0; i < m_index.count(); ++i)
    {
        const bool inBlock = unit.lastBlock < m_blocks.size();
        unit.bytes += storedBytes(i);
        unit.last = i + 1;
        if (inBlock && unit.last < m_blocks[unit.lastBlock].last)
            continue;
        unit.lastBlock += inBlock ? 1 : 0;
        if (unit.bytes >= cUnitBytes || i + 1 == m_index.count())
        {
            m_units.push_back(unit);
            m_ofBytes += unit.bytes;
            unit = {unit.last, unit.last, unit.lastBlock, unit.lastBlock, 0};
        }
    }
}

bool tPayloadExamination::run(unsigned threads, const tGoOn& goOn)
{
    {
        std::vector<std::unique_ptr<tWorker>> helpers;
        for (std::size_t i = 1; i < std::min<std::size_t>(threads, m_units.size()); ++i)
        {
            try
            {
                helpers.push_back(std::make_unique<tWorker>());
                helpers.back()->start([this] { work(nullptr); });
            }
            catch (const std::system_error&)
            {
                break;  // no further thread: those that run do the work
            }
        }
        work(&goOn);
    }
    if (m_failure)
        std::rethrow_exception(m_failure);
    if (!m_cancelled)
        finish();
    return !m_cancelled;
}

void tPayloadExamination::work(const tGoOn* goOn)
try
{
    tSegmentUnit segments(m_file, m_index);
    for (std::size_t number = m_next++; number < m_units.size() && !m_cancelled; number = m_next++)
    {
        process(number, segments);
        m_bytes += m_units[number].bytes;
        if (goOn != nullptr && !(*goOn)(m_bytes, m_ofBytes))
            cancel();
    }
}
catch (...)
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_failure = std::current_exception();
    }
    cancel();
}

void tPayloadExamination::process(std::size_t number, tSegmentUnit& segments)
{
    const tUnit& unit = m_units[number];
    const bool isLong = unit.bytes > cLongBytes;
    if (isLong && !waitForTurn(number))
        return;
    segments.load(unit.first, unit.last);
    tFindingList findings;
    checkPackages(unit, segments, findings);
    for (std::size_t k = unit.firstBlock; k < unit.lastBlock; ++k)
        checkBlock(m_blocks[k], segments, findings);
    if (!waitForTurn(number))
        return;
    m_findings.append(findings);
    for (std::size_t i = unit.first; i < unit.last; ++i)
    {
        const std::string_view segment = segments.segment(i);
        m_decodedBytes += segment.size();
        if (m_ordered.isNeeded())
        {
            const storage::tRawRecord record = m_file.record(m_index.slots[i]);
            m_ordered.add({i, record.firstByte, record.timeMs}, segment, m_findings);
        }
    }
    if (isLong)
        segments.release();
    endTurn();
}

void tPayloadExamination::checkPackages(const tUnit& unit, const tSegmentUnit& segments, tFindingList& findings)
{
    for (std::size_t i = unit.first; i < unit.last; ++i)
    {
        if (m_index.worth[i] == eBroken)
            continue;
        const storage::tRawRecord record = m_file.record(m_index.slots[i]);
        const tFindingPlace place{i, record.firstByte, record.timeMs};
        const std::string_view segment = segments.segment(i);
        if (segment.data() == nullptr)
        {
            m_index.worth[i] = eBroken;
            findings.add(m_file.isCompressed() ? "codes" : "unreadable", place,
                         m_file.isCompressed() ? "its codes cannot be read" : "cannot be read");
            continue;
        }
        const ePackageLook look = lookAtPackage(segment);
        if (const char* const fault = faultOf(look))
        {
            m_index.worth[i] = eBroken;
            findings.add("package", place, fault);
        }
        else if (look == ePackageLook::eWhole && m_index.worth[i] == eDoubtful)
            m_index.worth[i] = eWhole;
    }
}

void tPayloadExamination::checkBlock(const tBlock& block, const tSegmentUnit& segments, tFindingList& findings)
{
    std::uint32_t sum = 0;
    for (std::size_t i = block.first; i < block.last;)
    {
        std::string_view run = segments.segment(i++);
        if (run.data() == nullptr)
            return;  // what is missing was found already
        for (; i < block.last && segments.segment(i).data() == run.data() + run.size(); ++i)
            run = {run.data(), run.size() + segments.segment(i).size()};
        sum = crc32c(sum, run.data(), run.size());
    }
    if (sum != block.payload)
        blameBlock(block, sum ^ block.payload, segments, findings);
}

// Damage that is wider than a bit mostly takes the mark of a package with it: if none of the block is seen to be
// damaged the whole block is.
void tPayloadExamination::blameBlock(const tBlock& block, std::uint32_t difference, const tSegmentUnit& segments,
                                     tFindingList& findings)
{
    std::uint64_t bytes = 0;
    bool isExplained = false;
    for (std::size_t i = block.first; i < block.last; ++i)
    {
        bytes += segments.segment(i).size();
        isExplained |= m_codesAreRight && m_index.worth[i] >= eDoubtful;
    }
    if (const auto bit = m_file.isCompressed() ? std::nullopt : flippedBit(difference, bytes))
        return blameBit(block, *bit, segments, findings);
    const storage::tRawRecord first = m_file.record(m_index.slots[block.first]);
    findings.add("payload", {block.first, first.firstByte, first.timeMs, block.last - 1},
                 "the checksum of their segments is wrong");
    for (std::size_t i = block.first; i < block.last && !isExplained; ++i)
        m_index.worth[i] = eBroken;
}

// The bit counts from the first segment of the block on.
void tPayloadExamination::blameBit(const tBlock& block, std::uint64_t bit, const tSegmentUnit& segments,
                                   tFindingList& findings)
{
    std::size_t i = block.first;
    std::uint64_t byte = bit / 8;
    for (; byte >= segments.segment(i).size(); ++i)
        byte -= segments.segment(i).size();
    const storage::tRawRecord record = m_file.record(m_index.slots[i]);
    m_index.worth[i] = eBroken;
    findings.add("payload", {i, record.firstByte + byte, record.timeMs},
                 fmt::format("bit {} of this byte is flipped", bit % 8));
}

// Returns false if the work was cancelled.
bool tPayloadExamination::waitForTurn(std::size_t number)
{
    std::unique_lock<std::mutex> held(m_mutex);
    m_turnChanged.wait(held, [&] { return m_turn == number || m_cancelled; });
    return !m_cancelled;
}

void tPayloadExamination::endTurn()
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        ++m_turn;
    }
    m_turnChanged.notify_all();
}

void tPayloadExamination::cancel()
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_cancelled = true;
    }
    m_turnChanged.notify_all();
}

void tPayloadExamination::finish()
{
    constexpr std::uint64_t cCountRange = std::uint64_t{1} << 32;  // a head has the low 32 bits of its counts
    const bool isAll =
        std::all_of(m_index.worth.begin(), m_index.worth.end(), [](eWorth worth) { return worth == eWhole; });
    if (m_findings.hasDamage())
        return;
    if (m_file.isCompressed() && isAll && (m_file.countedBytes() - m_decodedBytes) % cCountRange != 0)
        m_findings.addOfFile(
            "codes", fmt::format("they give {} bytes, the head has counted {}", m_decodedBytes, m_file.countedBytes()));
    m_ordered.finish(m_findings);
}
}  // namespace recordings
