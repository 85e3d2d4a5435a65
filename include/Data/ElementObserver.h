#ifndef QESSERVICEDATALIB_DATA_ELEMENTOBSERVER_H
#define QESSERVICEDATALIB_DATA_ELEMENTOBSERVER_H

#include "Data/Element.h"

namespace Kivo::Data {

class AbstractResource;

/// Sees every change of the elements that a service's containers hold, as it happens: whoever
/// makes it (a client through the container's operations, the service's own code through the
/// core calls), in the order the writers make them.
///
/// A service holds at most one observer (Service::setElementObserver). Each call runs on the
/// writing thread with the tree's write lock held, synchronously, so it must be quick, must not
/// wait for another thread that needs the tree's lock, and must not throw.
///
/// - elementAdded: after the element has joined its container (its values are those it was
///   added with).
/// - elementChanged: once per DataChanged raise of a held element, with the raise's keys: one
///   call per property write, per updateByJSON, per changeAsOne. It runs where the raise is
///   made, before the asynchronous delivery is queued, and also when the element has no
///   DataChanged subscribers. While an element's DataChanged is disabled it raises nothing, so
///   the observer sees nothing either (updateByJSON disables it around its writes and raises
///   once afterwards, which the observer sees).
/// - elementRemoved: as the element leaves its container (removeElement, clear, the
///   container's destruction), before it stops being held; the changes its destruction raises
///   afterwards are not reported.
class IElementObserver {
public:
    virtual ~IElementObserver() = default;

    /// `element` has joined `resource`.
    virtual void elementAdded(const AbstractResource& resource, const Element& element) = 0;
    /// The properties `keys` of the held `element` have changed (or gone).
    virtual void elementChanged(const Element& element, const KeyCollection& keys) = 0;
    /// `element` is leaving `resource`.
    virtual void elementRemoved(const AbstractResource& resource, const Element& element) = 0;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_ELEMENTOBSERVER_H
