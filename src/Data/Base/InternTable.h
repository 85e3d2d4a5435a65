#ifndef QESSERVICEDATALIB_DATA_BASE_INTERNTABLE_H
#define QESSERVICEDATALIB_DATA_BASE_INTERNTABLE_H

#include <map>
#include <memory>
#include <mutex>

namespace Kivo::Data::Base {

/// One shared, immutable copy of each distinct value that something holds: intern() hands out
/// the table's copy of the value with a given key, made on first use. A copy leaves the table
/// when its last holder lets go, so values made from texts clients send do not pile up.
///
/// Traits names the key: `key_type`, `static const key_type& keyOf(const T&)` and
/// `static bool less(const key_type&, const key_type&)`, a strict weak order.
///
/// Thread-safe; its mutex is a leaf (nothing is locked under it, and no value is built or
/// destroyed under it but by `make`). The table must outlive every copy it handed out: keep it
/// in a static that is never destroyed, as values of static storage may go after it would.
template <class T, class Traits>
class InternTable {
public:
    typedef typename Traits::key_type key_type;

    InternTable() = default;
    InternTable(const InternTable&) = delete;
    InternTable& operator=(const InternTable&) = delete;

    /// The table's copy of the value whose key equals `key`; if no holder keeps one, the value
    /// `make()` returns (a `T*` to own, whose key equals `key`).
    template <class Make>
    std::shared_ptr<const T> intern(const key_type& key, Make&& make) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto entry = m_copies.find(key);
        if (entry != m_copies.end()) {
            if (std::shared_ptr<const T> shared = entry->second.lock()) return shared;
            // Its last holder is letting go: the deleter waits for the mutex and then finds
            // the entry replaced.
            m_copies.erase(entry);
        }
        std::shared_ptr<const T> shared(make(), [this](const T* gone) { forget(gone); });
        m_copies.emplace(shared.get(), shared);
        return shared;
    }

private:
    struct Less {
        typedef void is_transparent;
        bool operator()(const T* a, const T* b) const {
            return Traits::less(Traits::keyOf(*a), Traits::keyOf(*b));
        }
        bool operator()(const T* a, const key_type& b) const {
            return Traits::less(Traits::keyOf(*a), b);
        }
        bool operator()(const key_type& a, const T* b) const {
            return Traits::less(a, Traits::keyOf(*b));
        }
    };

    void forget(const T* gone) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            const auto entry = m_copies.find(gone);
            if (entry != m_copies.end() && entry->first == gone) m_copies.erase(entry);
        }
        delete gone;
    }

    std::mutex m_mutex;
    std::map<const T*, std::weak_ptr<const T>, Less> m_copies;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_INTERNTABLE_H
