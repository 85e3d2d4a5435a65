#ifndef QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H
#define QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H

#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include <Poco/Runnable.h>

#include "Data/Element.h"

namespace Kivo::Data {

// The DataChanged event of one element, as queued deliveries see it. The element detaches it
// when it is destroyed; a delivery that starts later finds no event and delivers to the
// delegates copied at detach time.
class DataChangedTarget {
public:
    typedef IElementDataChangedSource::DataChangedEvent::Delegates Delegates;

    explicit DataChangedTarget(IElementDataChangedSource::DataChangedEvent& event)
        : m_event(&event) {}
    DataChangedTarget(const DataChangedTarget&) = delete;
    DataChangedTarget& operator=(const DataChangedTarget&) = delete;

    // After this returns, no delivery touches the event.
    void detach();
    // The event's delegates now, or those it had when it was detached.
    Delegates delegates();

private:
    std::mutex m_mutex;
    IElementDataChangedSource::DataChangedEvent* m_event;  // guarded by m_mutex; not owned
    std::optional<Delegates> m_lastDelegates;              // guarded by m_mutex
};

// Delivers DataChanged raises on Poco's default thread pool, one at a time, in the order they
// were posted. A pool task drains the queue; when the pool has no idle thread, the pool is
// grown by one rather than refusing the raise. Thread-safe; lives for the whole process.
class DataChangedDispatcher : public Poco::Runnable {
public:
    typedef IElementDataChangedSource::DataChangedEventPayload Payload;

    static DataChangedDispatcher& instance();

    // Queues one delivery; never throws for a busy pool.
    void post(const std::shared_ptr<DataChangedTarget>& target, const void* sender,
              const Payload& payload);

    // Drains the queue (runs on a pool thread).
    void run() override;

private:
    struct Delivery {
        std::shared_ptr<DataChangedTarget> target;
        const void* sender;  // may dangle by delivery time; only handed to subscribers
        Payload payload;
    };

    DataChangedDispatcher() = default;
    void startDrainer();
    static void deliver(Delivery& delivery);

    std::mutex m_mutex;
    std::deque<Delivery> m_queue;  // guarded by m_mutex
    bool m_draining = false;       // guarded by m_mutex: a pool task owns the queue
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H
