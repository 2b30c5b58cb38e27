#include "KestovaStorage/internal/capture/capturepass.h"

#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "KestovaStorage/internal/capture/plainframe.h"

namespace pcap
{
namespace
{
std::uint64_t microseconds(const tCaptureRecord& record)
{
    return record.seconds * std::uint64_t{1'000'000} + record.microseconds;
}

// Rounded to the nearest.
tTimes_ms milliseconds(const tCaptureRecord& record)
{
    return record.seconds * tTimes_ms{1000} + (record.microseconds + tTimes_ms{500}) / 1000;
}

std::string_view payloadOf(const tDatagram& datagram)
{
    return {datagram.payload, static_cast<std::size_t>(datagram.length)};
}
}  // namespace

void tCapturePass::read(tCaptureFile& file, const std::atomic<bool>& stop)
{
    readAll(file, stop);
}

void tCapturePass::read(tFrameInput& frames, const std::atomic<bool>& stop)
{
    readAll(frames, stop);
}

template <typename tCapture>
void tCapturePass::readAll(tCapture& capture, const std::atomic<bool>& stop)
{
    m_size = capture.size();
    try
    {
        while (!stop.load(std::memory_order_relaxed) && capture.next(m_record))
        {
            ++m_result.records;
            if (m_request.tagsAndOptions && !isPlain(m_record))
                makePlain(m_record);
            if (tDatagramExtractor::concerns(m_record))
                takeRecord();
            else
                ++m_result.skippedRecords;
        }
    }
    catch (...)
    {
        storeResult();
        throw;
    }
    m_result.finished = capture.atEnd();
    m_result.stopped = stop && !m_result.finished;
    storeResult();
    m_result.cut = m_result.cut || capture.cut();
    if (!m_request.selection.empty())
        m_notifier.endOfData();
}

void tCapturePass::takeRecord()
{
    m_time = milliseconds(m_record);
    m_result.lastTime_us = microseconds(m_record);
    if (m_result.firstTime_us == 0)
        m_result.firstTime_us = m_result.lastTime_us;
    notifyProgress();
    tDatagram datagram;
    if (m_extractor.take(m_record, datagram))
        takeDatagram(datagram);
}

void tCapturePass::notifyProgress()
{
    if (m_result.records == 1)
        m_notifier.progress(0.0, m_time);
    if (m_size == 0)
        return;
    const double read = static_cast<double>(m_record.end), size = static_cast<double>(m_size);
    const int permille = static_cast<int>(read / size * 1000.0);
    if (permille == m_permille)
        return;
    m_permille = permille;
    std::fflush(stdout);
    if (!m_request.reportAtEndOnly && m_request.selection.empty() && m_notifier.wantsData())
        m_notifier.rows(m_statistics.rows());
    m_notifier.progress(permille / 10.0, m_time);
}

void tCapturePass::takeDatagram(const tDatagram& datagram)
{
    const tSelection& selection = m_request.selection;
    const bool selected = selection.contains(datagram.stream);
    const bool watched =
        m_notifier.wantsDatagrams() && (datagram.stream & cNoAddress) == 0 && (selected || selection.empty());
    if (datagram.length == 0)
    {
        if (watched)
            m_notifier.datagram(datagram, eMessageKind::eUnknow, m_result.records, microseconds(m_record));
        return;
    }
    const eMessageKind kind = kindOf(datagram);
    const auto length = static_cast<std::uint32_t>(datagram.length);
    const eTraffic traffic = m_statistics.count(datagram.stream, length, kind).traffic;
    ++m_result.datagrams;
    const bool withheld = !m_totals.add(traffic, payloadOf(datagram));
    if (watched)
        m_notifier.datagram(datagram, kind, m_result.records, microseconds(m_record));
    if (selected && !withheld && m_notifier.wantsData())
        m_notifier.data(datagram, traffic, m_permille / 1000.0, m_time);
}

eMessageKind tCapturePass::kindOf(const tDatagram& datagram) const
try
{
    return udpType(datagram.stream, payloadOf(datagram));
}
catch (const std::out_of_range&)
{
    if (!m_request.keepReading)
        throw;
    return eMessageKind::eUnknow;
}

void tCapturePass::storeResult()
{
    const tExtractionCounts& counts = m_extractor.counts();
    m_result.cut = m_record.cut;
    m_result.droppedRecords = counts.dropped;
    m_result.orphans = counts.orphans;
    m_result.padded = counts.padded;
    m_result.emptyBeginnings = static_cast<std::uint64_t>(counts.subErr);
    m_result.pending = m_extractor.pending();
}
}  // namespace pcap
