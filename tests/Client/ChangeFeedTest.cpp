#include "Client/ChangeFeed.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Client/ElementWriter.h"
#include "Data/ElementFixture.h"
#include "Util/RecursiveRWLock.h"

namespace Kivo::Test {
namespace {

using Client::ChangeEvent;
using Client::ChangeFeed;
using Client::ElementWriter;
using Data::AbstractResource;
using Data::OperationResult;

const std::string FIRST_ID = "6f1c2a4e-0b7d-4c8e-9a3f-2d5e8b1c7a90";
const std::string SECOND_ID = "0a9b8c7d-6e5f-4a3b-8c1d-0e2f3a4b5c6d";

Poco::JSON::Object::Ptr parse(const std::string& json) { return parseObject(json); }

// Collects the events a subscriber receives: revision and JSON text as received.
class Received : public Collector<std::pair<ChangeEvent::Revision, std::string>> {
public:
    void operator()(const ChangeEvent& event) { add({event.revision(), jsonText(event.toJSON())}); }
    std::vector<std::string> events() const {
        std::vector<std::string> result;
        for (const auto& value : values()) result.push_back(value.second);
        return result;
    }
    std::vector<ChangeEvent::Revision> revisions() const {
        std::vector<ChangeEvent::Revision> result;
        for (const auto& value : values()) result.push_back(value.first);
        return result;
    }
};

ChangeFeed::Callback into(Received& received) {
    return [&received](const ChangeEvent& event) { received(event); };
}

class ChangeFeedTest : public ::testing::Test {
protected:
    // Adds an element with `id` and `title` to `container` through the core call.
    static void add(TestContainer<TestElement>& container, const std::string& id,
                    const std::string& title) {
        const auto json = parse(R"({"id":")" + id + R"(","name":"n","title":")" + title + "\"}");
        ASSERT_EQ(OperationResult::OK, container.addElement(json.get()).value());
    }
    TestElement& element(const std::string& id) { return elementOf<TestElement>(items, id); }

