#include "Data/XObject.h"

#include <sstream>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueString;
using Base::PropertyValueUuid;
using Kivo::Test::parseObject;
using Kivo::Test::ScopedLogCapture;

const std::string ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

// Exposes the owner-side API.
class Identified : public XObject {
public:
    Identified() : XObject(Type("Thing")) {}
    Identified(const std::string& name, const PropertyValueUuid& id)
        : XObject(Type("Thing", Type("Root")), PropertyValueString(name), id) {}
    Identified(const Type& type, const Poco::JSON::Object* json) : XObject(type, json) {}
    using XObject::initPropertyFromJSON;
    using XObject::initXObjectFromJSON;
    using XObject::setId;
    using XObject::setName;
    using XObject::setOwnPropertyValueFromString;
};

TEST(XObject, IdentityIsTheOwnersToSet) {
    Identified object("alpha", PropertyValueUuid(ID));
    std::ostringstream text;
    object.toJSON(5)->stringify(text);
    EXPECT_EQ(R"({"id":")" + ID + R"(","name":"alpha","uri":"/Root/)" + ID + R"("})", text.str());
    const Identified copy(object);
    EXPECT_EQ(object.getIdentification(), copy.getIdentification());
    EXPECT_NE(object.getLock().get(), copy.getLock().get());
    EXPECT_EQ(&copy, copy.getName().getParent());

    auto& name = const_cast<Base::PropertyString&>(object.getName());
    auto& id = const_cast<Base::PropertyUuid&>(object.getId());
    EXPECT_FALSE(name.setValueFromString("mallory"));
    EXPECT_FALSE(id.setValue(PropertyValueUuid()));
    EXPECT_FALSE(const_cast<Base::PropertyUri&>(object.getUri()).setValueFromString("/elsewhere"));
    EXPECT_TRUE(object.setOwnPropertyValueFromString("beta", name));
    EXPECT_EQ("beta", name.getValue());
    EXPECT_FALSE(name.setValueFromString("mallory")) << "owner access must not outlive the write";

    int changes = 0;
    struct Counter {
        int* changes;
        void onChanged(const void*, Base::PropertyUuid::ValueChangedEventPayload&) { ++*changes; }
    } counter{&changes};
    id.ValueChanged += Poco::delegate(&counter, &Counter::onChanged);
    const PropertyValueUuid fresh;
    EXPECT_TRUE(object.setId(fresh));
    EXPECT_TRUE(object.setId(fresh));
    EXPECT_EQ(1, changes) << "the same id twice notifies once";
    id.ValueChanged -= Poco::delegate(&counter, &Counter::onChanged);
}

TEST(XObject, JsonInitialisationStopsAtTheFirstFailure) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    struct Row {
        std::string json;
        OperationResult::Value result;
        const char* name;  // the name once it failed
        const char* log;
    };
    const std::string id = R"({"id":")" + ID + R"(",)";
    const char* const NO_URI =
        "Error: Failed to init property uri for Thing: not found in JSON Object.";
    const Row rows[] = {
        {id + R"("name":"alpha"})", OperationResult::UNKNOWN_PROPERTY, "alpha", NO_URI},
        {id + R"("name":"alpha","uri":null})", OperationResult::UNKNOWN_PROPERTY, "alpha", NO_URI},
        {R"({"id":"not-a-uuid","name":"alpha","uri":"/a"})", OperationResult::INVALID_VALUE, "",
         "Error: Failed to init property id for Thing: invalid value"},
        {id + R"("name":"alpha","uri":"http://h:x/"})", OperationResult::INVALID_VALUE, "alpha",
         "Error: Failed to init property uri for Thing: invalid value"},
        {id + R"("name":7,"uri":"/a/b"})", OperationResult::OK, "7", nullptr},
    };
    for (const Row& row : rows) {
        capture.channel().clear();
        Identified object;
        EXPECT_EQ(row.result, object.initXObjectFromJSON(parseObject(row.json).get()).value())
            << row.json;
        EXPECT_EQ(row.name, object.getName().getValue()) << row.json;
        const std::vector<std::string> texts = capture.texts();
        EXPECT_EQ(row.log ? row.log : "", texts.empty() ? "" : texts.back()) << row.json;
    }
    capture.channel().clear();
    Identified object;
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, object.initXObjectFromJSON(nullptr).value());
    EXPECT_EQ(
        std::vector<std::string>{"Error: Tried to initialise XObject properties from NULL-Pointer"},
        capture.texts());

    // An exception while applying a member passes through, logged without a separator.
    capture.channel().clear();
    struct Opaque {};
    Poco::JSON::Object json;
    json.set("id", Poco::Dynamic::Var(Opaque()));
    auto& objectId = const_cast<Base::PropertyUuid&>(object.getId());
    EXPECT_THROW(object.initPropertyFromJSON(&json, objectId), Poco::BadCastException);
    EXPECT_EQ(std::vector<std::string>{"Error: Failed to init property idBad cast exception"},
              capture.texts());

    const auto good = parseObject(R"({"id":")" + ID + R"(","name":"n","uri":"/Thing/x"})");
    EXPECT_EQ("/Thing/x",
              Identified(XObject::Type("Thing"), good.get()).getUri().getValue().toString());
    try {
        Identified failed(XObject::Type("Thing"), parseObject(R"({"name":"n"})").get());
        FAIL() << "the JSON constructor accepted an object without id";
    } catch (const Poco::DataException& error) {
        EXPECT_EQ("Failed to initialise XObject from JSON object!", error.message());
    }
}

TEST(XObject, OrdersByNameThenIdAndEqualsById) {
    const PropertyValueUuid low(std::string("00000000-0000-1000-8000-000000000001"));
    const PropertyValueUuid high(std::string("ffffffff-0000-1000-8000-000000000001"));
    const Identified a1("a", low), a2("a", high), b1("b", low);
    EXPECT_TRUE(a1 < a2);
    EXPECT_TRUE(a2 > a1);
    EXPECT_TRUE(a2 < b1) << "the name decides before the id";
    EXPECT_FALSE(a1 < a1);
    EXPECT_TRUE(a1 == b1);
    EXPECT_TRUE(a1 != a2);
}

}  // namespace
}  // namespace Kivo::Data
