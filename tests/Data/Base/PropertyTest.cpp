#include "Data/Base/Property.h"

#include <functional>
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
typedef PropertyValueString S;
typedef PropertyEventPayload Payload;
typedef std::vector<std::string> Texts;

// Records the change events of one property in arrival order, with the old value each carries
// (as text) and what the property held when each arrived.
template <class P>
struct EventLog {
    explicit EventLog(P& property) : m_property(property) {
        m_property.ValueChanged += Poco::delegate(this, &EventLog::onValueChanged);
        m_property.Updated += Poco::delegate(this, &EventLog::onUpdated);
    }
    ~EventLog() {
        m_property.ValueChanged -= Poco::delegate(this, &EventLog::onValueChanged);
        m_property.Updated -= Poco::delegate(this, &EventLog::onUpdated);
    }

    void onValueChanged(const void* sender, typename P::ValueChangedEventPayload& payload) {
        order.push_back("ValueChanged");
        EXPECT_EQ(&m_property, sender);
        EXPECT_EQ(&m_property, payload.concreteSource);
        EXPECT_EQ(&m_property, payload.getSourceProperty());
        EXPECT_EQ(Payload::PROPERTY_VALUE_CHANGED, payload.getEvent());
        EXPECT_TRUE(payload.getPreviousValue().isEmpty());
        typedOld.push_back(payload.oldValue.toString());
        valueSeen.push_back(m_property.getPropertyValue().toString());
    }
    void onUpdated(const void*, Payload& payload) {
        order.push_back("Updated");
        EXPECT_EQ(&m_property, payload.getSourceProperty());
        EXPECT_EQ(Payload::PROPERTY_VALUE_CHANGED, payload.getEvent());
        genericOld.push_back(payload.getPreviousValue().convert<std::string>());
    }

    P& m_property;
    Texts order, typedOld, genericOld, valueSeen;
};

TEST(Property, RefusesAnEmptyKey) {
    try {
        PropertyInteger property("", nullptr, Number());
        FAIL() << "an empty key was accepted";
    } catch (const Poco::AssertionViolationException& error) {
        EXPECT_EQ("Properties must not have an empty key", error.message());
    }
}

// Every accepted write, equal values included, raises the typed then the generic event after
// the store; a refused write, by the value's rules or by the owner, raises nothing.
TEST(Property, RaisesTypedThenGenericEventPerAcceptedWrite) {
    for (const bool denied : {false, true}) {
        TestObject owner;
        PropertyInteger property("k", &owner, Number(1, {}, 10, {}));
        owner.registerProperty("k", &property);
        if (denied) owner.denyWrite("k");
        EXPECT_EQ(!denied, property.isModifiable());
        EventLog<PropertyInteger> log(property);
        EXPECT_EQ(!denied, property.setValue(2));
        EXPECT_EQ(!denied, property.setValueFromString("3"));
        EXPECT_EQ(!denied, property.setValue(Number(3, {}, {}, {}))) << "an equal value";
        EXPECT_FALSE(property.setValue(11));
        EXPECT_FALSE(property.setValueFromString("x"));
        EXPECT_FALSE(property.setValue(Number(11, {}, {}, {}))) << "the property's limits apply";
        EXPECT_EQ(denied ? 1 : 3, property.getValue());
        if (denied) {
            EXPECT_TRUE(log.order.empty());
            EXPECT_TRUE(owner.events.empty());
            continue;
        }
        EXPECT_EQ((Texts{"ValueChanged", "Updated", "ValueChanged", "Updated", "ValueChanged",
                         "Updated"}),
                  log.order);
        EXPECT_EQ((Texts{"1", "2", "3"}), log.typedOld);
        EXPECT_EQ((Texts{"1", "2", "3"}), log.genericOld);
        EXPECT_EQ((Texts{"2", "3", "3"}), log.valueSeen) << "events come after the store";
        EXPECT_EQ(3u, owner.events.size());
    }
}

// Without subscribers only the owner's handler sees a change: the previous value is there when
// it asks, and payloads it keeps past the write keep theirs, copied or assigned.
TEST(Property, OwnerReadsThePreviousValueWithoutSubscribers) {
    struct Keeper : TestObject {
        void onPropertyUpdate(const Payload& payload) override {
            if (payload.getEvent() == Payload::PROPERTY_VALUE_CHANGED) kept.push_back(payload);
        }
        std::vector<Payload> kept;
    };
    Keeper owner;
    PropertyString text("t", &owner, S("a"));
    PropertyInteger number("n", &owner, Number(1, {}, {}, {}));
    owner.registerProperty("t", &text);
    owner.registerProperty("n", &number);
    EXPECT_TRUE(text.setValue("b"));
    EXPECT_TRUE(text.setValueFromString("c"));
    EXPECT_TRUE(number.setValue(2));
    ASSERT_EQ(3u, owner.kept.size());
    EXPECT_EQ("a", owner.kept[0].m_previousValue.convert<std::string>());
    EXPECT_EQ("b", owner.kept[1].getPreviousValue().convert<std::string>());
    EXPECT_EQ(1, owner.kept[2].getPreviousValue().convert<long>());
    Payload assigned(&text, Payload::PROPERTY_OWNER_CHANGED);
    assigned = owner.kept[0];
    EXPECT_EQ(&text, assigned.getSourceProperty());
    EXPECT_EQ("a", assigned.getPreviousValue().convert<std::string>());
}