    Data::Service service{"Media", "test service", 8080, PropertyValueUuid()};
    Received received;
    ChangeFeed feed{service, 8};
    TestContainer<TestElement> items{service, "Items"};
    TestContainer<TestElement> others{service, "Others"};
    ElementWriter writer{items, &feed};
};

// Every change is numbered in order whoever makes it; filtered subscribers receive the events of
// their resources and keys, in revision order: an event let through wrongly would arrive before
// the last expected one and show in their lists.
TEST_F(ChangeFeedTest, NumbersEveryChangeInOrderWhoeverMakesItAndFilters) {
    Received inOthers, titles, titlesInItems;
    ChangeFeed::Subscription all = feed.subscribe(into(received));
    ChangeFeed::Subscription byResource = feed.subscribe(into(inOthers), {{"Others"}, {}});
    ChangeFeed::Subscription byKey = feed.subscribe(into(titles), {{}, {"title", "note"}});
    ChangeFeed::Subscription byBoth = feed.subscribe(into(titlesInItems), {{"Items"}, {"title"}});
    EXPECT_EQ(0u, feed.currentRevision());
    add(items, FIRST_ID, "one");
    // A refused addition reports nothing, also not the values the refused element was given.
    const auto duplicate = parse(R"({"id":")" + FIRST_ID + R"(","title":"x"})");
    EXPECT_EQ(OperationResult::DUPLICATE, items.addElement(duplicate.get()).value());
    const Poco::UUID first(FIRST_ID);
    const Poco::UUID second(SECOND_ID);
    const auto update = [&](const std::string& json) { return writer.update(first, *parse(json)); };
    EXPECT_EQ(OperationResult::OK, element(FIRST_ID).setProperty("count", "5").value());
    EXPECT_EQ(
        OperationResult::OK,
        items.updateElementFromJSON(first, parse(R"({"count":6,"title":"two"})").get()).value());
    EXPECT_EQ(OperationResult::NO_UPDATE, update(R"({"count":6})").value());
    EXPECT_EQ(OperationResult::OK, update(R"({"note":"hi"})").value());
    EXPECT_EQ(OperationResult::OK, update(R"({"note":null,"count":7})").value());
    EXPECT_EQ(5u, feed.revisionOf(first));
    add(others, SECOND_ID, "other");
    ASSERT_EQ(OperationResult::OK,
              others.updateElementFromJSON(second, parse("{\"title\":\"y\"}").get()).value());
    EXPECT_EQ(OperationResult::OK, items.removeElement(first).value());
    EXPECT_EQ(0u, feed.revisionOf(first));
    EXPECT_EQ(7u, feed.revisionOf(second));
    others.clear();
    EXPECT_EQ(9u, feed.currentRevision());

    ASSERT_TRUE(received.waitFor(9));
    // An addition carries the element's JSON; the rest of each event reads as listed.
    std::vector<std::string> events;
    for (const std::string& event : received.events()) {
        Poco::JSON::Object::Ptr json = parse(event);
        if (json->has("element")) {
            const Poco::JSON::Object::Ptr element = json->getObject("element");
            EXPECT_EQ(json->getValue<std::string>("id"), element->getValue<std::string>("id"));
            EXPECT_EQ(events.empty() ? "one" : "other", element->getValue<std::string>("title"));
            json->remove("element");
        }
        events.push_back(jsonText(json));
    }
    const std::string at = R"("id":")" + FIRST_ID + R"(","resource":"Items","revision":)";
    const std::string other = R"("id":")" + SECOND_ID + R"(","resource":"Others","revision":)";
    const std::string changed = R"({"event":"changed",)" + at;
    EXPECT_EQ((std::vector<std::string>{
                  R"({"event":"added",)" + at + "1}", changed + R"(2,"values":{"count":5}})",
                  changed + R"(3,"values":{"count":6,"title":"two"}})",
                  changed + R"(4,"values":{"note":"hi"}})",
                  changed + R"(5,"values":{"count":7,"note":null}})",
                  R"({"event":"added",)" + other + "6}",
                  R"({"event":"changed",)" + other + R"(7,"values":{"title":"y"}})",
                  R"({"event":"removed",)" + at + "8}", R"({"event":"removed",)" + other + "9}"}),
              events);

    ASSERT_TRUE(inOthers.waitFor(3));
    ASSERT_TRUE(titles.waitFor(8));
    ASSERT_TRUE(titlesInItems.waitFor(3));
    EXPECT_EQ((std::vector<ChangeEvent::Revision>{6, 7, 9}), inOthers.revisions());
    EXPECT_EQ((std::vector<ChangeEvent::Revision>{1, 3, 4, 5, 6, 7, 8, 9}), titles.revisions());
    EXPECT_EQ((std::vector<ChangeEvent::Revision>{1, 3, 8}), titlesInItems.revisions());
    // A changed event that passes a key filter carries only the filtered keys.
    EXPECT_EQ(changed + R"(3,"values":{"title":"two"}})", titles.events()[1]);
    EXPECT_EQ(titles.events()[1], titlesInItems.events()[1]);
}

TEST_F(ChangeFeedTest, ResumesWhileKeptAndAsksForResyncOtherwise) {
    add(items, FIRST_ID, "t0");
    for (int i = 1; i < 20; ++i) {
        ASSERT_EQ(OperationResult::OK,
                  element(FIRST_ID).setProperty("title", "t" + std::to_string(i)).value());
    }
    ASSERT_EQ(20u, feed.currentRevision());
    // The history of 8 holds revisions 13 to 20.
    struct Row {
        ChangeEvent::Revision since;
        std::vector<ChangeEvent::Revision> expected;  // before the marker at 21
        bool resync;
    };
    const std::vector<Row> rows = {
        {20, {}, false},
        {15, {16, 17, 18, 19, 20}, false},
        {12, {13, 14, 15, 16, 17, 18, 19, 20}, false},
        {11, {20}, true},
        {0, {20}, true},
        {21, {20}, true},
        {ChangeFeed::FROM_NOW, {}, false},
    };
    std::vector<std::unique_ptr<Received>> receivers;
    std::vector<ChangeFeed::Subscription> subscriptions;
    for (const Row& row : rows) {
        receivers.push_back(std::make_unique<Received>());
        subscriptions.push_back(feed.subscribe(into(*receivers.back()), {}, row.since));
    }
    ASSERT_EQ(OperationResult::OK, element(FIRST_ID).setProperty("title", "marker").value());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("since " + std::to_string(rows[i].since));
        std::vector<ChangeEvent::Revision> expected = rows[i].expected;
        expected.push_back(21);
        ASSERT_TRUE(receivers[i]->waitFor(expected.size()));
        EXPECT_EQ(expected, receivers[i]->revisions());
        const std::string first = receivers[i]->events().front();
        EXPECT_EQ(rows[i].resync, first == "{\"event\":\"resync\",\"revision\":20}") << first;
    }
}

