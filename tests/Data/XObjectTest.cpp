#include "Data/XObject.h"

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueString;
using Base::PropertyValueUri;
using Base::PropertyValueUuid;
using Kivo::Test::ScopedLogCapture;

const char* const ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

Poco::JSON::Object::Ptr parse(const std::string& text) {
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

// Exposes the owner-side API.
class Identified : public XObject {
public:
    explicit Identified(const Type& type = Type("Thing")) : XObject(type) {}
    Identified(const std::string& name, const PropertyValueUuid& id)
        : XObject(Type("Thing", Type("Root")), PropertyValueString(name), id) {}
    Identified(const Type& type, const Poco::JSON::Object* json) : XObject(type, json) {}

    using XObject::initPropertyFromJSON;
    using XObject::initXObjectFromJSON;
    using XObject::setId;
    using XObject::setName;
    using XObject::setOwnPropertyValueFromString;
    using XObject::setUri;
};

TEST(XObject, ConstructorsSetIdentity) {
    const Identified plain;
    EXPECT_TRUE(plain.getIdentification().isNull());
    EXPECT_EQ("", plain.getName().getValue());
    EXPECT_TRUE(plain.getUri().getValue().empty());
    EXPECT_EQ((std::vector<std::string>{"id", "name", "uri"}), plain.getPropertyKeys());

    const Identified named("alpha", PropertyValueUuid(std::string(ID)));
    EXPECT_EQ(std::string(ID), named.getIdentification().toString());
    EXPECT_EQ("alpha", named.getName().getValue());
    EXPECT_EQ(std::string("/Root/") + ID, named.getUri().getValue().toString());

    std::ostringstream text;
    named.toJSON(5)->stringify(text);
    EXPECT_EQ(std::string(R"({"id":")") + ID + R"(","name":"alpha","uri":"/Root/)" + ID + R"("})",
              text.str());

    const Identified copy(named);
    EXPECT_EQ(named.getIdentification(), copy.getIdentification());
    EXPECT_EQ("alpha", copy.getName().getValue());
    EXPECT_NE(named.getLock().get(), copy.getLock().get());
    EXPECT_EQ(&copy, copy.getName().getParent());
}

TEST(XObject, OnlyTheOwnerChangesIdentity) {
    Identified object("alpha", PropertyValueUuid(std::string(ID)));
    auto& name = const_cast<Base::PropertyString&>(object.getName());
    auto& id = const_cast<Base::PropertyUuid&>(object.getId());
    auto& uri = const_cast<Base::PropertyUri&>(object.getUri());

    EXPECT_FALSE(name.setValueFromString("mallory"));
    EXPECT_FALSE(name.setValue(std::string("mallory")));
    EXPECT_FALSE(id.setValue(PropertyValueUuid()));
    EXPECT_FALSE(uri.setValueFromString("/elsewhere"));
    EXPECT_EQ("alpha", name.getValue());
    EXPECT_EQ(std::string(ID), object.getIdentification().toString());

    EXPECT_TRUE(object.setOwnPropertyValueFromString("beta", name));
    EXPECT_TRUE(object.setName(PropertyValueString("gamma")));
    EXPECT_TRUE(object.setUri(PropertyValueUri(std::string("/x"))));
    EXPECT_EQ("gamma", name.getValue());
    EXPECT_EQ("/x", uri.getValue().toString());
    EXPECT_FALSE(name.setValueFromString("mallory")) << "owner access must not outlive the write";
}

TEST(XObject, SettingTheSameIdTwiceNotifiesOnce) {
    Identified object;
    int changes = 0;
    struct Counter {
        int* changes;
        void onChanged(const void*, Base::PropertyUuid::ValueChangedEventPayload&) { ++*changes; }
    } counter{&changes};
    auto& id = const_cast<Base::PropertyUuid&>(object.getId());
    id.ValueChanged += Poco::delegate(&counter, &Counter::onChanged);
    const PropertyValueUuid fresh;
    EXPECT_TRUE(object.setId(fresh));
    EXPECT_TRUE(object.setId(fresh));
    EXPECT_EQ(1, changes);
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
    const std::string id = std::string(R"({"id":")") + ID + R"(",)";
    const Row rows[] = {
        {id + R"("name":"alpha"})", OperationResult::UNKNOWN_PROPERTY, "alpha",
         "Error: Failed to init property uri for Thing: not found in JSON Object."},
        {id + R"("name":"alpha","uri":null})", OperationResult::UNKNOWN_PROPERTY, "alpha",
         "Error: Failed to init property uri for Thing: not found in JSON Object."},
        {R"({"id":"not-a-uuid","name":"alpha","uri":"/a"})", OperationResult::INVALID_VALUE, "",
         "Error: Failed to init property id for Thing: invalid value"},
        {id + R"("name":"alpha","uri":"http://h:x/"})", OperationResult::INVALID_VALUE, "alpha",
         "Error: Failed to init property uri for Thing: invalid value"},
        {id + R"("name":7,"uri":"/a/b"})", OperationResult::OK, "7", nullptr},
    };
    for (const Row& row : rows) {
        capture.channel().clear();
        Identified object;
        const Poco::JSON::Object::Ptr json = parse(row.json);
        EXPECT_EQ(row.result, object.initXObjectFromJSON(json.get()).value()) << row.json;
        EXPECT_EQ(row.name, object.getName().getValue()) << row.json;
        const std::vector<std::string> texts = capture.texts();
        if (row.log == nullptr) {
            EXPECT_TRUE(texts.empty()) << row.json;
        } else {
            EXPECT_EQ(row.log, texts.empty() ? std::string() : texts.back()) << row.json;
        }
    }

    capture.channel().clear();
    Identified object;
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, object.initXObjectFromJSON(nullptr).value());
    EXPECT_EQ(std::vector<std::string>{
                  "Error: Tried to initialise XObject properties from NULL-Pointer"},
              capture.texts());
}

TEST(XObject, JsonConstructorThrowsOnFailure) {
    const Poco::JSON::Object::Ptr good =
        parse(R"({"id":")" + std::string(ID) + R"(","name":"n","uri":"/Thing/x"})");
    const Identified made(XObject::Type("Thing"), good.get());
    EXPECT_EQ("/Thing/x", made.getUri().getValue().toString());

    const Poco::JSON::Object::Ptr bad = parse(R"({"name":"n"})");
    try {
        Identified failed(XObject::Type("Thing"), bad.get());
        FAIL() << "no exception";
    } catch (const Poco::DataException& error) {
        EXPECT_EQ("Failed to initialise XObject from JSON object!", error.message());
    }
}

TEST(XObject, ExceptionWhileApplyingIsLoggedWithoutSeparator) {
    struct Opaque {};
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    Identified object;
    Poco::JSON::Object json;
    json.set("id", Poco::Dynamic::Var(Opaque()));
    auto& id = const_cast<Base::PropertyUuid&>(object.getId());
    EXPECT_THROW(object.initPropertyFromJSON(&json, id), Poco::BadCastException);
    ASSERT_EQ(1u, capture.texts().size());
    EXPECT_EQ("Error: Failed to init property idBad cast exception", capture.texts()[0]);
}

TEST(XObject, OrdersByNameThenId) {
    const PropertyValueUuid low(std::string("00000000-0000-1000-8000-000000000001"));
    const PropertyValueUuid high(std::string("ffffffff-0000-1000-8000-000000000001"));
    const Identified a1("a", low);
    const Identified a2("a", high);
    const Identified b1("b", low);
    EXPECT_TRUE(a1 < a2);
    EXPECT_TRUE(a2 > a1);
    EXPECT_TRUE(a2 < b1) << "the name decides before the id";
    EXPECT_TRUE(b1 > a2);
    EXPECT_FALSE(a1 < a1);
    EXPECT_TRUE(a1 == b1) << "equality is the id's";
    EXPECT_TRUE(a1 != a2);
}

TEST(XObject, DestroyedSeesTheWholeObject) {
    std::vector<std::string> seen;
    struct Watcher {
        std::vector<std::string>* seen;
        void onDestroyed(const void* sender, const XObject& object) {
            EXPECT_EQ(&object, sender);
            seen->push_back(object.getName().getValue() + " " +
                            std::to_string(object.getPropertyKeys().size()));
        }
    } watcher{&seen};
    {
        Identified object("alpha", PropertyValueUuid());
        object.Destroyed += Poco::delegate(&watcher, &Watcher::onDestroyed);
    }
    EXPECT_EQ(std::vector<std::string>{"alpha 3"}, seen);
}

}  // namespace
}  // namespace Kivo::Data
