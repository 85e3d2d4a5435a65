#ifndef QESSERVICEDATALIB_WEB_FEEDQUEUE_H
#define QESSERVICEDATALIB_WEB_FEEDQUEUE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <Poco/UUID.h>

#include "Client/ChangeEvent.h"

namespace Kivo::Web {

/// The events waiting for one WebSocket client: filled on the feed's thread, emptied on the
/// client's session thread, so a slow client never holds up the feed or the writers.
///
/// Bound. At most `limit` events wait. An event that would exceed the bound drops every
/// waiting event and queues one RESYNC at its revision instead: the client must re-read, and
/// the events after that revision follow. Nothing is lost silently.
///
/// Throttle. With a `minInterval` above zero, CHANGED events of one element go out at most
/// once per interval: those arriving sooner are merged into one pending event (later values
/// win, the latest revision is kept) sent when the interval has passed. An ADDED or REMOVED
/// event of the element first sends what is pending for it; a RESYNC drops everything
/// pending. Element events therefore leave in revision order per element.
///
/// push() takes the queue's mutex briefly and never blocks otherwise; everything else runs on
/// the session's thread only.
class FeedQueue {
public:
    /// A queue of at most `limit` (at least 1) events, throttled to `minInterval`.
    FeedQueue(std::size_t limit, std::chrono::milliseconds minInterval);
    FeedQueue(const FeedQueue&) = delete;
    FeedQueue& operator=(const FeedQueue&) = delete;

    /// Adds `event` (feed's thread).
    void push(const Client::ChangeEvent& event);
    /// Waits up to `timeout` for an event to be queued; true when one is waiting.
    bool waitReady(std::chrono::milliseconds timeout);
    /// The JSON texts due now (ChangeEvent::toJSON form), in sending order (session thread).
    std::vector<std::string> take(std::chrono::steady_clock::time_point now);
    /// How many RESYNCs the bound has caused so far.
    std::size_t overflows() const;

private:
    struct Pending {
        std::chrono::steady_clock::time_point lastSent;
        bool held = false;
        Client::ChangeEvent::Revision revision = 0;
        std::string resource;
        Poco::JSON::Object::Ptr values;
    };
    void release(const Poco::UUID& id, Pending& pending, std::vector<std::string>& out);
    void throttle(const Client::ChangeEvent& event, std::chrono::steady_clock::time_point now,
                  std::vector<std::string>& out);

    const std::size_t m_limit;
    const std::chrono::milliseconds m_minInterval;

    mutable std::mutex m_mutex;
    std::condition_variable m_ready;
    std::deque<Client::ChangeEvent> m_events;  // guarded by m_mutex
    std::size_t m_overflows = 0;               // guarded by m_mutex

    std::map<Poco::UUID, Pending> m_pending;  // session thread only
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_FEEDQUEUE_H