TEST_F(ChangeFeedTest, ConditionalUpdateNeedsTheRevisionReadLast) {
    add(items, FIRST_ID, "one");
    const Poco::UUID id(FIRST_ID);
    TestElement& item = element(FIRST_ID);
    const Poco::JSON::Object::Ptr read = feed.toJSONWithRevision(item, 0);
    EXPECT_EQ(1, read->getValue<int>("revision"));
    EXPECT_EQ("one", read->getValue<std::string>("title"));

    EXPECT_EQ(OperationResult::OK, writer.update(id, *parse("{\"count\":1}"), 1).value());
    EXPECT_EQ(2u, feed.revisionOf(id));
    // The service's own write, not through the writer, counts as well.
    ASSERT_EQ(OperationResult::OK, item.setProperty("title", "two").value());
    const OperationResult refused = writer.update(id, *parse("{\"count\":9}"), 2);
    EXPECT_EQ(OperationResult::INVALID_OPERATION, refused.value());
    EXPECT_EQ("id " + FIRST_ID + ": changed since revision 2 (now 3)", refused.toString());
    EXPECT_EQ(1, feed.toJSONWithRevision(item, 0)->getValue<int>("count"));
    EXPECT_EQ(3u, feed.currentRevision());
    EXPECT_EQ(OperationResult::OK, writer.update(id, *parse("{\"count\":9}"), 3).value());
    EXPECT_EQ(4u, feed.revisionOf(id));

    EXPECT_EQ(OperationResult::NOT_FOUND,
              writer.update(Poco::UUID(SECOND_ID), *parse("{\"count\":2}"), 0).value());
    // The other checks stay: a refused value leaves the revision where it was.
    EXPECT_EQ(OperationResult::INVALID_VALUE,
              writer.update(id, *parse("{\"count\":500}"), 4).value());
    EXPECT_EQ(4u, feed.revisionOf(id));
    ElementWriter withoutFeed(items);
    EXPECT_EQ(OperationResult::INVALID_OPERATION,
              withoutFeed.update(id, *parse("{\"count\":2}"), 4).value());
    EXPECT_THROW({ ChangeFeed another(service); }, Poco::ExistsException);
}

// Several writers through the writer and the core at once: one subscriber that reads the tree
// in every delivery gets every revision once, in order, holding no tree lock when called.
TEST_F(ChangeFeedTest, DeliversOutsideTheTreeLockWhileWritersRun) {
    add(items, FIRST_ID, "one");
    add(items, SECOND_ID, "two");
    std::atomic<int> underLock{0};
    ChangeFeed::Subscription subscription = feed.subscribe(
        [&](const ChangeEvent& event) {
            if (Util::RecursiveRWLock::isAnyHeldByCallingThread()) ++underLock;
            // Would wait forever if a writer held the write side while waiting for this delivery.
            Util::ScopedRecursiveReadLock lock(*service.getLock());
            EXPECT_TRUE(items.hasElement(event.id()));
            received(event);
        },
        {}, 0);
    const int writes = 300;
    std::thread viaWriter([&] {
        for (int i = 0; i < writes; ++i) writer.set(Poco::UUID(FIRST_ID), "count", i % 100);
    });
    std::thread viaCore([&] {
        for (int i = 0; i < writes; ++i) {
            items.updateElementFromJSON(Poco::UUID(SECOND_ID),
                                        parse("{\"title\":\"t" + std::to_string(i) + "\"}").get());
        }
    });
    viaWriter.join();
    viaCore.join();
    const ChangeEvent::Revision last = feed.currentRevision();
    // Two additions and every write but the writer's first, which sets count to its value 0.
    EXPECT_EQ(static_cast<ChangeEvent::Revision>(2 + 2 * writes - 1), last);
    ASSERT_TRUE(received.waitFor(last));
    const std::vector<ChangeEvent::Revision> revisions = received.revisions();
    for (std::size_t i = 0; i < revisions.size(); ++i) ASSERT_EQ(i + 1, revisions[i]);
    EXPECT_EQ(0, underLock.load());
}

