#include "KeyPool.h"

#include <mutex>
#include <unordered_set>

namespace Kivo::Data::Base {

namespace {

struct Pool {
    std::mutex mutex;
    std::unordered_set<PropertyKey> keys;  // guarded by mutex; nodes never move
};

Pool& pool() {
    // Never destroyed: static properties use their keys while statics are torn down.
    static Pool* instance = new Pool;
    return *instance;
}

}  // namespace

const PropertyKey& KeyPool::intern(const PropertyKey& key) {
    Pool& keys = pool();
    std::lock_guard<std::mutex> lock(keys.mutex);
    return *keys.keys.insert(key).first;
}

}  // namespace Kivo::Data::Base
