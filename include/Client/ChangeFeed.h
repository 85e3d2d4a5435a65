#ifndef QESSERVICEDATALIB_CLIENT_CHANGEFEED_H
#define QESSERVICEDATALIB_CLIENT_CHANGEFEED_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <set>
#include <string>

#include <Poco/JSON/Object.h>
#include <Poco/Thread.h>
#include <Poco/UUID.h>

#include "Client/ChangeEvent.h"
#include "Data/ElementObserver.h"

namespace Kivo::Data {
class Service;
}  // namespace Kivo::Data

namespace Kivo::Client {

class FeedCore;

/// The ordered feed of one service's element events: every element added to, changed in or
/// removed from one of the service's containers, by whoever makes the change (ElementWriter, the
/// containers' operations, the service's own code), as ChangeEvents numbered 1, 2, 3, ... in
/// the order the writers made them.
///
/// Recording. The feed is the service's element observer (Data::IElementObserver): each event
/// is numbered and recorded on the writing thread under the tree's write lock, so an element's
/// change made before its removal always has the smaller revision. A change is one DataChanged
/// raise (one property write, one update, one changeAsOne); while an element's DataChanged is
/// disabled it raises nothing and the feed records nothing for it.
///
/// Delivery. Events go to the subscribers on the feed's own thread, in revision order, each
/// event once to each subscriber whose filter it passes, never while the writer holds the
/// tree's lock and never while the feed holds its own mutex: a subscriber may read and write
/// the tree (its own writes become later events). Subscribers are served one at a time, so a
/// slow one delays the others. Nothing recorded is lost: events a subscriber has not been given
/// yet stay in the history, however far delivery lags; an exception a subscriber throws is
/// logged and swallowed.
///
/// History and resuming. The feed keeps at least the last `historySize` events (more while
/// delivery lags). A subscriber passes `since`, the last revision it has seen, and receives
/// the events after it. When those are no longer all kept, or `since` lies beyond the feed's
/// current revision (a revision of another feed, before a restart), it receives one RESYNC
/// event carrying the current revision R instead, and then the events after R: it must re-read
/// everything. Reading each element with its revision (toJSONWithRevision) lets it skip events
/// that are not newer than what it read.
///
/// Filters. An event passes when its resource is in `resources` (or `resources` is empty) and,
/// for CHANGED events, when it names a key of `keys` (or `keys` is empty); a CHANGED event that
/// passes a key filter carries only the filtered keys it names. ADDED and REMOVED pass every key
/// filter, RESYNC every filter.
///
/// Revisions of elements. The feed remembers the revision of each element's last event, and
/// forgets it when the element is removed. An element unchanged since the feed began (or one the
/// feed never saw) is at revision 0. ElementWriter's conditional update compares against it.
/// Element ids are taken to be unique within the service.
///
/// Lifetime and locks. One feed per service: it installs itself as the service's element
/// observer when constructed and uninstalls itself when destroyed, so it must go before the
/// service (and the service's resources may go before or after it). The destructor delivers
/// every event recorded before it, then ends the delivery thread: destroy the feed holding no
/// tree lock, and never from inside a subscriber. Subscriptions may outlive the feed. Lock
/// order: tree lock, then the feed's mutex; the feed takes no tree lock while holding its mutex.
class ChangeFeed : private Data::IElementObserver {
public:
    /// A position in the feed (see ChangeEvent::Revision).
    typedef ChangeEvent::Revision Revision;
    /// Called on the feed's thread for every event that passes the subscriber's filter.
    typedef std::function<void(const ChangeEvent&)> Callback;

    /// The history the default feed keeps.
    static constexpr std::size_t DEFAULT_HISTORY_SIZE = 4096;
    /// As `since`: only events recorded after the subscription.
    static constexpr Revision FROM_NOW = std::numeric_limits<Revision>::max();

    /// Which events a subscriber receives; empty sets let everything through.
    struct Filter {
        /// Resource names, compared exactly.
        std::set<std::string> resources;
        /// Property keys of CHANGED events.
        std::set<std::string> keys;
    };

    /// A subscriber's place in the feed: destroying or resetting it unsubscribes, waiting for a
    /// delivery to that subscriber that is running on the feed's thread (unless it is called on
    /// that thread, from a subscriber). Once that has returned the callback is never called
    /// again. End it holding no lock that the subscriber takes, the tree's lock included.
    /// Movable, not copyable; may outlive the feed.
    class Subscription {
    public:
        /// Subscribed to nothing.
        Subscription() = default;
        /// Takes over `other`'s subscription, leaving `other` subscribed to nothing.
        Subscription(Subscription&& other) noexcept;
        /// Ends this handle's subscription (as reset()), then takes over `other`'s.
        Subscription& operator=(Subscription&& other) noexcept;
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;
        ~Subscription();

        /// Unsubscribes now; does nothing when subscribed to nothing.
        void reset();
        /// Whether the handle still holds a subscription.
        bool isSubscribed() const { return m_core != nullptr; }

    private:
        friend class ChangeFeed;
        Subscription(std::shared_ptr<FeedCore> core, std::uint64_t id);

        std::shared_ptr<FeedCore> m_core;
        std::uint64_t m_id = 0;
    };

    /// Starts recording `service`'s element events, keeping at least the last `historySize`.
    /// Throws Poco::ExistsException when the service has an element observer already.
    explicit ChangeFeed(Data::Service& service, std::size_t historySize = DEFAULT_HISTORY_SIZE);
    ChangeFeed(const ChangeFeed&) = delete;
    ChangeFeed& operator=(const ChangeFeed&) = delete;
    /// Stops recording, delivers what was recorded, ends the delivery thread (see the class
    /// comment for where it may be called).
    ~ChangeFeed() override;

    /// Subscribes `callback` to the events after revision `since` that pass `filter` (see the
    /// class comment for RESYNC). Any thread, holding any lock: delivery starts on the feed's
    /// thread.
    [[nodiscard]] Subscription subscribe(Callback callback, Filter filter = Filter(),
                                         Revision since = FROM_NOW);

    /// The revision of the last event recorded; 0 before the first.
    Revision currentRevision() const;
    /// The revision of the last event of the element `id`; 0 when the feed has recorded none
    /// since the element was last added, or the element is not held.
    Revision revisionOf(const Poco::UUID& id) const;
    /// The element's JSON at `depth` (Element::toJSON) with a "revision" member, its
    /// revisionOf, read together under the tree's read lock.
    Poco::JSON::Object::Ptr toJSONWithRevision(const Data::Element& element, int depth) const;

private:
    void elementAdded(const Data::AbstractResource& resource,
                      const Data::Element& element) override;
    void elementChanged(const Data::Element& element, const Data::KeyCollection& keys) override;
    void elementRemoved(const Data::AbstractResource& resource,
                        const Data::Element& element) override;

    Data::Service& m_service;
    std::shared_ptr<FeedCore> m_core;
    Poco::Thread m_thread;
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_CHANGEFEED_H