// A subscriber held up past the history size still gets every event; the history then holds
// what it has not been given. One that throws is called for every event all the same.
TEST_F(ChangeFeedTest, LosesNothingForASlowSubscriber) {
    add(items, FIRST_ID, "one");
    std::atomic<int> thrown{0};
    ChangeFeed::Subscription throwing = feed.subscribe(
        [&](const ChangeEvent&) {
            ++thrown;
            throw std::runtime_error("subscriber failure");
        },
        {}, 0);
    std::mutex gate;
    std::unique_lock<std::mutex> closed(gate);
    ChangeFeed::Subscription slow = feed.subscribe(
        [&](const ChangeEvent& event) {
            std::lock_guard<std::mutex> wait(gate);
            received(event);
        },
        {}, 0);
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(OperationResult::OK,
                  element(FIRST_ID).setProperty("count", std::to_string(i + 1)).value());
    }
    // Held up, it cannot have been given what a late subscriber resumes from.
    Received late;
    ChangeFeed::Subscription resumed = feed.subscribe(into(late), {}, 40);
    closed.unlock();
    ASSERT_TRUE(received.waitFor(51));
    ASSERT_TRUE(late.waitFor(11));
    const std::vector<ChangeEvent::Revision> revisions = received.revisions();
    for (std::size_t i = 0; i < revisions.size(); ++i) ASSERT_EQ(i + 1, revisions[i]);
    EXPECT_EQ(41u, late.revisions().front());
    EXPECT_EQ(51u, late.revisions().back());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (thrown < 51 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throwing.reset();
    EXPECT_EQ(51, thrown.load());
}

// Subscriptions come and go, one ends itself from inside its delivery, and the feed goes, all
// while writers write: nobody is called once unsubscribed, and the feed's destruction delivers
// everything recorded before it.
TEST_F(ChangeFeedTest, EndsSubscriptionsAndTheFeedWhileEventsFlow) {
    add(items, FIRST_ID, "one");
    // Ending a subscription waits for the delivery to it that is running.
    std::atomic<bool> inside{false};
    std::atomic<bool> release{false};
    ChangeFeed::Subscription blocking = feed.subscribe(
        [&](const ChangeEvent&) {
            inside = true;
            while (!release) std::this_thread::yield();
        },
        {}, 0);
    while (!inside) std::this_thread::yield();
    std::atomic<bool> ended{false};
    std::thread ending([&] {
        blocking.reset();
        ended = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(ended.load());
    release = true;
    ending.join();
    EXPECT_TRUE(ended.load());

    std::atomic<bool> writing{true};
    std::thread writerThread([&] {
        for (int i = 0; writing; ++i) writer.set(Poco::UUID(FIRST_ID), "count", i % 100);
    });
    for (int round = 0; round < 50; ++round) {
        auto counted = std::make_unique<std::atomic<int>>(0);
        ChangeFeed::Subscription subscription =
            feed.subscribe([counter = counted.get()](const ChangeEvent&) { ++*counter; });
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        subscription.reset();
        counted.reset();  // a call after reset() would touch freed memory
    }
    ChangeFeed::Subscription self;
    std::mutex selfMutex;
    std::atomic<int> selfCalls{0};
    {
        std::lock_guard<std::mutex> lock(selfMutex);
        self = feed.subscribe([&](const ChangeEvent&) {
            ++selfCalls;
            std::lock_guard<std::mutex> lock(selfMutex);
            self.reset();
        });
    }
    while (selfCalls == 0) std::this_thread::yield();

    auto feedOfItsOwn = std::make_unique<Data::Service>("Own", "s", 1, PropertyValueUuid());
    auto ownFeed = std::make_unique<ChangeFeed>(*feedOfItsOwn, 4);
    auto own = std::make_unique<TestContainer<TestElement>>(*feedOfItsOwn, "Own");
    ASSERT_EQ(OperationResult::OK,
              own->addElement(parse("{\"id\":\"" + SECOND_ID + "\"}").get()).value());
    Received ownReceived;
    ChangeFeed::Subscription ownSubscription = ownFeed->subscribe(into(ownReceived), {}, 0);
    std::atomic<bool> ownWriting{true};
    std::thread ownWriter([&] {
        ElementWriter ownWrites(*own);
        for (int i = 0; ownWriting; ++i) ownWrites.set(Poco::UUID(SECOND_ID), "count", i % 100);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const ChangeEvent::Revision recorded = ownFeed->currentRevision();
    ownFeed.reset();
    const std::size_t delivered = ownReceived.revisions().size();
    ownWriting = false;
    ownWriter.join();
    EXPECT_LE(recorded, delivered);
    EXPECT_EQ(delivered, ownReceived.revisions().size());
    const std::vector<ChangeEvent::Revision> revisions = ownReceived.revisions();
    for (std::size_t i = 0; i < revisions.size(); ++i) ASSERT_EQ(i + 1, revisions[i]);
    ownSubscription.reset();
    own.reset();
    feedOfItsOwn.reset();

    writing = false;
    writerThread.join();
    EXPECT_EQ(1, selfCalls.load());
}

}  // namespace
}  // namespace Kivo::Test
