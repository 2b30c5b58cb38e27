// Time of day and its text forms.
#ifndef KESTOVA_TIMEPARSER_H
#define KESTOVA_TIMEPARSER_H

#include <stdint.h>
#include <string>

#include "UdpSocket/kestovaapi.h"

typedef unsigned long tTimes_ms;  // milliseconds since the Unix epoch; 0, if allowed, means "now"
typedef uint32_t tTimes_s;        // seconds since the Unix epoch

namespace utils
{
namespace time
{
// All operations may be called from any thread.
class KESTOVA_API tTimeParser
{
public:
    static tTimes_ms GetCurrentTime_ms();  // the wall clock
    static tTimes_s GetCurrentTime_s();
    // Returns the seconds since the epoch of "2022-11-11 11:11:11" in local time; 0 for text of another form.
    static tTimes_s String2Time_s(const std::string& text);
    // Returns milliseconds since the epoch as "2024-05-17 08:30:00.250" in local time.
    static std::string Time_ms2String(tTimes_ms time);
};
}  // namespace time
}  // namespace utils

#endif
