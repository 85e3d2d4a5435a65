#include "Data/Base/Property.h"

#include <memory>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "TestObject.h"

namespace Kivo::Data::Base {
namespace {

using Kivo::Test::TestObject;
typedef PropertyValueNumberBase<long> Number;
typedef PropertyEventPayload Payload;

// Records both change events of one integer property, in the order they arrive.
struct EventLog {
    explicit EventLog(PropertyInteger& property) : m_property(property) {
        m_property.ValueChanged += Poco::delegate(this, &EventLog::onValueChanged);
        m_property.Updated += Poco::delegate(this, &EventLog::onUpdated);
    }
    ~EventLog() {
        m_property.ValueChanged -= Poco::delegate(this, &EventLog::onValueChanged);
        m_property.Updated -= Poco::delegate(this, &EventLog::onUpdated);
    }

    void onValueChanged(const void* sender, PropertyInteger::ValueChangedEventPayload& payload) {
        order.push_back("ValueChanged");
        EXPECT_EQ(&m_property, sender);
        EXPECT_EQ(&m_property, payload.concreteSource);
        EXPECT_EQ(&m_property, payload.getSourceProperty());
        EXPECT_EQ(Payload::PROPERTY_VALUE_CHANGED, payload.getEvent());
        EXPECT_TRUE(payload.getPreviousValue().isEmpty());
        typedOld.push_back(payload.oldValue.getValue());
        valueSeen.push_back(m_property.getValue());
    }

    void onUpdated(const void*, Payload& payload) {
        order.push_back(payload.getEvent() == Payload::PROPERTY_VALUE_CHANGED ? "Updated"
                                                                               : "OwnerChanged");
        parentSeen.push_back(m_property.getParent());
        if (!payload.getPreviousValue().isEmpty()) {
            genericOld.push_back(payload.getPreviousValue().convert<long>());
        }
    }

