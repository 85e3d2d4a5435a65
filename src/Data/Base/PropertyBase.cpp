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
    : m_key(&checkedKey(key)), m_parent(parent), m_hadParent(parent != nullptr) {}

PropertyBase::~PropertyBase() { notifyDestroyed(); }

void PropertyBase::notifyDestroyed() {
    if (m_destroyedRaised) return;
    m_destroyedRaised = true;
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
        if (m_hadParent) g_ownerMoves.fetch_add(1, std::memory_order_relaxed);
        m_hadParent = true;
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
    return m_parent == nullptr || m_parent->checkWriteAccess(*m_key);
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

std::uint64_t PropertyBase::getOwnerMoves() {
    return g_ownerMoves.load(std::memory_order_relaxed);
}

void PropertyBase::registerAtOwner() {
    if (m_parent != nullptr) m_parent->registerProperty(*m_key, this);
}

PropertyLockGuard::PropertyLockGuard(const PropertyBase& property, bool write)
    : m_lock(property.getLock()) {
    if (m_lock) m_holder.emplace(*m_lock, write);
}

}  // namespace Kivo::Data::Base
