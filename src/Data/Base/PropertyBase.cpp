#include "Data/Base/PropertyBase.h"

#include <atomic>

#include <Poco/Exception.h>

#include "KeyPool.h"

namespace Kivo::Data::Base {

namespace {

std::atomic<std::uint64_t> g_ownerMoves{0};

const PropertyKey& checkedKey(const PropertyKey& key) {
    if (key.empty()) {
        throw Poco::AssertionViolationException("Properties must not have an empty key");
    }
    return KeyPool::intern(key);
}

}  // namespace

PropertyBase::PropertyBase(const PropertyKey& key, Object* parent)
    : m_keyAndFlags(reinterpret_cast<std::uintptr_t>(&checkedKey(key)) |
                    (parent != nullptr ? HAD_PARENT : 0)),
      m_parent(parent) {}

PropertyBase::~PropertyBase() { notifyDestroyed(); }

bool PropertyBase::testAndSet(std::uintptr_t flag) {
    // One writer at a time changes the flags, so a plain load and store suffice.
    const std::uintptr_t word = m_keyAndFlags.load(std::memory_order_relaxed);
    if ((word & flag) != 0) return true;
    m_keyAndFlags.store(word | flag, std::memory_order_relaxed);
    return false;
}

void PropertyBase::notifyDestroyed() {
    if (testAndSet(DESTROYED_RAISED)) return;
    PropertyEventPayload payload(this, PropertyEventPayload::PROPERTY_DESTROYED);
    try {
        Destroyed.notify(this, payload, [this, &payload] {
            if (Object* watcher = m_watcher.load()) watcher->onPropertyDestroyedPriv(this, payload);
        });
    } catch (...) {
        // A destructor must not throw; a failing subscriber is a programming error.
        poco_unexpected();
    }
}

void PropertyBase::setParent(Object* parent) {
    if (parent == m_parent) return;
    if (parent != nullptr) {
        // Counted before the new owner is visible, so an index that sees the owner also sees
        // the count change.
        if (testAndSet(HAD_PARENT)) g_ownerMoves.fetch_add(1, std::memory_order_relaxed);
    }
    m_parent = parent;
    PropertyEventPayload payload(this, PropertyEventPayload::PROPERTY_OWNER_CHANGED);
    notifyUpdated(payload);
}

void PropertyBase::notifyUpdated(PropertyEventPayload& payload) {
    Updated.notify(this, payload, [this, &payload] {
        if (Object* watcher = m_watcher.load()) watcher->onPropertyUpdatePriv(this, payload);
    });
}

bool PropertyBase::isModifiable() const {
    return m_parent == nullptr || m_parent->checkWriteAccess(getKey());
}

void PropertyBase::readLock() const {
    if (m_parent != nullptr) m_parent->lockRef().readLock();
}

void PropertyBase::writeLock() const {
    if (m_parent != nullptr) m_parent->lockRef().writeLock();
}

void PropertyBase::readUnlock() const {
    if (m_parent != nullptr) m_parent->lockRef().readUnlock();
}

void PropertyBase::writeUnlock() const {
    if (m_parent != nullptr) m_parent->lockRef().writeUnlock();
}

Kivo::RecursiveRWLockPtr PropertyBase::getLock() const {
    return m_parent != nullptr ? m_parent->getLock() : Kivo::RecursiveRWLockPtr();
}

std::uint64_t PropertyBase::getOwnerMoves() { return g_ownerMoves.load(std::memory_order_relaxed); }

void PropertyBase::registerAtOwner() {
    if (m_parent != nullptr) m_parent->registerProperty(getKey(), this);
}

PropertyLockGuard::PropertyLockGuard(const PropertyBase& property, bool write)
    : m_lock(property.getLock()) {
    if (m_lock) m_holder.emplace(*m_lock, write);
}

}  // namespace Kivo::Data::Base
