#include "Data/DataChangedDelivery.h"

#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <memory>
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

// Makes `writes` changes, each raising DataChanged once.
void writeTitles(TestElement& element, int writes) {
    for (int i = 0; i < writes; ++i) {
        ASSERT_TRUE(element.setProperty("title", std::to_string(i)).isSuccess());
    }
}

// Blocks a pool thread until opened.
class Blocker : public Poco::Runnable {
public:
    void run() override { m_open.wait(); }
    Poco::Event m_open{Poco::Event::EVENT_MANUALRESET};
};

TEST(DataChangedDelivery, ABusyPoolNeitherRefusesNorLosesARaise) {
    Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
    Blocker blocker;
    int started = 0;
    try {
        for (;; ++started) pool.start(blocker);
    } catch (const Poco::NoThreadAvailableException&) {
    }
    ASSERT_GT(started, 0);

    ElementTree tree;
    TestElement element(tree.resource);
    DataChangedRecorder recorder;
    recorder.subscribe(element);
    EXPECT_NO_THROW(writeTitles(element, 30));
    EXPECT_TRUE(recorder.waitFor(30)) << "delivered while every earlier pool thread is busy";
    recorder.unsubscribe(element);
    blocker.m_open.set();
    pool.joinAll();
}

// Holds up every delivery until the test lets it go, and asks drain() inside each.
class SlowSubscriber : public DataChangedRecorder {
public:
    void onDataChanged(const void* sender, Payload& payload) {
        if (DataChangedDelivery::drain()) drainedInside = true;
        m_arrived.set();
        m_go.wait();
        DataChangedRecorder::onDataChanged(sender, payload);
    }
    // Lets the deliveries go after a while, from another thread.
    std::thread goLater() {
        return std::thread([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            m_go.set();
        });
    }
    Poco::Event m_arrived;
    Poco::Event m_go{Poco::Event::EVENT_MANUALRESET};
    std::atomic<bool> drainedInside{false};
};

// The queued raises of a destroyed element are delivered all the same; an observer removed
// while they wait is never called (it is gone: ASan reports a call).
TEST(DataChangedDelivery, QueuedRaisesOutliveTheirElementButSkipARemovedObserver) {
    ElementTree tree;
    SlowSubscriber held;
    auto removed = std::make_unique<DataChangedRecorder>();
    Poco::UUID id;
    {
        TestElement element(tree.resource);
        id = element.getIdentification();
        element.DataChanged += Poco::delegate(&held, &SlowSubscriber::onDataChanged);
        removed->subscribe(element);
        writeTitles(element, 10);
        held.m_arrived.wait();
        removed->unsubscribe(element);
        removed.reset();
    }
    // Nine raises were still queued behind the held one, and the destructor added one for each
    // of the element's seven present properties.
    held.m_go.set();
    ASSERT_TRUE(held.waitFor(17)) << held.payloads().size();
    for (const auto& payload : held.payloads()) EXPECT_EQ(id, payload.getSourceElementId());
}

// A resource recording what it hears of its elements, in one log with a subscriber's calls;
// onElementDataChanged can be held up until the test lets it go.
class ListeningResource : public Kivo::Test::TestResource {
public:
    using TestResource::TestResource;
    using AbstractResource::registerElementEvents;
    using AbstractResource::unregisterElementEvents;

    void onElementDataChanged(Element::DataChangedEventPayload& payload) override {
        if (hold) {
            m_arrived.set();
            m_go.wait();
        }
        log.add("resource " + *payload.getSourcePropertyKeys().begin());
    }
    void onClient(const void*, Element::DataChangedEventPayload& payload) {
        log.add("client " + *payload.getSourcePropertyKeys().begin());
    }

    Kivo::Test::Collector<std::string> log;
    std::atomic<bool> hold{false};
    Poco::Event m_arrived;
    Poco::Event m_go{Poco::Event::EVENT_MANUALRESET};
};

// A resource hears its elements' raises before their subscribers, and only those raised
// while it observed them: raises still queued when it stops are skipped, also when it
// observes the element again before they are delivered. Stopping waits for a call running
// on another thread. Elements of another resource are refused.
TEST(DataChangedDelivery, AResourceHearsOnlyWhatItsElementsRaisedWhileObserved) {
    ElementTree tree;
    ListeningResource resource(tree.service, "Albums");
    TestElement element(resource);
    resource.registerElementEvents(element);
    element.DataChanged += Poco::delegate(&resource, &ListeningResource::onClient);
    ASSERT_TRUE(element.setProperty("title", "a").isSuccess());
    ASSERT_TRUE(DataChangedDelivery::drain());
    EXPECT_EQ((std::vector<std::string>{"resource title", "client title"}), resource.log.values());

    // Raises queue behind a held delivery while the resource stops and starts again.
    SlowSubscriber held;
    TestElement blocker(tree.resource);
    blocker.DataChanged += Poco::delegate(&held, &SlowSubscriber::onDataChanged);
    writeTitles(blocker, 1);
    held.m_arrived.wait();
    ASSERT_TRUE(element.setProperty("count", "1").isSuccess());
    resource.unregisterElementEvents(element);
    ASSERT_TRUE(element.setProperty("tags", "[\"x\"]").isSuccess());
    resource.registerElementEvents(element);
    ASSERT_TRUE(element.setProperty("title", "b").isSuccess());
    held.m_go.set();
    ASSERT_TRUE(DataChangedDelivery::drain());
    EXPECT_EQ((std::vector<std::string>{"resource title", "client title", "client count",
                                        "client tags", "resource title", "client title"}),
              resource.log.values());

    resource.hold = true;
    ASSERT_TRUE(element.setProperty("count", "2").isSuccess());
    resource.m_arrived.wait();
    auto stopped = std::async(std::launch::async,
                              [&] { resource.unregisterElementEvents(element); });
    EXPECT_EQ(std::future_status::timeout, stopped.wait_for(std::chrono::milliseconds(50)))
        << "returned while the resource was still being called";
    resource.m_go.set();
    stopped.get();
    ASSERT_LE(7u, resource.log.values().size());
    EXPECT_EQ("resource count", resource.log.values()[6]) << "the running call had ended";
    ASSERT_TRUE(DataChangedDelivery::drain());

    TestElement stranger(tree.resource);
    EXPECT_THROW(resource.registerElementEvents(stranger), Poco::InvalidArgumentException);
    element.DataChanged -= Poco::delegate(&resource, &ListeningResource::onClient);
    blocker.DataChanged -= Poco::delegate(&held, &SlowSubscriber::onDataChanged);
}

