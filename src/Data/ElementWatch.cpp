#include "ElementWatch.h"

#include <algorithm>

#include "Data/AbstractResource.h"

namespace Kivo::Data {

ElementWatch::Running::Running(ElementWatch& watch, const Element* element)
    : m_watch(watch), m_entry(element, std::this_thread::get_id()) {
    m_watch.m_running.push_back(m_entry);
}

ElementWatch::Running::~Running() {
    std::lock_guard<std::mutex> lock(m_watch.m_mutex);
    auto& running = m_watch.m_running;
    running.erase(std::find(running.begin(), running.end(), m_entry));
    m_watch.m_callEnded.notify_all();
}

void ElementWatch::observe(Element& element) {
    std::lock_guard<std::mutex> lock(m_mutex);
    element.m_observed.store(true, std::memory_order_relaxed);
}

void ElementWatch::unobserve(Element& element) {
    std::unique_lock<std::mutex> lock(m_mutex);
    element.m_observed.store(false, std::memory_order_relaxed);
    const auto booked = m_booked.find(&element);
    if (booked != m_booked.end()) {
        booked->second.skipped += booked->second.due;
        booked->second.due = 0;
    }
    // A call on this very thread is the caller's own: the resource unobserving from inside it.
    const std::thread::id self = std::this_thread::get_id();
    m_callEnded.wait(lock, [&] {
        return std::none_of(m_running.begin(), m_running.end(), [&](const auto& entry) {
            return entry.first == &element && entry.second != self;
        });
    });
}

bool ElementWatch::book(const Element& element) {
    // Unobserved elements skip the mutex. A raise racing observe() may go either way, as one
    // racing a subscription does; one racing unobserve() is decided under the mutex.
    if (!element.m_observed.load(std::memory_order_relaxed)) return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!element.m_observed.load(std::memory_order_relaxed)) return false;
    ++m_booked[&element].due;
    return true;
}

void ElementWatch::deliver(const Element* element, Payload& payload) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto booked = m_booked.find(element);
    const bool due = booked->second.skipped == 0;
    --(due ? booked->second.due : booked->second.skipped);
    if (booked->second.skipped == 0 && booked->second.due == 0) m_booked.erase(booked);
    if (!due) return;
    // Entered under the mutex that unobserve() checks under: either it sees this call, or the
    // call sees the element unobserved.
    Running running(*this, element);
    lock.unlock();
    m_resource->onDataChanged(payload);
}

void ElementWatch::notifyOptionalSet(const Element& element, OptionalSetPayload& payload) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!element.m_observed.load(std::memory_order_relaxed)) return;
    Running running(*this, &element);
    lock.unlock();
    m_resource->onOptionalPropertyChanged(payload);
}

}  // namespace Kivo::Data
