#include "KeyPool.h"

#include <cstddef>
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
    // A thread interns the same few keys again and again (every object of a class brings the
    // same ones): those it pooled last are found again without the pool's mutex. Plain
    // pointers, so the cache has no destructor and works while statics are torn down.
    // One thread-local object, which the library finds with one call.
    constexpr std::size_t RECENT = 8;
    struct Recent {
        const PropertyKey* keys[RECENT];
        std::size_t next;
    };
    thread_local Recent recent = {};
    for (const PropertyKey* pooled : recent.keys) {
        if (pooled == nullptr) break;
        if (pooled == &key || *pooled == key) return *pooled;
    }
    Pool& keys = pool();
    const PropertyKey* pooled = nullptr;
    {
        std::lock_guard<std::mutex> lock(keys.mutex);
        pooled = &*keys.keys.insert(key).first;
    }
    recent.keys[recent.next] = pooled;
    recent.next = (recent.next + 1) % RECENT;
    return *pooled;
}

}  // namespace Kivo::Data::Base
