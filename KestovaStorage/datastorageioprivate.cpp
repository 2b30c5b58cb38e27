#include "KestovaStorage/datastorageioprivate.h"

namespace storage
{
tDataStorageIOPrivate::tDataStorageIOPrivate(const std::string& storageBasePath, const char* specifySuffix)
    : m_player(specifySuffix), m_writer(storageBasePath, specifySuffix)
{}

tDataStorageIOPrivate::~tDataStorageIOPrivate() = default;
}  // namespace storage
