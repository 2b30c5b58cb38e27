#include "sessions/report/leftoutjson.h"

#include <nlohmann/json.hpp>

namespace session
{
tJson leftOutJson(const std::vector<recordings::tLeftOut>& leftOut)
{
    tJson rows = tJson::array();
    for (const recordings::tLeftOut& one : leftOut)
        rows.push_back({{"path", one.path}, {"reason", one.reason}});
    return rows;
}
}  // namespace session
