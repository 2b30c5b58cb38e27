// The JSON of rows: an object's keys stay in the order in which they are set.
#ifndef KESTOVA_SESSIONS_ROWS_JSON_H
#define KESTOVA_SESSIONS_ROWS_JSON_H

#include <nlohmann/json_fwd.hpp>

namespace session
{
using tJson = nlohmann::ordered_json;
}

#endif
