#include "server/picturefeed.h"

namespace server
{
using namespace recordings;

namespace
{
bool isImage(tReadWriteType kind)
{
    return kind == eImageStream || kind == eOriginalImage;
}
}  // namespace

void tPictureFeed::read(const tFedMessage& message)
{
    m_timeMs = message.timeMs;
    const std::pair group(message.ip, message.port);
    if (!m_group || *m_group == group)
    {
        m_isSpoke = false;
        m_reader.read(message.message, {message.timeMs, 0}, *this);
        if (m_isSpoke)
            m_group = group;
        if (m_group)
            return;
    }
    if (!isImage(message.kind))
        m_sentences.read(message.message, message.timeMs, *this);
}

void tPictureFeed::startAnew()
{
    m_reader = tSpokeReader(m_layouts);
    m_sentences = tSentenceReader();
    m_loss = {};
    m_sweep = {};
}

void tPictureFeed::onSpoke(const tSpoke& spoke, const tMessagePlace& place)
{
    m_isSpoke = true;
    m_take(spoke, place.timeMs, m_sweep.add(spoke.bearingFrom));
}

void tPictureFeed::onSequence(std::uint64_t number, unsigned bits)
{
    m_isSpoke = true;
    m_isNumbered = true;
    m_loss.add(number, bits);
}

void tPictureFeed::onSummary(std::string_view)
{
    m_isSpoke = true;
    m_loss.addUnnumbered();
}

void tPictureFeed::onSentence(const tSentence& sentence)
{
    m_navigation.add(sentence, m_timeMs);
}
}  // namespace server
