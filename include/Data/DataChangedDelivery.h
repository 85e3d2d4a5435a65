#ifndef QESSERVICEDATALIB_DATA_DATACHANGEDDELIVERY_H
#define QESSERVICEDATALIB_DATA_DATACHANGEDDELIVERY_H

namespace Kivo::Data {

/// The end of the asynchronous delivery of Element::DataChanged (IElementDataChangedSource).
///
/// Deliveries run on a thread of Poco's default thread pool, which lives until Poco's own static
/// objects are destroyed, after those of the program. A process ends delivery before main
/// returns, so that no subscriber runs on a pool thread while static objects (a tree or a
/// subscriber kept in one, Poco's logger and pool) are being destroyed:
///
///     int main() {
///         // ... build trees, subscribe, serve ...
///         Kivo::Data::DataChangedDelivery::shutdown();
///         return 0;
///     }
///
/// After shutdown(), each raise is delivered before the raising call returns, on the raising
/// thread, so a tree destroyed later (a static one at exit) runs no pool thread.
///
/// Without it, the destruction of the last Service alive drains the queue (drain()), unless the
/// destroying thread is a subscriber's or holds a tree lock; deliveries stay asynchronous, so
/// services may be created again afterwards. That is enough where every tree and subscriber is
/// gone before main returns; raises made after it (an element outliving every service) are
/// delivered on the pool again.
///
/// Neither call waits on a thread that is delivering: the rest of the queue waits for that
/// subscriber. Neither waits while the calling thread holds a tree lock (either side of any
/// RecursiveRWLock), which a queued subscriber may be waiting for. Do not call them while
/// holding anything else a subscriber waits for, such as a mutex of your own.
class DataChangedDelivery {
public:
    /// Only static members.
    DataChangedDelivery() = delete;

    /// Waits until every DataChanged raised before the call has been delivered, with whatever
    /// those deliveries raised in turn (while other threads keep raising, until the queue has
    /// once run empty), and returns true. Deliveries stay asynchronous.
    ///
    /// Called by a DataChanged subscriber, returns false at once (true after shutdown(), when
    /// nothing is queued). Throws Poco::IllegalStateException, waiting for nothing, when the
    /// calling thread holds a tree lock.
    static bool drain();

    /// Ends asynchronous delivery for the rest of the process: waits as drain() does, then
    /// switches to synchronous delivery and returns true. From then on every raise is delivered
    /// on the raising thread before the write (or the element's destruction) returns, with the
    /// element's lock held as the raiser holds it: a subscriber may read and write the tree on
    /// that thread, but must not wait for another thread that needs the lock. The order of an
    /// element's raises is kept across the switch. Cannot be undone; calling it again returns
    /// true.
    ///
    /// Called by a DataChanged subscriber, returns false at once; the switch follows as soon as
    /// the queue has run empty after that subscriber. Throws Poco::IllegalStateException,
    /// changing nothing, when the calling thread holds a tree lock.
    static bool shutdown();

    /// Whether shutdown() has taken effect: raises are delivered synchronously.
    static bool isShutDown();
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_DATACHANGEDDELIVERY_H
