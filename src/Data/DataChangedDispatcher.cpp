#include "DataChangedDispatcher.h"

#include <exception>

#include <Poco/Exception.h>
#include <Poco/ThreadPool.h>

#include "Logging/Log.h"
#include "Util/RecursiveRWLock.h"

namespace Kivo::Data {

namespace {

// Whether the calling thread is delivering DataChanged: it must not wait for the queue it is
// draining. Trivially destructible, so it stays usable while static objects are destroyed.
thread_local bool t_delivering = false;

// Marks the calling thread as delivering for a scope.
class DeliveringScope {
public:
    DeliveringScope() : m_outer(t_delivering) { t_delivering = true; }
    DeliveringScope(const DeliveringScope&) = delete;
    DeliveringScope& operator=(const DeliveringScope&) = delete;
    ~DeliveringScope() { t_delivering = m_outer; }

private:
    bool m_outer;
};

// A queued subscriber may be waiting for a tree lock the caller holds: waiting for it would
// never end.
void refuseWaitUnderTreeLock() {
    if (Util::RecursiveRWLock::isAnyHeldByCallingThread()) {
        throw Poco::IllegalStateException(
            "DataChanged delivery cannot be waited for while holding a tree lock");
    }
}

}  // namespace

DataChangedDispatcher& DataChangedDispatcher::instance() {
    // Never destroyed: a process that does not shut delivery down may still have pool threads
    // delivering while it exits.
    static DataChangedDispatcher* dispatcher = new DataChangedDispatcher;
    return *dispatcher;
}

void DataChangedDispatcher::post(Delegates delegates, std::shared_ptr<ElementWatch> watch,
                                 const Element* element, const Payload& payload) {
    std::unique_ptr<Delivery> delivery(
        new Delivery{std::move(delegates), std::move(watch), element, payload});
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_synchronous) {
        lock.unlock();
        DeliveringScope delivering;
        deliver(*delivery);
        return;
    }
    m_queue.push_back(std::move(delivery));
    if (!m_draining) startDrainer();
}

void DataChangedDispatcher::startDrainer() {
    Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
    try {
        try {
            pool.start(*this);
        } catch (const Poco::NoThreadAvailableException&) {
            // Every pool thread is busy: one more thread keeps the raise from being refused.
            pool.addCapacity(1);
            pool.start(*this);
        }
        m_draining = true;
    } catch (const std::exception& error) {
        // The queue keeps the raise; the next post tries to start a drainer again, and drain()
        // delivers it itself.
        QES_LOG_CRITICAL("DataChanged delivery could not start a pool thread: " << error.what());
    }
}

bool DataChangedDispatcher::drain() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_synchronous) return true;  // nothing is queued any more
    if (t_delivering) return false;
    refuseWaitUnderTreeLock();
    waitUntilIdle(lock);
    return true;
}

bool DataChangedDispatcher::shutdown() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_synchronous) return true;
    if (t_delivering) {
        // The drainer switches once it has emptied the queue, after this subscriber returns.
        m_shutdownAsked = true;
        return false;
    }
    refuseWaitUnderTreeLock();
    m_shutdownAsked = true;
    waitUntilIdle(lock);
    return true;
}

bool DataChangedDispatcher::isSynchronous() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_synchronous;
}

void DataChangedDispatcher::waitUntilIdle(std::unique_lock<std::mutex>& lock) {
    // A waiter keeps the drainer from lingering, this thread's own run() below included.
    ++m_waiters;
    m_hurry.notify_all();
    if (!m_draining && !m_queue.empty()) {
        // No pool task drains the queue (starting one failed): drain it here.
        m_draining = true;
        lock.unlock();
        run();
        lock.lock();
    }
    m_idle.wait(lock, [this] { return !m_draining && m_queue.empty(); });
    --m_waiters;
    if (m_shutdownAsked) m_synchronous = true;
}

void DataChangedDispatcher::run() {
    DeliveringScope delivering;
    std::vector<std::unique_ptr<Delivery>> batch;
    bool lingered = false;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_queue.empty()) {
            if (!lingered && m_waiters == 0 && !m_shutdownAsked) {
                lingered = true;
                m_hurry.wait_for(lock, LINGER,
                                 [this] { return m_waiters > 0 || m_shutdownAsked; });
                continue;
            }
            m_draining = false;
            if (m_shutdownAsked) m_synchronous = true;
            m_idle.notify_all();
            return;
        }
        lingered = false;
        // The emptied batch goes back as the queue: both keep their capacity.
        batch.swap(m_queue);
        lock.unlock();
        for (const std::unique_ptr<Delivery>& delivery : batch) deliver(*delivery);
        batch.clear();
        lock.lock();
    }
}

void DataChangedDispatcher::deliver(Delivery& delivery) {
    try {
        if (delivery.watch) delivery.watch->deliver(delivery.element, delivery.payload);
        delivery.delegates.notify(delivery.element, delivery.payload);
    } catch (const std::exception& error) {
        QES_LOG_ERROR("DataChanged subscriber failed: " << error.what());
    } catch (...) {
        QES_LOG_ERROR("DataChanged subscriber failed with an unknown exception");
    }
}

}  // namespace Kivo::Data
