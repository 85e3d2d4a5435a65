#ifndef QESSERVICEDATALIB_SRC_DATA_BASE_KEYPOOL_H
#define QESSERVICEDATALIB_SRC_DATA_BASE_KEYPOOL_H

#include "Data/Base/Object.h"

namespace Kivo::Data::Base {

/// The one stored copy of each property key in use, which properties and registries point at
/// instead of keeping copies of their own: a tree holds many objects of few kinds, so the same
/// few keys would otherwise be stored again in every object.
///
/// Keys are named by code (element classes and their optional properties), not by clients, so
/// the pool stays as small as the set of kinds; it is never emptied, which keeps a key valid
/// for every property that uses it, static ones at exit included. Any thread may use it.
class KeyPool {
public:
    KeyPool() = delete;

    /// The pooled copy of `key`, added on first use; it lives until the process ends.
    static const PropertyKey& intern(const PropertyKey& key);
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_SRC_DATA_BASE_KEYPOOL_H
