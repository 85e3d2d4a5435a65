#include "Data/Base/Object.h"

#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/Base/Property.h"
#include "TestChannel.h"
#include "TestObject.h"

namespace Kivo::Data::Base {
namespace {

using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestObject;
typedef PropertyEventPayload Payload;
typedef std::unique_ptr<PropertyInteger> Integer;
typedef std::vector<std::string> Keys;

Integer makeInteger(const std::string& key, long value = 0) {
    return Integer(
        new PropertyInteger(key, nullptr, PropertyValueNumberBase<long>(value, {}, {}, {})));
}

TEST(Object, TypeAndLock) {
    const Object::Type track("Track", Object::Type("Media", Object::Type("Service")));
    EXPECT_EQ("Service.Media.Track", track.identifier);
    EXPECT_EQ("/Service/Media/", track.path);
    EXPECT_EQ("/", Object::Type("Service").path);
    EXPECT_EQ("/Service/", Object::Type("Media", TestObject("Service")).path);

    // Objects of equal types share one copy, as long as one of them lives; unequal ones don't.
    auto first = std::make_unique<TestObject>("Shared");
    const TestObject second("Shared"), other("Other");
    EXPECT_EQ(&first->getType(), &second.getType());
    EXPECT_NE(&first->getType(), &other.getType());
    EXPECT_EQ(&second.getType(), &TestObject(second, second.getLock()).getType());
    first.reset();
    EXPECT_EQ("Shared", second.getType().identifier) << "the type outlives the first object";
    EXPECT_EQ(&second.getType(), &TestObject("Shared").getType());

    for (auto construct : {+[] { TestObject object("T", Kivo::RecursiveRWLockPtr()); },
                           +[] {
                               TestObject copy{TestObject(), Kivo::RecursiveRWLockPtr()};
                           }}) {
        try {
            construct();
            ADD_FAILURE() << "a null lock was accepted";
        } catch (const Poco::NullPointerException& error) {
            EXPECT_EQ("Every Object requires a RWLock!", error.message());
        }
    }
}

TEST(Object, RegistryStatesJsonAndLogLines) {
    ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
    TestObject object("Thing");
    ASSERT_TRUE(object.registerProperty("optional", nullptr));
    Integer present = makeInteger("present", 1), upper = makeInteger("B", 2);
    ASSERT_TRUE(object.registerProperty("present", present.get()));
    ASSERT_TRUE(object.registerProperty("B", upper.get()));
    std::ostringstream json;
    object.toJSON(0)->stringify(json);
    EXPECT_EQ(R"({"B":2,"present":1})", json.str()) << "present properties, in byte order";
    EXPECT_EQ((Keys{"B", "present"}), object.getPropertyKeys());
    EXPECT_FALSE(object.knowsProperty("absent"));
    EXPECT_TRUE(object.knowsProperty("optional"));
    EXPECT_FALSE(object.hasProperty("optional"));
    EXPECT_TRUE(object.hasProperty("present"));
    EXPECT_EQ(&object, present->getParent());

    capture.channel().clear();
    EXPECT_EQ(nullptr, object.getProperty("absent"));
    EXPECT_EQ(nullptr, object.getProperty("optional"));
    EXPECT_EQ(present.get(), object.getProperty("present"));
    const auto messages = capture.messages();
    ASSERT_EQ(2u, messages.size());
    EXPECT_EQ("Warning: Thing::getProperty: property absent is unknown", messages[0].text);
    EXPECT_EQ(Poco::Message::PRIO_WARNING, messages[0].priority);
    EXPECT_EQ("Trace: Thing::getProperty: property optional is not available", messages[1].text);
    EXPECT_EQ(Poco::Message::PRIO_TRACE, messages[1].priority);
}

TEST(Object, FirstRegistrationWinsUntilThePropertyIsGone) {
    TestObject object;
    Integer first = makeInteger("k", 1), second = makeInteger("k", 2);
    ASSERT_TRUE(object.registerProperty("k", first.get()));
    EXPECT_FALSE(object.registerProperty("k", second.get()));
    EXPECT_EQ(first.get(), object.getProperty("k"));
    EXPECT_EQ(nullptr, second->getParent());
    EXPECT_EQ(Keys{"k"}, object.registered);

    first.reset();
    EXPECT_TRUE(object.knowsProperty("k"));
    EXPECT_FALSE(object.hasProperty("k"));
    ASSERT_EQ(1u, object.events.size());
    EXPECT_EQ(Payload::PROPERTY_DESTROYED, object.events[0].first);
    // A key's position leads to its property even after keys were added before it.
    Util::ScopedRecursiveReadLock lock(*object.getLock());
    const std::size_t at = object.findKnownKey("k");
    EXPECT_EQ(nullptr, object.findKnownProperty("k", at)) << "known, absent";
    EXPECT_EQ(PropertyRegistry::npos, object.findKnownKey("j"));
    Integer earlier = makeInteger("a");
    ASSERT_TRUE(object.registerProperty("a", earlier.get()));
    EXPECT_TRUE(object.registerProperty("k", second.get()));
    EXPECT_EQ(second.get(), object.getProperty("k"));
    EXPECT_EQ(second.get(), object.findKnownProperty("k", at));
    EXPECT_EQ(earlier.get(), object.findKnownProperty("a", object.findKnownKey("a")));
}

TEST(Object, MovingAPropertyLeavesTheOldOwnerAKnownKey) {
    TestObject oldOwner, newOwner;
    Integer property = makeInteger("k");
    oldOwner.registerProperty("k", property.get());
    ASSERT_TRUE(newOwner.registerProperty("k", property.get()));
    EXPECT_EQ(&newOwner, property->getParent());
    EXPECT_TRUE(oldOwner.knowsProperty("k"));
    EXPECT_FALSE(oldOwner.hasProperty("k"));
    ASSERT_EQ(1u, oldOwner.events.size());
    EXPECT_EQ(Payload::PROPERTY_OWNER_CHANGED, oldOwner.events[0].first);
    EXPECT_TRUE(newOwner.events.empty()) << "an owner saw the event of its own registration";

    ASSERT_TRUE(property->setValue(5));
    EXPECT_EQ(1u, oldOwner.events.size()) << "the old owner is still subscribed";
    ASSERT_EQ(1u, newOwner.events.size());
    EXPECT_EQ(Payload::PROPERTY_VALUE_CHANGED, newOwner.events[0].first);

    // Moved while Updated is disabled, the old owner never hears of it and keeps watching; the
    // new one must still learn of the property's end, or it would keep a dangling entry.
    TestObject third;
    property->Updated.disable();
    ASSERT_TRUE(third.registerProperty("k", property.get()));
    property->Updated.enable();
    property.reset();
    EXPECT_TRUE(third.knowsProperty("k"));
    EXPECT_FALSE(third.hasProperty("k"));
    EXPECT_FALSE(newOwner.hasProperty("k"));
}

TEST(Object, UnregisterAllDetachesEveryProperty) {
    Integer a = makeInteger("a"), b = makeInteger("b");
    {
        TestObject object;
        object.registerProperty("b", b.get());
        object.registerProperty("a", a.get());
        object.registerProperty("known", nullptr);
        object.unregisterAllProperties();
        EXPECT_EQ(nullptr, a->getParent());
        EXPECT_FALSE(object.knowsProperty("known"));
        EXPECT_EQ((Keys{"a", "b"}), object.unregistered);
        ASSERT_EQ(2u, object.events.size());
        EXPECT_EQ(Payload::PROPERTY_OWNER_CHANGED, object.events[1].first);
        object.registerProperty("a", a.get());
    }
    // The destroyed owner is neither the parent nor a subscriber any more.
    EXPECT_EQ(nullptr, a->getParent());
    EXPECT_TRUE(a->setValue(3));
}

// Objects whose properties are members, registered as a class's constructor would.
struct MemberObject : TestObject {
    MemberObject(long first, long second)
        : first("first", nullptr, PropertyValueNumberBase<long>(first, {}, {}, {})),
          second("second", nullptr, PropertyValueNumberBase<long>(second, {}, {}, {})) {
        registerProperty("second", &this->second);
        registerProperty("later", nullptr);
        registerProperty("first", &this->first);
    }
    using Object::getKnownPropertyKeys;
    PropertyInteger first;
    PropertyInteger second;
};

TEST(Object, ObjectsOfOneShapeKeepTheirOwnProperties) {
    // Registries of objects built alike are shared; each object must still answer its own
    // properties, and a change to one object's registry must not reach the others.
    std::vector<std::unique_ptr<MemberObject>> objects;
    for (long i = 0; i < 3; ++i) objects.emplace_back(new MemberObject(i, 10 + i));
    Integer outside = makeInteger("later", 7);
    ASSERT_TRUE(objects[1]->registerProperty("later", outside.get()));
    TestObject taker;
    ASSERT_TRUE(taker.registerProperty("second", &objects[2]->second));

    const std::vector<std::vector<std::string>> keys = {
        {"first", "second"}, {"first", "later", "second"}, {"first"}};
    for (long i = 0; i < 3; ++i) {
        const MemberObject& object = *objects[i];
        EXPECT_EQ(keys[i], object.getPropertyKeys()) << i;
        EXPECT_EQ((Keys{"first", "later", "second"}), object.getKnownPropertyKeys()) << i;
        EXPECT_EQ(&object.first, object.getProperty("first")) << i;
        EXPECT_EQ(i, dynamic_cast<PropertyInteger&>(*object.getProperty("first")).getValue());
    }
    EXPECT_EQ(&objects[0]->second, objects[0]->getProperty("second"));
    EXPECT_EQ(outside.get(), objects[1]->getProperty("later"));
    EXPECT_EQ(nullptr, objects[2]->getProperty("second"));
    EXPECT_EQ(&objects[2]->second, taker.getProperty("second"));
    std::ostringstream json;
    objects[1]->toJSON(0)->stringify(json);
    EXPECT_EQ(R"({"first":1,"later":7,"second":11})", json.str());

    outside.reset();
    EXPECT_TRUE(objects[1]->knowsProperty("later"));
    EXPECT_FALSE(objects[1]->hasProperty("later"));
    EXPECT_EQ(&objects[1]->second, objects[1]->getProperty("second"));
}

TEST(Object, CopiesTakeTheTypeOnlyAndLocksReachEveryProperty) {
    TestObject original("Original");
    Integer property = makeInteger("k");
    original.registerProperty("k", property.get());
    Kivo::RecursiveRWLockPtr lock(new Util::RecursiveRWLock);
    TestObject copy(original, lock);
    copy = original;
    EXPECT_EQ("Original", copy.getType().identifier);
    EXPECT_FALSE(copy.knowsProperty("k"));
    EXPECT_EQ(lock.get(), copy.getLock().get()) << "assignment keeps the copy's lock";

    original.adoptPropertyLock(copy);
    original.adoptPropertyLock(original);
    EXPECT_EQ(lock.get(), property->getLock().get()) << "properties follow their owner";
    original.resetPropertyLock();
    EXPECT_NE(lock.get(), original.getLock().get());
    EXPECT_EQ(original.getLock().get(), property->getLock().get());
    EXPECT_TRUE(property->setValue(1)) << "the fresh lock is usable";
}

// Writers change two properties together under one write lock; readers must never see them
// apart, neither through the values nor through the JSON form, and no write or owner
// notification may be lost.
TEST(ObjectConcurrency, ReadersNeverSeeAHalfDoneWrite) {
    constexpr int WRITERS = 3;
    constexpr int READERS = 3;
    constexpr long WRITES_PER_WRITER = 1500;

    TestObject object;
    PropertyInteger a("a", &object, PropertyValueNumberBase<long>());
    PropertyInteger b("b", &object, PropertyValueNumberBase<long>());
    object.registerProperty("a", &a);
    object.registerProperty("b", &b);

    std::atomic<bool> writing{true};
    std::atomic<long> tornReads{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < READERS; ++r) {
        readers.emplace_back([&] {
            while (writing) {
                {
                    PropertyLockGuard guard(a, false);
                    if (a.getValue() != b.getValue()) ++tornReads;
                }
                Poco::JSON::Object::Ptr json = object.toJSON(0);
                if (json->getValue<long>("a") != json->getValue<long>("b")) ++tornReads;
            }
        });
    }
    std::vector<std::thread> writers;
    for (int w = 0; w < WRITERS; ++w) {
        writers.emplace_back([&] {
            for (long i = 0; i < WRITES_PER_WRITER; ++i) {
                Util::ScopedRecursiveWriteLock lock(*object.getLock());
                ASSERT_TRUE(a.setValue(a.getValue() + 1));
                ASSERT_TRUE(b.setValueFromString(std::to_string(b.getValue() + 1)));
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    writing = false;
    for (std::thread& reader : readers) reader.join();

    EXPECT_EQ(0, tornReads.load());
    EXPECT_EQ(WRITERS * WRITES_PER_WRITER, a.getValue());
    EXPECT_EQ(WRITERS * WRITES_PER_WRITER, b.getValue());
    EXPECT_EQ(2 * WRITERS * WRITES_PER_WRITER, static_cast<long>(object.events.size()));
}

// Subscriptions come and go on other threads while the owner writes: every raise reaches the
// owner and the hook attached throughout, whichever form the event's word has meanwhile.
TEST(ObjectConcurrency, SubscriptionsComeAndGoWhileAPropertyRaises) {
    constexpr int SUBSCRIBERS = 2;
    constexpr long WRITES = 2000;

    TestObject object;
    PropertyInteger a("a", &object, PropertyValueNumberBase<long>());
    object.registerProperty("a", &a);
    struct CountingHook : Util::EventHook<Payload> {
        void onEvent(const void*, Payload&) override { ++calls; }
        long calls = 0;  // only the writing thread raises
    } hook;
    a.Updated.attach(hook);
    struct Listener {
        void onUpdated(const void*, Payload&) { ++*calls; }
        std::atomic<long>* calls;
    };

    std::atomic<bool> writing{true};
    std::atomic<long> delegateCalls{0};
    std::vector<std::thread> subscribers;
    for (int s = 0; s < SUBSCRIBERS; ++s) {
        subscribers.emplace_back([&] {
            Listener listener{&delegateCalls};
            while (writing) {
                a.Updated += Poco::delegate(&listener, &Listener::onUpdated);
                a.Updated -= Poco::delegate(&listener, &Listener::onUpdated);
            }
        });
    }
    for (long i = 0; i < WRITES; ++i) {
        Util::ScopedRecursiveWriteLock lock(*object.getLock());
        EXPECT_TRUE(a.setValue(i + 1));
    }
    writing = false;
    for (std::thread& subscriber : subscribers) subscriber.join();
    {
        Util::ScopedRecursiveWriteLock lock(*object.getLock());
        a.Updated.detach(hook);
    }

    EXPECT_EQ(WRITES, hook.calls);
    EXPECT_EQ(WRITES, static_cast<long>(object.events.size()));
    EXPECT_LE(delegateCalls.load(), SUBSCRIBERS * WRITES) << "a delegate was called twice";
    EXPECT_TRUE(a.Updated.empty());
}

// Threads that make and drop the only objects of a type meet the table while a type's last
// object goes: each object must get a whole, equal type, whether it is the going copy's
// replacement or another thread's new one.
TEST(ObjectConcurrency, TypesComeAndGoWhileOthersAreMade) {
    constexpr int THREADS = 4;
    constexpr int OBJECTS_PER_THREAD = 2000;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&wrong, t] {
            for (int i = 0; i < OBJECTS_PER_THREAD; ++i) {
                const std::string name = "Racing" + std::to_string((i + t) % 3);
                const TestObject object(name);
                if (object.getType().identifier != name || object.getType().path != "/") ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong.load());
}

}  // namespace
}  // namespace Kivo::Data::Base