    PropertyInteger& m_property;
    std::vector<std::string> order;
    std::vector<long> typedOld;
    std::vector<long> genericOld;
    std::vector<long> valueSeen;
    std::vector<Object*> parentSeen;
};

TEST(Property, RefusesAnEmptyKey) {
    try {
        PropertyInteger property("", nullptr, Number());
        FAIL() << "an empty key was accepted";
    } catch (const Poco::AssertionViolationException& error) {
        EXPECT_EQ("Properties must not have an empty key", error.message());
    }
}

TEST(Property, RaisesTypedThenGenericEventPerAcceptedWrite) {
    TestObject owner;
    PropertyInteger property("k", &owner, Number(1, {}, 10, {}));
    owner.registerProperty("k", &property);
    EventLog log(property);

    EXPECT_TRUE(property.setValue(2));
    EXPECT_TRUE(property.setValueFromString("3"));
    EXPECT_TRUE(property.setValue(Number(3, {}, {}, {}))) << "an equal value is still accepted";
    EXPECT_FALSE(property.setValue(11));
    EXPECT_FALSE(property.setValueFromString("x"));
    EXPECT_FALSE(property.setValue(Number(11, {}, {}, {}))) << "checked by the property's limits";

    EXPECT_EQ(3, property.getValue());
    EXPECT_EQ((std::vector<std::string>{"ValueChanged", "Updated", "ValueChanged", "Updated",
                                        "ValueChanged", "Updated"}),
              log.order);
    EXPECT_EQ((std::vector<long>{1, 2, 3}), log.typedOld);
    EXPECT_EQ((std::vector<long>{1, 2, 3}), log.genericOld);
    EXPECT_EQ((std::vector<long>{2, 3, 3}), log.valueSeen) << "events come after the store";
    EXPECT_EQ(3u, owner.events.size());
}

TEST(Property, OwnerDeniesWriting) {
    TestObject owner;
    PropertyInteger property("k", &owner, Number(1, {}, {}, {}));
    owner.registerProperty("k", &property);
    owner.denyWrite("k");
    EventLog log(property);

    EXPECT_FALSE(property.isModifiable());
    EXPECT_FALSE(property.setValue(2));
    EXPECT_FALSE(property.setValueFromString("2"));
    EXPECT_FALSE(property.setPropertyValue(Number(2, {}, {}, {})));
    EXPECT_EQ(1, property.getValue());
    EXPECT_TRUE(log.order.empty());
    EXPECT_TRUE(owner.events.empty());
}

TEST(Property, WorksWithoutOwner) {
    PropertyInteger property("k", Number(1, {}, {}, {}));
    EventLog log(property);
    EXPECT_TRUE(property.isModifiable());
    EXPECT_TRUE(property.getLock().isNull());
    EXPECT_TRUE(property.setValue(4));
    EXPECT_EQ((std::vector<std::string>{"ValueChanged", "Updated"}), log.order);
    EXPECT_EQ(4, property.toJSON(0).convert<long>());
    property.registerAtOwner();
    EXPECT_EQ(nullptr, property.getParent());
}

TEST(Property, SetParentRaisesOneOwnerChangeWithTheNewParentInPlace) {
    TestObject first;
    TestObject second;
    PropertyInteger property("k", &first, Number());
    EventLog log(property);

    property.setParent(&first);
    EXPECT_TRUE(log.order.empty());

    property.setParent(&second);
    EXPECT_EQ(std::vector<std::string>{"OwnerChanged"}, log.order);
    EXPECT_EQ(std::vector<Object*>{&second}, log.parentSeen);
    EXPECT_TRUE(log.genericOld.empty());

    property.registerAtOwner();
    EXPECT_EQ(&property, second.getProperty("k"));
    EXPECT_EQ(1u, log.order.size()) << "registering at the current parent raises nothing";
}

TEST(Property, ReplacingTheValueObjectReplacesItsConstraints) {
    TestObject owner;
    PropertyInteger property("k", &owner, Number(1, {}, 5, {}));
    owner.registerProperty("k", &property);
    EventLog log(property);

    EXPECT_TRUE(property.setPropertyValue(Number(50, {}, 100, {})));
    EXPECT_TRUE(property.setValue(60));
    PropertyInteger other("other", Number(7, {}, {}, {}));
    property = other;
    EXPECT_EQ(7, property.getValue());
    EXPECT_EQ("k", property.getKey());
    EXPECT_EQ(6u, log.order.size());

    const PropertyInteger copy(property, &owner);
    EXPECT_EQ("k", copy.getKey());
    EXPECT_EQ(&owner, copy.getParent());
    EXPECT_EQ(&property, owner.getProperty("k")) << "a copy does not register itself";
    EXPECT_EQ(nullptr, PropertyInteger(property).getParent());
}

TEST(Property, DestroyedIsRaisedOnceWhileTheValueIsStillReadable) {
    TestObject owner;
    std::vector<std::string> seen;
    struct Watcher {
        std::vector<std::string>* seen;
        void onDestroyed(const void*, Payload& payload) {
            EXPECT_EQ(Payload::PROPERTY_DESTROYED, payload.getEvent());
            seen->push_back(payload.getSourceProperty()->getKey() + "=" +
                            payload.getSourceProperty()->getPropertyValueBase().toString());
        }
    } watcher{&seen};
    {
        PropertyInteger property("k", &owner, Number(42, {}, {}, {}));
        owner.registerProperty("k", &property);
        property.Destroyed += Poco::delegate(&watcher, &Watcher::onDestroyed);
    }
    EXPECT_EQ(std::vector<std::string>{"k=42"}, seen);
    EXPECT_TRUE(owner.knowsProperty("k"));
    EXPECT_FALSE(owner.hasProperty("k"));
}

TEST(Property, BooleanPropertyAndTypedAccessors) {
    TestObject owner;
    PropertyBoolean flag("flag", &owner, PropertyValueBoolean(false));
    owner.registerProperty("flag", &flag);
    EXPECT_FALSE(flag.isArray());
    EXPECT_FALSE(flag.isReference());
    EXPECT_FALSE(flag.clear());
    EXPECT_TRUE(flag.createIndex().isNull());
    EXPECT_TRUE(flag.setValueFromString("true"));
    EXPECT_TRUE(static_cast<const bool&>(flag));
    EXPECT_TRUE(flag.matches(Poco::RegularExpression("tr.e")));
    EXPECT_FALSE(flag.matches(Poco::RegularExpression("tr")));
    EXPECT_EQ(true, owner.toJSON(0)->getValue<bool>("flag"));
}

}  // namespace
}  // namespace Kivo::Data::Base
