#ifndef QESSERVICEDATALIB_SRC_DATA_ELEMENTWATCH_H
#define QESSERVICEDATALIB_SRC_DATA_ELEMENTWATCH_H

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Data/Element.h"

namespace Kivo::Data {

class AbstractResource;

// A resource's observation of its elements' DataChanged and OptionalPropertySet events
// (AbstractResource::registerElementEvents) without a subscription per element: an observed
// element carries a flag, and the watch, which the resource and the DataChanged deliveries
// queued for it share, counts the deliveries in flight per element. A resource holds
// thousands of elements; two delegates each cost more than the element's own values.
//
// It keeps what a delegate promises: a raise reaches the resource when the element was
// observed as it was raised; once unobserve() returns, no call for that element follows and
// none runs on another thread. The resource comes before the event's subscribers.
//
// Deliveries of one element are made in the order of its raises, so those booked before an
// unobserve() are the oldest ones of their element when delivered: the watch counts them
// (skipped) apart from those booked since (delivered), even when a new element has taken
// the address of a destroyed one meanwhile.
//
// The mutex is held while flags and counts change, never while the resource is called, and
// nothing is locked under it.
class ElementWatch {
public:
    typedef IElementDataChangedSource::DataChangedEventPayload Payload;
    typedef IElementDataChangedSource::OptionalPropertySetEventPayload OptionalSetPayload;

    explicit ElementWatch(AbstractResource& resource) : m_resource(&resource) {}
    ElementWatch(const ElementWatch&) = delete;
    ElementWatch& operator=(const ElementWatch&) = delete;

    void observe(Element& element);
    // Waits for a call for `element` running on another thread.
    void unobserve(Element& element);

    // On a DataChanged raise: whether `element` is observed, booking a delivery if it is. A
    // booked delivery must reach deliver().
    bool book(const Element& element);
    // A booked DataChanged delivery: calls the resource unless `element` was unobserved since
    // the raise. `element` may be destroyed; it is not touched.
    void deliver(const Element* element, Payload& payload);
    // On an OptionalPropertySet raise: calls the resource now if `element` is observed.
    void notifyOptionalSet(const Element& element, OptionalSetPayload& payload);

private:
    // Marks a call of the resource for `element` as running on this thread for a scope.
    // REQUIRES: m_mutex when constructed, not when destroyed.
    class Running {
    public:
        Running(ElementWatch& watch, const Element* element);
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;
        ~Running();

    private:
        ElementWatch& m_watch;
        std::pair<const Element*, std::thread::id> m_entry;
    };

    // The deliveries in flight for one element, oldest first: `skipped` booked before the
    // last unobserve(), then `due` booked since.
    struct Booked {
        std::size_t skipped = 0;
        std::size_t due = 0;
    };

    AbstractResource* const m_resource;  // not owned; outlives every observed element's flag
    std::mutex m_mutex;
    std::condition_variable m_callEnded;
    std::unordered_map<const Element*, Booked> m_booked;                   // guarded by m_mutex
    std::vector<std::pair<const Element*, std::thread::id>> m_running;     // guarded by m_mutex
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_SRC_DATA_ELEMENTWATCH_H
