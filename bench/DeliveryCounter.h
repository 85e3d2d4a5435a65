#ifndef QESSERVICEDATALIB_BENCH_DELIVERYCOUNTER_H
#define QESSERVICEDATALIB_BENCH_DELIVERYCOUNTER_H

#include <condition_variable>
#include <mutex>

#include "Client/ChangeEvent.h"
#include "Data/Element.h"

namespace Kivo::Bench {

// A DataChanged (or change feed) subscriber that counts deliveries and lets a caller wait for a given count,
// so a benchmark can include delivery in what it times or wait for it before the next round.
class DeliveryCounter {
public:
    void onDataChanged(const void*, Data::IElementDataChangedSource::DataChangedEventPayload&) {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
        m_arrived.notify_all();
    }
    void onChangeEvent(const Client::ChangeEvent&) {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
        m_arrived.notify_all();
    }
    void waitFor(long count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrived.wait(lock, [&] { return m_count >= count; });
    }
    long count() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_count;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    long m_count = 0;  // guarded by m_mutex
};

}  // namespace Kivo::Bench

#endif  // QESSERVICEDATALIB_BENCH_DELIVERYCOUNTER_H
