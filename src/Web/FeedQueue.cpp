#include "Web/FeedQueue.h"

#include <utility>

#include "Web/JsonReply.h"

namespace Kivo::Web {

using Client::ChangeEvent;

FeedQueue::FeedQueue(std::size_t limit, std::chrono::milliseconds minInterval)
    : m_limit(limit == 0 ? 1 : limit), m_minInterval(minInterval) {}

void FeedQueue::push(const ChangeEvent& event) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_events.size() >= m_limit) {
            m_events.clear();
            ++m_overflows;
            m_events.emplace_back(ChangeEvent::RESYNC, event.revision(), std::string(),
                                  Poco::UUID(), nullptr, nullptr);
        } else {
            m_events.push_back(event);
        }
    }
    m_ready.notify_one();
}

bool FeedQueue::waitReady(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_ready.wait_for(lock, timeout, [this] { return !m_events.empty(); });
}

std::size_t FeedQueue::overflows() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_overflows;
}

std::vector<std::string> FeedQueue::take(std::chrono::steady_clock::time_point now) {
    std::deque<ChangeEvent> events;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        events.swap(m_events);
    }
    std::vector<std::string> out;
    for (const ChangeEvent& event : events) {
        if (event.kind() == ChangeEvent::RESYNC) {
            m_pending.clear();
            out.push_back(JsonReply::stringify(event.toJSON()));
        } else if (m_minInterval.count() > 0) {
            throttle(event, now, out);
        } else {
            out.push_back(JsonReply::stringify(event.toJSON()));
        }
    }
    for (auto entry = m_pending.begin(); entry != m_pending.end();) {
        if (entry->second.held && now - entry->second.lastSent >= m_minInterval) {
            release(entry->first, entry->second, out);
            entry->second.lastSent = now;
        }
        // An element quiet for a whole interval needs no entry any more.
        if (!entry->second.held && now - entry->second.lastSent >= m_minInterval) {
            entry = m_pending.erase(entry);
        } else {
            ++entry;
        }
    }
    return out;
}

void FeedQueue::throttle(const ChangeEvent& event, std::chrono::steady_clock::time_point now,
                         std::vector<std::string>& out) {
    auto entry = m_pending.find(event.id());
    if (event.kind() != ChangeEvent::CHANGED) {
        if (entry != m_pending.end()) {
            release(entry->first, entry->second, out);
            m_pending.erase(entry);
        }
        out.push_back(JsonReply::stringify(event.toJSON()));
        return;
    }
    if (entry == m_pending.end() || now - entry->second.lastSent >= m_minInterval) {
        if (entry != m_pending.end()) release(entry->first, entry->second, out);
        out.push_back(JsonReply::stringify(event.toJSON()));
        m_pending[event.id()] = Pending{now, false, 0, std::string(), nullptr};
        return;
    }
    Pending& pending = entry->second;
    if (!pending.held) {
        pending.held = true;
        pending.resource = event.resource();
        pending.values = new Poco::JSON::Object;
    }
    pending.revision = event.revision();
    // The event's objects are shared with other subscribers: copy its values over.
    if (!event.values().isNull()) {
        for (const auto& member : *event.values()) pending.values->set(member.first, member.second);
    }
}

void FeedQueue::release(const Poco::UUID& id, Pending& pending, std::vector<std::string>& out) {
    if (!pending.held) return;
    const ChangeEvent merged(ChangeEvent::CHANGED, pending.revision, pending.resource, id,
                             pending.values, nullptr);
    out.push_back(JsonReply::stringify(merged.toJSON()));
    pending.held = false;
    pending.values = nullptr;
}

}  // namespace Kivo::Web
