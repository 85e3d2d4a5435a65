#include <functional>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/JSON/Array.h>
#include <gtest/gtest.h>

#include "Data/Base/Property.h"
#include "TestObject.h"

namespace Kivo::Data::Base {
namespace {

using Kivo::Test::TestObject;
typedef PropertyValueString S;
typedef std::vector<std::string> Texts;

// Records the change events of one string-array property, in arrival order, with the old
// content each carries.
struct EventLog {
    explicit EventLog(PropertyStringArray& property) : m_property(property) {
        m_property.ValueChanged += Poco::delegate(this, &EventLog::onValueChanged);
        m_property.Updated += Poco::delegate(this, &EventLog::onUpdated);
    }
    ~EventLog() {
        m_property.ValueChanged -= Poco::delegate(this, &EventLog::onValueChanged);
        m_property.Updated -= Poco::delegate(this, &EventLog::onUpdated);
    }

    void onValueChanged(const void*, PropertyStringArray::ValueChangedEventPayload& payload) {
        order.push_back("ValueChanged");
        EXPECT_EQ(&m_property, payload.concreteSource);
        EXPECT_EQ(PropertyEventPayload::PROPERTY_VALUE_CHANGED, payload.getEvent());
        typedOld.push_back(Texts(payload.oldValue));
    }

    void onUpdated(const void*, PropertyEventPayload& payload) {
        order.push_back("Updated");
        EXPECT_EQ(&m_property, payload.getSourceProperty());
        EXPECT_EQ(PropertyEventPayload::PROPERTY_VALUE_CHANGED, payload.getEvent());
        Texts old;
        for (const auto& item : *payload.getPreviousValue().extract<Poco::JSON::Array::Ptr>()) {
            old.push_back(item.convert<std::string>());
        }
        genericOld.push_back(old);
    }

    PropertyStringArray& m_property;
    Texts order;
    std::vector<Texts> typedOld;
    std::vector<Texts> genericOld;
};

struct OperationRow {
    const char* name;
    std::string before;  // JSON text
    std::function<bool(PropertyStringArray&)> operation;
    bool accepted;
    Texts after;
};

std::vector<OperationRow> operationRows() {
    const PropertyValueCustomString digits(S::UNDEFINED_VALUE, "[0-9]+");
    return {
        {"clear", R"(["a", "b"])", [](PropertyStringArray& p) { return p.clear(); }, true, {}},
        {"clear empty", "[]", [](PropertyStringArray& p) { return p.clear(); }, true, {}},
        {"add text",
         R"(["a"])",
         [](PropertyStringArray& p) { return p.addElement("b"); },
         true,
         {"a", "b"}},
        {"add element",
         R"(["b"])",
         [](PropertyStringArray& p) { return p.addElement(S("a")); },
         true,
         {"a", "b"}},
        {"remove",
         R"(["a", "a"])",
         [](PropertyStringArray& p) { return p.removeElement(S("a")); },
         true,
         {"a"}},
        {"remove absent",
         R"(["a"])",
         [](PropertyStringArray& p) { return p.removeElement(S("z")); },
         false,
         {"a"}},
        {"set default",
         R"(["1"])",
         [digits](PropertyStringArray& p) { return p.setDefaultElement(digits); },
         true,
         {"1"}},
        {"set default refused",
         R"(["a"])",
         [digits](PropertyStringArray& p) { return p.setDefaultElement(digits); },
         false,
         {"a"}},
    };
}

TEST(PropertyArray, RaisesValueChangedThenUpdatedOnlyForAcceptedChanges) {
    for (const bool denied : {false, true}) {
        for (const OperationRow& row : operationRows()) {
            const std::string name = std::string(row.name) + (denied ? ", owner denies" : "");
            TestObject owner;
            PropertyStringArray property("tags", &owner, PropertyStringArray::property_value());
            ASSERT_TRUE(property.setValueFromString(row.before)) << name;
            const Texts before(property.getPropertyValue());
            if (denied) owner.denyWrite("tags");
            EventLog log(property);

            const bool accepted = row.accepted && !denied;
            EXPECT_EQ(accepted, row.operation(property)) << name;
            EXPECT_EQ(denied ? before : row.after, Texts(property)) << name;
            if (!accepted) {
                EXPECT_TRUE(log.order.empty()) << name;
                continue;
            }
            EXPECT_EQ((Texts{"ValueChanged", "Updated"}), log.order) << name;
            EXPECT_EQ(std::vector<Texts>{before}, log.typedOld) << name;
            EXPECT_EQ(std::vector<Texts>{before}, log.genericOld) << name;
        }
    }
}

TEST(PropertyArray, IsAnArrayForEveryInstantiation) {
    const PropertyStringArray strings("s", nullptr, PropertyStringArray::property_value());
    const PropertyServiceCategoryArray categories("c", nullptr, {});
    const PropertyVersionArray versions("v", nullptr, {});
    for (const PropertyBase* property :
         {static_cast<const PropertyBase*>(&strings), static_cast<const PropertyBase*>(&categories),
          static_cast<const PropertyBase*>(&versions)}) {
        EXPECT_TRUE(property->isArray()) << property->getKey();
        EXPECT_FALSE(property->isReference()) << property->getKey();
    }
    PropertyString text("t", nullptr, S("x"));
    EXPECT_FALSE(text.isArray());
    EXPECT_FALSE(text.clear()) << "a plain property has no empty state";
}

}  // namespace
}  // namespace Kivo::Data::Base