TEST(Property, WithoutOwnerEveryWriteIsAllowed) {
    PropertyInteger property("k", Number(1, {}, {}, {}));
    EventLog<PropertyInteger> log(property);
    EXPECT_TRUE(property.getLock().isNull());
    EXPECT_TRUE(property.setValue(4));
    EXPECT_EQ((Texts{"ValueChanged", "Updated"}), log.order);
    property.registerAtOwner();
    EXPECT_EQ(nullptr, property.getParent());
}

TEST(Property, ReplacingTheValueObjectReplacesItsConstraints) {
    TestObject owner;
    PropertyInteger property("k", &owner, Number(1, {}, 5, {}));
    owner.registerProperty("k", &property);
    EventLog<PropertyInteger> log(property);
    EXPECT_TRUE(property.setPropertyValue(Number(50, {}, 100, {})));
    EXPECT_TRUE(property.setValue(60));
    property = PropertyInteger("other", Number(7, {}, {}, {}));
    EXPECT_EQ(7, property.getValue());
    EXPECT_EQ("k", property.getKey());
    EXPECT_EQ(6u, log.order.size());

    const PropertyInteger copy(property, &owner);
    EXPECT_EQ(&owner, copy.getParent());
    EXPECT_EQ(&property, owner.getProperty("k")) << "a copy does not register itself";
    EXPECT_EQ(nullptr, PropertyInteger(property).getParent());
}

TEST(Property, DestroyedIsRaisedOnceWhileTheValueIsStillReadable) {
    TestObject owner;
    struct Watcher {
        Texts seen;
        void onDestroyed(const void*, Payload& payload) {
            EXPECT_EQ(Payload::PROPERTY_DESTROYED, payload.getEvent());
            seen.push_back(payload.getSourceProperty()->getKey() + "=" +
                           payload.getSourceProperty()->getPropertyValueBase().toString());
        }
    } watcher;
    {
        PropertyInteger property("k", &owner, Number(42, {}, {}, {}));
        owner.registerProperty("k", &property);
        property.Destroyed += Poco::delegate(&watcher, &Watcher::onDestroyed);
    }
    EXPECT_EQ(Texts{"k=42"}, watcher.seen);
    EXPECT_TRUE(owner.knowsProperty("k"));
    EXPECT_FALSE(owner.hasProperty("k"));
}

struct ArrayRow {
    const char* name;
    std::string before;  // JSON text
    std::function<bool(PropertyStringArray&)> operation;
    bool accepted;
    std::string after;  // JSON text
};

TEST(PropertyArray, RaisesValueChangedThenUpdatedOnlyForAcceptedChanges) {
    const PropertyValueCustomString digits(S::UNDEFINED_VALUE, "[0-9]+");
    const std::vector<ArrayRow> rows = {
        {"clear", R"(["a", "b"])", [](auto& p) { return p.clear(); }, true, "[]"},
        {"clear empty", "[]", [](auto& p) { return p.clear(); }, true, "[]"},
        {"add text", R"(["a"])", [](auto& p) { return p.addElement("b"); }, true, R"(["a","b"])"},
        {"add element", R"(["b"])", [](auto& p) { return p.addElement(S("a")); }, true,
         R"(["a","b"])"},
        {"remove", R"(["a", "a"])", [](auto& p) { return p.removeElement(S("a")); }, true,
         R"(["a"])"},
        {"remove absent", R"(["a"])", [](auto& p) { return p.removeElement(S("z")); }, false,
         R"(["a"])"},
        {"set default", R"(["1"])", [&](auto& p) { return p.setDefaultElement(digits); }, true,
         R"(["1"])"},
        {"set default refused", R"(["a"])", [&](auto& p) { return p.setDefaultElement(digits); },
         false, R"(["a"])"},
    };
    for (const bool denied : {false, true}) {
        for (const ArrayRow& row : rows) {
            const std::string name = std::string(row.name) + (denied ? ", owner denies" : "");
            TestObject owner;
            PropertyStringArray property("tags", &owner, PropertyStringArray::property_value());
            ASSERT_TRUE(property.setValueFromString(row.before)) << name;
            const std::string before = property.getPropertyValue().toString();
            PropertyStringArray::property_value after;
            ASSERT_TRUE(after.setValueFromString(denied ? row.before : row.after)) << name;
            if (denied) owner.denyWrite("tags");
            EventLog<PropertyStringArray> log(property);

            const bool accepted = row.accepted && !denied;
            EXPECT_EQ(accepted, row.operation(property)) << name;
            EXPECT_EQ(after.toString(), property.getPropertyValue().toString()) << name;
            EXPECT_EQ(accepted ? (Texts{"ValueChanged", "Updated"}) : Texts(), log.order) << name;
            EXPECT_EQ(accepted ? Texts{before} : Texts(), log.typedOld) << name;
            EXPECT_EQ(log.typedOld, log.genericOld) << name;
        }
    }
    const PropertyServiceCategoryArray categories("c", nullptr, {});
    const PropertyVersionArray versions("v", nullptr, {});
    EXPECT_TRUE(categories.isArray() && versions.isArray());
    EXPECT_FALSE(categories.isReference());
    PropertyString text("t", nullptr, S("x"));
    EXPECT_FALSE(text.isArray());
    EXPECT_FALSE(text.clear()) << "a plain property has no empty state";
}

}  // namespace
}  // namespace Kivo::Data::Base
