#ifndef QESSERVICEDATALIB_SRC_CLIENT_FEEDCORE_H
#define QESSERVICEDATALIB_SRC_CLIENT_FEEDCORE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include <Poco/Condition.h>
#include <Poco/Mutex.h>
#include <Poco/Runnable.h>
#include <Poco/Thread.h>
#include <Poco/UUID.h>

#include "Client/ChangeEvent.h"
#include "Client/ChangeFeed.h"

namespace Kivo::Client {

/// What a ChangeFeed shares with its subscriptions: the history, the element revisions, the
/// subscribers and their positions, and the delivery loop that the feed's thread runs. Every
/// member is guarded by one mutex, which is never held while a subscriber runs. Subscriptions
/// keep the core alive, so they may end after the feed.
class FeedCore : public Poco::Runnable {
public:
    typedef ChangeEvent::Revision Revision;

    /// A core that keeps at least `historySize` events.
    explicit FeedCore(std::size_t historySize) : m_historySize(historySize) {}

    /// Keeps an event at the next revision and wakes the delivery loop. Called under the
    /// tree's write lock, which orders the events.
    void record(ChangeEvent::Kind kind, std::string resource, const Poco::UUID& id,
                Poco::JSON::Object::Ptr values, Poco::JSON::Object::Ptr element);

    Revision currentRevision() const;
    Revision revisionOf(const Poco::UUID& id) const;

    /// A new subscriber's id; see ChangeFeed::subscribe.
    std::uint64_t subscribe(ChangeFeed::Callback callback, ChangeFeed::Filter filter,
                            Revision since);
    /// Removes the subscriber, waiting for a running delivery to it unless called on the
    /// delivering thread.
    void unsubscribe(std::uint64_t id);

    /// The delivery loop: serves the subscribers until stop() and then until everything
    /// recorded has been delivered.
    void run() override;
    /// Lets run() return once nothing is left to deliver.
    void stop();

private:
    struct Subscriber {
        ChangeFeed::Callback callback;
        ChangeFeed::Filter filter;
        Revision next = 1;           // the first revision not yet handed to it
        bool resyncPending = false;  // a RESYNC at `next - 1` goes first
        std::atomic<bool> active{true};
    };
    typedef std::shared_ptr<Subscriber> SubscriberPtr;

    // The subscriber after the last one served that has something to receive, or null.
    SubscriberPtr nextWithWork(std::uint64_t& id);
    // Takes up to a batch of what `subscriber` is due, advancing its position.
    std::vector<ChangeEvent> takeBatch(Subscriber& subscriber);
    // Calls the subscriber for each event of `batch` that passes its filter, while it is
    // subscribed. Runs without the mutex.
    static void deliver(Subscriber& subscriber, const std::vector<ChangeEvent>& batch);
    // Drops the oldest events beyond the history size that every subscriber has been given.
    void trim();
    Revision oldestKept() const { return m_revision + 1 - m_history.size(); }

    const std::size_t m_historySize;
    mutable Poco::Mutex m_mutex;
    Poco::Condition m_wake;       // something to deliver, or stop()
    Poco::Condition m_delivered;  // a delivery has ended
    Revision m_revision = 0;
    std::deque<ChangeEvent> m_history;  // revisions oldestKept() to m_revision
    std::map<Poco::UUID, Revision> m_elementRevisions;
    std::map<std::uint64_t, SubscriberPtr> m_subscribers;
    std::uint64_t m_nextId = 1;
    std::uint64_t m_lastServed = 0;
    std::uint64_t m_delivering = 0;  // the subscriber being called, 0 for none
    Poco::Thread::TID m_deliveryThread = 0;
    bool m_stopping = false;
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_SRC_CLIENT_FEEDCORE_H
