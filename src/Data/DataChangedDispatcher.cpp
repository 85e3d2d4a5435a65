#include "DataChangedDispatcher.h"

#include <exception>

#include <Poco/Exception.h>
#include <Poco/ThreadPool.h>

#include "Logging/Log.h"

namespace Kivo::Data {

DataChangedDispatcher& DataChangedDispatcher::instance() {
    // Never destroyed: pool threads may still drain the queue while the process exits.
    static DataChangedDispatcher* dispatcher = new DataChangedDispatcher;
    return *dispatcher;
}

void DataChangedDispatcher::post(Delegates delegates, const void* sender,
                                 const Payload& payload) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.push_back(Delivery{std::move(delegates), sender, payload});
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
        // The queue keeps the raise; the next post tries to start a drainer again.
        QES_LOG_CRITICAL("DataChanged delivery could not start a pool thread: " << error.what());
    }
}

void DataChangedDispatcher::run() {
    for (;;) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_queue.empty()) {
            m_draining = false;
            return;
        }
        Delivery delivery = std::move(m_queue.front());
        m_queue.pop_front();
        lock.unlock();
        deliver(delivery);
    }
}

void DataChangedDispatcher::deliver(Delivery& delivery) {
    try {
        delivery.delegates.notify(delivery.sender, delivery.payload);
    } catch (const std::exception& error) {
        QES_LOG_ERROR("DataChanged subscriber failed: " << error.what());
    } catch (...) {
        QES_LOG_ERROR("DataChanged subscriber failed with an unknown exception");
    }
}

}  // namespace Kivo::Data
