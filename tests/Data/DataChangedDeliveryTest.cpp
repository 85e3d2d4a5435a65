#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Event.h>
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#include <gtest/gtest.h>

#include "Data/Element.h"
#include "Data/ElementFixture.h"

namespace Kivo::Data {
namespace {

using Kivo::Test::DataChangedRecorder;
using Kivo::Test::ElementTree;
using Kivo::Test::TestElement;

const char* const KEYS[] = {"count", "title", "tags"};

// Writes `count`, `title` and `tags` in turn, so the keys of the deliveries show their order.
void writeInTurn(TestElement& element, int writes) {
    for (int i = 0; i < writes; ++i) {
        const std::string n = std::to_string(i);
        switch (i % 3) {
            case 0:
                ASSERT_TRUE(element.setProperty("count", std::to_string(i % 2 + 1)).isSuccess());
                break;
            case 1:
                ASSERT_TRUE(element.setProperty("title", n).isSuccess());
                break;
            default:
                ASSERT_TRUE(element.setProperty("tags", "[\"" + n + "\"]").isSuccess());
        }
    }
}

TEST(DataChangedDelivery, BurstFromManyThreadsArrivesOnceAndInOrderPerElement) {
    constexpr int ELEMENTS = 4;
    constexpr int WRITES = 3000;
    ElementTree tree;
    std::vector<std::unique_ptr<TestElement>> elements;
    DataChangedRecorder recorder;
    for (int i = 0; i < ELEMENTS; ++i) {
        elements.emplace_back(new TestElement(tree.resource));
        recorder.subscribe(*elements.back());
    }
    std::vector<std::thread> writers;
    for (auto& element : elements) {
        writers.emplace_back([&element] { writeInTurn(*element, WRITES); });
    }
    for (std::thread& writer : writers) writer.join();

    ASSERT_TRUE(recorder.waitFor(ELEMENTS * WRITES)) << recorder.payloads().size();
    std::map<Poco::UUID, std::vector<std::string>> keysByElement;
    for (const auto& payload : recorder.payloads()) {
        ASSERT_EQ(1u, payload.getSourcePropertyKeys().size());
        keysByElement[payload.getSourceElementId()].push_back(
            *payload.getSourcePropertyKeys().begin());
    }
    ASSERT_EQ(static_cast<std::size_t>(ELEMENTS), keysByElement.size());
    for (const auto& entry : keysByElement) {
        ASSERT_EQ(static_cast<std::size_t>(WRITES), entry.second.size());
        for (int i = 0; i < WRITES; ++i) {
            ASSERT_EQ(KEYS[i % 3], entry.second[i]) << "delivery " << i << " out of order";
        }
    }
    for (auto& element : elements) recorder.unsubscribe(*element);
}

// Blocks a pool thread until released.
class Blocker : public Poco::Runnable {
public:
    void run() override {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_released.wait(lock, [this] { return m_open; });
    }
    void release() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_released.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_released;
    bool m_open = false;
};

TEST(DataChangedDelivery, ABusyPoolNeitherRefusesNorLosesARaise) {
    Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
    Blocker blocker;
    int started = 0;
    for (;;) {
        try {
            pool.start(blocker);
            ++started;
        } catch (const Poco::NoThreadAvailableException&) {
            break;
        }
    }
    ASSERT_GT(started, 0);

    ElementTree tree;
    TestElement element(tree.resource);
    DataChangedRecorder recorder;
    recorder.subscribe(element);
    EXPECT_NO_THROW(writeInTurn(element, 30));
    EXPECT_TRUE(recorder.waitFor(30)) << "delivered while every earlier pool thread is busy";
    recorder.unsubscribe(element);
    blocker.release();
    pool.joinAll();
}

// A subscriber that holds up the first delivery until the test lets it go.
class SlowSubscriber : public DataChangedRecorder {
public:
    void onDataChanged(const void* sender, Payload& payload) {
        m_firstArrived.set();
        m_go.wait();
        DataChangedRecorder::onDataChanged(sender, payload);
    }
    Poco::Event m_firstArrived;
    Poco::Event m_go{Poco::Event::EVENT_MANUALRESET};
};

TEST(DataChangedDelivery, DestroyingAnElementWithDeliveriesInFlight) {
    ElementTree tree;
    SlowSubscriber subscriber;
    Poco::UUID id;
    {
        TestElement element(tree.resource);
        id = element.getIdentification();
        element.DataChanged += Poco::delegate(&subscriber, &SlowSubscriber::onDataChanged);
        writeInTurn(element, 10);
        subscriber.m_firstArrived.wait();
        // Nine raises are still queued behind the held-up one, and the destructor adds one for
        // each of the element's seven present properties.
    }
    subscriber.m_go.set();
    ASSERT_TRUE(subscriber.waitFor(17)) << subscriber.payloads().size();
    for (const auto& payload : subscriber.payloads()) EXPECT_EQ(id, payload.getSourceElementId());
}

TEST(DataChangedDelivery, AnUnsubscribedObserverIsNotCalledAgain) {
    ElementTree tree;
    TestElement element(tree.resource);
    SlowSubscriber held;
    auto late = std::make_unique<DataChangedRecorder>();
    element.DataChanged += Poco::delegate(&held, &SlowSubscriber::onDataChanged);
    late->subscribe(element);
    writeInTurn(element, 5);
    held.m_firstArrived.wait();
    // The four queued deliveries must skip the removed observer, which is gone now.
    late->unsubscribe(element);
    late.reset();
    held.m_go.set();
    ASSERT_TRUE(held.waitFor(5));
    element.DataChanged -= Poco::delegate(&held, &SlowSubscriber::onDataChanged);
}

}  // namespace
}  // namespace Kivo::Data