// drain() waits for every queued delivery, but never where the wait could not end: on the
// delivering thread, or under a tree lock a queued subscriber may need. The last service to go
// drains as well.
TEST(DataChangedDelivery, DrainWaitsForTheQueueWhereTheWaitCanEnd) {
    SlowSubscriber subscriber;
    std::thread release;
    {
        ElementTree tree;
        TestElement element(tree.resource);
        element.DataChanged += Poco::delegate(&subscriber, &SlowSubscriber::onDataChanged);
        writeTitles(element, 10);
        subscriber.m_arrived.wait();
        release = subscriber.goLater();
        {
            Util::ScopedRecursiveReadLock lock(*element.getLock());
            EXPECT_THROW(DataChangedDelivery::drain(), Poco::IllegalStateException);
        }
        EXPECT_TRUE(DataChangedDelivery::drain());
        EXPECT_EQ(10u, subscriber.payloads().size());
        release.join();

        subscriber.m_go.reset();
        writeTitles(element, 5);
        release = subscriber.goLater();
    }
    EXPECT_EQ(22u, subscriber.payloads().size()) << "5 writes and 7 properties destroyed";
    EXPECT_FALSE(subscriber.drainedInside);
    EXPECT_FALSE(DataChangedDelivery::isShutDown());
    release.join();
}


// Raises are taken out of the queue in batches; whether writers raise in one stream or in
// bursts with the pool task gone between them, each element's raises arrive once each, in the
// order made, with their keys, and drain() between bursts finds everything delivered.
TEST(DataChangedDelivery, BatchedRaisesArriveOnceInOrderPerElement) {
    struct Case {
        int writers;
        int bursts;
        int writesPerBurst;
        std::chrono::milliseconds pause;  // between bursts, longer than the drainer lingers
        bool drainBetween;
    };
    const Case cases[] = {{1, 1, 300, std::chrono::milliseconds(0), false},
                          {4, 1, 150, std::chrono::milliseconds(0), false},
                          {3, 4, 25, std::chrono::milliseconds(5), false},
                          {3, 4, 25, std::chrono::milliseconds(0), true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.writers * 1000 + c.bursts);
        ElementTree tree;
        std::vector<std::unique_ptr<TestElement>> elements;
        DataChangedRecorder recorder;
        for (int w = 0; w < c.writers; ++w) {
            elements.push_back(std::make_unique<TestElement>(tree.resource));
            recorder.subscribe(*elements.back());
        }
        const std::size_t total = static_cast<std::size_t>(c.writers) * c.bursts * c.writesPerBurst;
        for (int b = 0; b < c.bursts; ++b) {
            std::vector<std::thread> writers;
            for (int w = 0; w < c.writers; ++w) {
                writers.emplace_back([&, w, b] {
                    TestElement& element = *elements[w];
                    for (int i = b * c.writesPerBurst; i < (b + 1) * c.writesPerBurst; ++i) {
                        // Even writes change the title, odd ones the count: the keys alternate.
                        const bool title = i % 2 == 0;
                        EXPECT_TRUE(element
                                        .setProperty(title ? "title" : "count",
                                                     std::to_string(title ? i : i % 100))
                                        .isSuccess());
                    }
                });
            }
            for (std::thread& writer : writers) writer.join();
            if (c.drainBetween) {
                ASSERT_TRUE(DataChangedDelivery::drain());
                EXPECT_EQ(static_cast<std::size_t>(c.writers) * (b + 1) * c.writesPerBurst,
                          recorder.payloads().size());
            }
            std::this_thread::sleep_for(c.pause);
        }
        ASSERT_TRUE(recorder.waitFor(total)) << recorder.payloads().size();
        ASSERT_TRUE(DataChangedDelivery::drain());
        for (auto& element : elements) recorder.unsubscribe(*element);
        std::map<Poco::UUID, int> next;
        for (const auto& payload : recorder.payloads()) {
            int& n = next[payload.getSourceElementId()];
            const KeyCollection expected{n % 2 == 0 ? "title" : "count"};
            EXPECT_EQ(expected, payload.getSourcePropertyKeys()) << "delivery " << n;
            ++n;
        }
        EXPECT_EQ(static_cast<std::size_t>(c.writers), next.size());
        for (const auto& element : next) EXPECT_EQ(c.bursts * c.writesPerBurst, element.second);
        EXPECT_EQ(total, recorder.payloads().size()) << "no raise delivered twice";
    }
}

}  // namespace
}  // namespace Kivo::Data
