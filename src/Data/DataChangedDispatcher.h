#ifndef QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H
#define QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include <Poco/Runnable.h>

#include "Data/Element.h"
#include "ElementWatch.h"

namespace Kivo::Data {

// Delivers DataChanged raises on Poco's default thread pool, one at a time, in the order they
// were posted. A pool task drains the queue a batch at a time; after a batch it lingers for
// LINGER, so that a writer raising steadily only appends to the queue: no thread is woken and
// nothing is started per raise. The pool task ends once a linger has brought nothing, or at
// once when drain() or shutdown() waits. When the pool has no idle thread, the pool is grown by
// one rather than refusing the raise. After shutdown() every raise is delivered at once on the
// raising thread. Thread-safe; lives for the whole process. The semantics of drain() and
// shutdown() are those of DataChangedDelivery.
class DataChangedDispatcher : public Poco::Runnable {
public:
    typedef IElementDataChangedSource::DataChangedEventPayload Payload;
    typedef IElementDataChangedSource::DataChangedEvent::Delegates Delegates;

    static DataChangedDispatcher& instance();

    // Queues one delivery of `element`'s raise to `watch`'s resource, when a watch is given
    // (it booked the raise), then to `delegates` (the event's subscribers when it was raised;
    // those removed since are disabled and skipped), or makes it at once after shutdown();
    // never throws for a busy pool. The delivery keeps `delegates` as they are moved in.
    void post(Delegates delegates, std::shared_ptr<ElementWatch> watch, const Element* element,
              const Payload& payload);

    bool drain();
    bool shutdown();
    bool isSynchronous();

    // Drains the queue (on a pool thread, or on a thread in drain() when none does).
    void run() override;

    // How long the pool task waits for more raises after a batch. It bounds the delay from a
    // raise to its delivery that batching adds.
    static constexpr std::chrono::microseconds LINGER{200};

private:
    struct Delivery {
        Delegates delegates;
        std::shared_ptr<ElementWatch> watch;  // null when no resource observes the element
        const Element* element;  // may dangle by delivery time; only handed on as an address
        Payload payload;
    };

    DataChangedDispatcher() = default;
    void startDrainer();
    // Waits until the queue is empty and nobody drains it, draining it on this thread when no
    // pool task does. REQUIRES: `lock` holds m_mutex; not called on a delivering thread.
    void waitUntilIdle(std::unique_lock<std::mutex>& lock);
    static void deliver(Delivery& delivery);

    std::mutex m_mutex;
    std::condition_variable m_idle;    // notified when the drainer finds the queue empty
    std::condition_variable m_hurry;   // cuts the drainer's linger short for a waiter
    // Guarded by m_mutex. Held by pointer: growing the queue moves no delegate list, whose
    // type can only be copied.
    std::vector<std::unique_ptr<Delivery>> m_queue;
    int m_waiters = 0;                 // guarded by m_mutex: threads in waitUntilIdle
    bool m_draining = false;           // guarded by m_mutex: a thread owns the queue
    bool m_shutdownAsked = false;      // guarded by m_mutex: go synchronous once the queue is empty
    bool m_synchronous = false;        // guarded by m_mutex
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H
