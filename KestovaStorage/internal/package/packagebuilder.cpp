#include "KestovaStorage/internal/package/packagebuilder.h"

#include "KestovaStorage/internal/buffers/segmentsource.h"

namespace
{
class tWrappedPayload final : public iSegmentSource
{
public:
    tWrappedPayload(const tPackageFields& fields, const char* payload, std::size_t payloadLen,
                    std::atomic<std::uint32_t>& count)
        : m_fields(fields), m_payload(payload), m_payloadLen(payloadLen), m_count(count)
    {}
    void write(char* place) override { writePackage(place, m_fields, m_payload, m_payloadLen); }
    void queued(char* place) override
    {
        const std::uint32_t number = m_count++;
        if (place != nullptr)
            stampPackCnt(place, number);
    }

private:
    const tPackageFields& m_fields;
    const char* const m_payload;
    const std::size_t m_payloadLen;
    std::atomic<std::uint32_t>& m_count;
};

class tReadyPackage final : public iSegmentSource
{
public:
    tReadyPackage(char* package, std::size_t len, std::atomic<std::uint32_t>& count)
        : m_package(package), m_len(len), m_count(count)
    {}
    void write(char* place) override { std::memcpy(place, m_package, m_len); }
    void queued(char* place) override
    {
        const std::uint32_t number = m_count++;
        stampPackCnt(m_package, number);
        if (place != nullptr)
            stampPackCnt(place, number);
    }

private:
    char* const m_package;
    const std::size_t m_len;
    std::atomic<std::uint32_t>& m_count;
};
}  // namespace

void tPackageBuilder::build(const tPackageFields& fields, const char* payload, std::size_t payloadLen)
{
    tWrappedPayload package(fields, payload, payloadLen, m_buildedPackCnt);
    m_sink.queue(packageSize(payloadLen), fields.timestamp_ms, fields.us, package);
}

void tPackageBuilder::queueReady(char* package, std::size_t len)
{
    tReadyPackage ready(package, len, m_buildedPackCnt);
    m_sink.queue(len, le::load<std::uint64_t>(package + offsetof(tRadarMsgPackage, timestamp_ms)), storage::cNoFineTime,
                 ready);
}
