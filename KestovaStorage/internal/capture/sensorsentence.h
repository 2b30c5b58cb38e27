// tSensorSentence: a sensor's sentence with the time at which it was captured.
#ifndef KESTOVA_STORAGE_CAPTURE_SENSORSENTENCE_H
#define KESTOVA_STORAGE_CAPTURE_SENSORSENTENCE_H

#include <string>
#include <string_view>

#include "KestovaUtils/timeparser.h"

namespace pcap
{
class tSensorSentence
{
public:
    // "$GPGGA,...\r\n" becomes "$GPGGA,...$PCKTIM$2024-05-17 08:30:00.250$\r\n". Valid until the next call.
    const std::string& stamped(std::string_view sentence, tTimes_ms time)
    {
        if (sentence.ends_with("\r\n"))
            sentence.remove_suffix(2);
        m_text.assign(sentence);
        m_text += "$PCKTIM$";
        m_text += utils::time::tTimeParser::Time_ms2String(time);
        m_text += "$\r\n";
        return m_text;
    }

private:
    std::string m_text;
};
}  // namespace pcap

#endif
