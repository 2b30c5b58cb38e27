// Numbers of captured network headers, which are big-endian on the wire.
#ifndef KESTOVA_COMMON_BIGENDIAN_H
#define KESTOVA_COMMON_BIGENDIAN_H

#include "common/littleendian.h"

namespace be
{
// The number stored at `from`; any alignment.
template <typename tNumber>
tNumber load(const void* from)
{
    return le::swapped(le::load<tNumber>(from));
}

// Stores `value` at `to`; any alignment.
template <typename tNumber>
void store(void* to, tNumber value)
{
    le::store(to, le::swapped(value));
}
}  // namespace be

#endif
