#include "FeedCore.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <Poco/ScopedUnlock.h>

#include "Logging/Log.h"

namespace Kivo::Client {

namespace {

// How many events one turn hands to one subscriber before the next one is served.
const std::size_t BATCH_SIZE = 256;

bool passes(const ChangeFeed::Filter& filter, const ChangeEvent& event) {
    if (event.kind() == ChangeEvent::RESYNC) return true;
    if (!filter.resources.empty() && filter.resources.count(event.resource()) == 0) return false;
    if (filter.keys.empty() || event.kind() != ChangeEvent::CHANGED) return true;
    return event.touchesAny(filter.keys);
}

}  // namespace

void FeedCore::record(ChangeEvent::Kind kind, std::string resource, const Poco::UUID& id,
                      Poco::JSON::Object::Ptr values, Poco::JSON::Object::Ptr element) {
    Poco::Mutex::ScopedLock lock(m_mutex);
    const Revision revision = ++m_revision;
    m_history.emplace_back(kind, revision, std::move(resource), id, std::move(values),
                           std::move(element));
    if (kind == ChangeEvent::REMOVED) {
        m_elementRevisions.erase(id);
    } else {
        m_elementRevisions[id] = revision;
    }
    trim();
    m_wake.signal();
}

FeedCore::Revision FeedCore::currentRevision() const {
    Poco::Mutex::ScopedLock lock(m_mutex);
    return m_revision;
}

FeedCore::Revision FeedCore::revisionOf(const Poco::UUID& id) const {
    Poco::Mutex::ScopedLock lock(m_mutex);
    const auto entry = m_elementRevisions.find(id);
    return entry == m_elementRevisions.end() ? 0 : entry->second;
}

std::uint64_t FeedCore::subscribe(ChangeFeed::Callback callback, ChangeFeed::Filter filter,
                                  Revision since) {
    auto subscriber = std::make_shared<Subscriber>();
    subscriber->callback = std::move(callback);
    subscriber->filter = std::move(filter);
    Poco::Mutex::ScopedLock lock(m_mutex);
    subscriber->next = m_revision + 1;
    if (since != ChangeFeed::FROM_NOW) {
        // Resuming needs every event after `since`, and `since` must be one of this feed's.
        if (since > m_revision || since + 1 < oldestKept()) {
            subscriber->resyncPending = true;
        } else {
            subscriber->next = since + 1;
        }
    }
    const std::uint64_t id = m_nextId++;
    m_subscribers.emplace(id, std::move(subscriber));
    m_wake.signal();
    return id;
}

void FeedCore::unsubscribe(std::uint64_t id) {
    Poco::Mutex::ScopedLock lock(m_mutex);
    const auto entry = m_subscribers.find(id);
    if (entry != m_subscribers.end()) {
        entry->second->active = false;
        m_subscribers.erase(entry);
        trim();
    }
    // The delivering thread is inside that very delivery: it ends once the subscriber returns.
    if (Poco::Thread::currentTid() == m_deliveryThread) return;
    while (m_delivering == id) m_delivered.wait(m_mutex);
}

void FeedCore::stop() {
    Poco::Mutex::ScopedLock lock(m_mutex);
    m_stopping = true;
    m_wake.signal();
}

void FeedCore::run() {
    Poco::Mutex::ScopedLock lock(m_mutex);
    m_deliveryThread = Poco::Thread::currentTid();
    for (;;) {
        std::uint64_t id = 0;
        const SubscriberPtr subscriber = nextWithWork(id);
        if (!subscriber) {
            if (m_stopping) break;
            m_wake.wait(m_mutex);
            continue;
        }
        const std::vector<ChangeEvent> batch = takeBatch(*subscriber);
        m_delivering = id;
        {
            Poco::ScopedUnlock<Poco::Mutex> unlock(m_mutex);
            deliver(*subscriber, batch);
        }
        m_delivering = 0;
        m_delivered.broadcast();
        trim();
    }
    m_deliveryThread = 0;
}

FeedCore::SubscriberPtr FeedCore::nextWithWork(std::uint64_t& id) {
    const auto hasWork = [this](const auto& entry) {
        return entry.second->resyncPending || entry.second->next <= m_revision;
    };
    auto found =
        std::find_if(m_subscribers.upper_bound(m_lastServed), m_subscribers.end(), hasWork);
    if (found == m_subscribers.end()) {
        found = std::find_if(m_subscribers.begin(), m_subscribers.end(), hasWork);
    }
    if (found == m_subscribers.end()) return nullptr;
    id = found->first;
    m_lastServed = id;
    return found->second;
}

std::vector<ChangeEvent> FeedCore::takeBatch(Subscriber& subscriber) {
    std::vector<ChangeEvent> batch;
    if (subscriber.resyncPending) {
        subscriber.resyncPending = false;
        batch.emplace_back(ChangeEvent::RESYNC, subscriber.next - 1, std::string(), Poco::UUID(),
                           nullptr, nullptr);
    }
    const Revision first = subscriber.next;
    const Revision last = std::min<Revision>(m_revision, first + BATCH_SIZE - 1);
    for (Revision revision = first; revision <= last; ++revision) {
        batch.push_back(m_history[revision - oldestKept()]);
    }
    subscriber.next = last + 1;
    return batch;
}

void FeedCore::deliver(Subscriber& subscriber, const std::vector<ChangeEvent>& batch) {
    const ChangeFeed::Filter& filter = subscriber.filter;
    for (const ChangeEvent& event : batch) {
        // A subscriber that unsubscribes itself during the batch receives no more of it.
        if (!subscriber.active) return;
        if (!passes(filter, event)) continue;
        try {
            if (filter.keys.empty()) {
                subscriber.callback(event);
            } else {
                subscriber.callback(event.restrictedTo(filter.keys));
            }
        } catch (const std::exception& error) {
            QES_LOG_ERROR("ChangeFeed: a subscriber threw at revision " << event.revision() << ": "
                                                                        << error.what());
        } catch (...) {
            QES_LOG_ERROR("ChangeFeed: a subscriber threw at revision " << event.revision());
        }
    }
}

void FeedCore::trim() {
    if (m_history.size() <= m_historySize) return;
    Revision needed = m_revision + 1;
    for (const auto& entry : m_subscribers) needed = std::min(needed, entry.second->next);
    while (m_history.size() > m_historySize && m_history.front().revision() < needed) {
        m_history.pop_front();
    }
}

}  // namespace Kivo::Client
