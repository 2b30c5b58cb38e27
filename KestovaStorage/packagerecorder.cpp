#include "KestovaStorage/packagerecorder.h"

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/datastorageioprivate.h"
#include "KestovaStorage/internal/package/packagebuilder.h"
#include "KestovaUtils/timeparser.h"
#include "UdpSocket/udpsocket.h"

namespace Kestova
{
// The only connection between packages and the storage engine.
class tPackageRecorderPrivate final : private iPackageSink
{
public:
    explicit tPackageRecorderPrivate(storage::tDataStorageIO& storage) : m_writer(storage.d->m_writer) {}

    const tPackageBuilder& builder() const { return m_builder; }
    void record(const tUdpMsgInfo& info, const NetAddress& group, const char* data, int len, storage::tSegmentTime time)
    {
        tPackageFields fields{};
        fields.msgInfo = info;
        fields.udpAddr = group.ip;
        fields.udpPort = net::NtoHs(group.port);
        fields.timestamp_ms = time.ms;
        fields.us = time.us;
        m_builder.build(fields, data, data != nullptr && len > 0 ? static_cast<std::size_t>(len) : 0);
    }

private:
    void queue(std::size_t len, std::uint64_t timestamp_ms, std::uint16_t us, iSegmentSource& package) override
    {
        m_writer.writeSegment(package, len, {timestamp_ms, us});
    }

    storage::tFileRecorder& m_writer;
    tPackageBuilder m_builder{*this};
};

tPackageRecorder::tPackageRecorder(storage::tDataStorageIO& storage) : d(new tPackageRecorderPrivate(storage)) {}

tPackageRecorder::~tPackageRecorder()
{
    delete d;
}

void tPackageRecorder::Record(const tUdpMsgInfo& info, const NetAddress& group, const char* data, int len,
                              unsigned long timestamp)
{
    d->record(info, group, data, len, {timestamp != 0 ? timestamp : utils::time::tTimeParser::GetCurrentTime_ms()});
}

void tPackageRecorder::RecordFine(const tUdpMsgInfo& info, const NetAddress& group, const char* data, int len,
                                  uint64_t time_us)
{
    d->record(info, group, data, len, storage::tSegmentTime::fine(time_us));
}

uint32_t tPackageRecorder::GetRecordedCnt() const
{
    return d->builder().count();
}
}  // namespace Kestova
