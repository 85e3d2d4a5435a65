#ifndef QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H
#define QESSERVICEDATALIB_SRC_DATA_DATACHANGEDDISPATCHER_H

#include <deque>
#include <mutex>

#include <Poco/Runnable.h>

#include "Data/Element.h"

namespace Kivo::Data {

// Delivers DataChanged raises on Poco's default thread pool, one at a time, in the order they
// were posted. A pool task drains the queue; when the pool has no idle thread, the pool is
// grown by one rather than refusing the raise. Thread-safe; lives for the whole process.
class DataChangedDispatcher : public Poco::Runnable {
public:
    typedef IElementDataChangedSource::DataChangedEventPayload Payload;
    typedef IElementDataChangedSource::DataChangedEvent::Delegates Delegates;

    static DataChangedDispatcher& instance();

    // Queues one delivery to `delegates` (the event's subscribers when it was raised; those
    // removed since are disabled and skipped); never throws for a busy pool.
    void post(Delegates delegates, const void* sender, const Payload& payload);

    // Drains the queue (runs on a pool thread).
    void run() override;

private:
    struct Delivery {
        Delegates delegates;
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
