#include "Data/Base/Object.h"

#include <memory>
#include <string>
#include <vector>

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

PropertyInteger* makeInteger(const std::string& key, long value = 0) {
    return new PropertyInteger(key, nullptr, PropertyValueNumberBase<long>(value, {}, {}, {}));
}

TEST(ObjectType, BuildsIdentifierAndPathFromTheParentChain) {
    const Object::Type service("Service");
    const Object::Type media("Media", service);
    const Object::Type track("Track", media);
    EXPECT_EQ("Service", service.identifier);
    EXPECT_EQ("/", service.path);
    EXPECT_EQ("Service.Media", media.identifier);
    EXPECT_EQ("/Service/", media.path);
    EXPECT_EQ("Track", track.name);
    EXPECT_EQ("Service.Media.Track", track.identifier);
    EXPECT_EQ("/Service/Media/", track.path);

    TestObject parent("Service");
    EXPECT_EQ("/Service/", Object::Type("Media", parent).path);
}

TEST(Object, RequiresALock) {
    auto constructors = {
        +[] { TestObject object("T", Kivo::RecursiveRWLockPtr()); },
        +[] { TestObject copy{TestObject(), Kivo::RecursiveRWLockPtr()}; },
    };
    for (auto construct : constructors) {
        try {
            construct();
            ADD_FAILURE() << "a null lock was accepted";
        } catch (const Poco::NullPointerException& error) {
            EXPECT_EQ("Every Object requires a RWLock!", error.message());
        }
    }
}

TEST(Object, RegistryStatesAndTheirLogLines) {
    ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
    TestObject object("Thing");
    ASSERT_TRUE(object.registerProperty("optional", nullptr));
    std::unique_ptr<PropertyInteger> present(makeInteger("present"));
    ASSERT_TRUE(object.registerProperty("present", present.get()));

    EXPECT_FALSE(object.knowsProperty("absent"));
    EXPECT_FALSE(object.hasProperty("absent"));
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
    EXPECT_EQ(std::vector<std::string>{"present"}, object.getPropertyKeys());
}

TEST(Object, FirstRegistrationWinsUntilThePropertyIsGone) {
    TestObject object;
    std::unique_ptr<PropertyInteger> first(makeInteger("k", 1));
    std::unique_ptr<PropertyInteger> second(makeInteger("k", 2));
    ASSERT_TRUE(object.registerProperty("k", first.get()));
    EXPECT_FALSE(object.registerProperty("k", second.get()));
    EXPECT_EQ(first.get(), object.getProperty("k"));
    EXPECT_EQ(nullptr, second->getParent());
    EXPECT_EQ((std::vector<std::string>{"k"}), object.registered);

    first.reset();
    EXPECT_TRUE(object.knowsProperty("k"));
    EXPECT_FALSE(object.hasProperty("k"));
    ASSERT_EQ(1u, object.events.size());
    EXPECT_EQ(Payload::PROPERTY_DESTROYED, object.events[0].first);

    EXPECT_TRUE(object.registerProperty("k", second.get()));
    EXPECT_EQ(second.get(), object.getProperty("k"));
}

TEST(Object, JsonListsPresentPropertiesInByteOrder) {
    TestObject object;
    EXPECT_EQ(0u, object.toJSON(0)->size());

    std::unique_ptr<PropertyInteger> lower(makeInteger("b", 2));
    std::unique_ptr<PropertyInteger> upper(makeInteger("B", 1));
    std::unique_ptr<PropertyInteger> first(makeInteger("a", 3));
    for (PropertyInteger* property : {lower.get(), upper.get(), first.get()}) {
        object.registerProperty(property->getKey(), property);
    }
    object.registerProperty("absent", nullptr);

    std::ostringstream text;
    object.toJSON(0)->stringify(text);
    EXPECT_EQ(R"({"B":1,"a":3,"b":2})", text.str());
    EXPECT_EQ((std::vector<std::string>{"B", "a", "b"}), object.getPropertyKeys());
    EXPECT_EQ((std::vector<PropertyBase*>{upper.get(), first.get(), lower.get()}),
              object.getProperties());
}

TEST(Object, MovingAPropertyLeavesTheOldOwnerAKnownKey) {
    TestObject oldOwner;
    TestObject newOwner;
    std::unique_ptr<PropertyInteger> property(makeInteger("k"));
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
}

TEST(Object, UnregisterAllDetachesEveryProperty) {
    std::unique_ptr<PropertyInteger> a(makeInteger("a"));
    std::unique_ptr<PropertyInteger> b(makeInteger("b"));
    {
        TestObject object;
        object.registerProperty("b", b.get());
        object.registerProperty("a", a.get());
        object.registerProperty("known", nullptr);
        object.unregisterAllProperties();
        EXPECT_EQ(nullptr, a->getParent());
        EXPECT_FALSE(object.knowsProperty("a"));
        EXPECT_FALSE(object.knowsProperty("known"));
        EXPECT_EQ((std::vector<std::string>{"a", "b"}), object.unregistered);
        ASSERT_EQ(2u, object.events.size());
        EXPECT_EQ(Payload::PROPERTY_OWNER_CHANGED, object.events[1].first);

        object.registerProperty("a", a.get());
    }
    // The destroyed owner is neither the parent nor a subscriber any more.
    EXPECT_EQ(nullptr, a->getParent());
    EXPECT_TRUE(a->setValue(3));
    EXPECT_TRUE(a->isModifiable());
}

TEST(Object, CopiesTakeTheTypeButNeitherRegistryNorLock) {
    TestObject original("Original");
    std::unique_ptr<PropertyInteger> property(makeInteger("k"));
    original.registerProperty("k", property.get());

    Kivo::RecursiveRWLockPtr lock(new Util::RecursiveRWLock);
    TestObject copy(original, lock);
    EXPECT_EQ("Original", copy.getType().identifier);
    EXPECT_FALSE(copy.knowsProperty("k"));
    EXPECT_EQ(lock.get(), copy.getLock().get());
    EXPECT_NE(original.getLock().get(), copy.getLock().get());

    copy = original;
    EXPECT_FALSE(copy.knowsProperty("k"));
    EXPECT_EQ(lock.get(), copy.getLock().get());
}

TEST(Object, AdoptedLockReachesEveryProperty) {
    TestObject parent;
    TestObject child;
    std::unique_ptr<PropertyInteger> property(makeInteger("k"));
    child.registerProperty("k", property.get());

    child.adoptPropertyLock(parent);
    EXPECT_EQ(parent.getLock().get(), child.getLock().get());
    EXPECT_EQ(parent.getLock().get(), property->getLock().get());

    child.adoptPropertyLock(child);
    EXPECT_EQ(parent.getLock().get(), child.getLock().get());

    child.resetPropertyLock();
    EXPECT_NE(parent.getLock().get(), child.getLock().get());
    EXPECT_EQ(child.getLock().get(), property->getLock().get());
    EXPECT_TRUE(property->setValue(1)) << "the fresh lock is usable";
}

}  // namespace
}  // namespace Kivo::Data::Base
