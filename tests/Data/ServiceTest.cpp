#include "Data/Service.h"

#include <memory>
#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "Data/XObjectReference.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueUuid;
using Kivo::Test::jsonText;
using Kivo::Test::parseObject;
using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestElement;
using Kivo::Test::TestResource;
using Items = Kivo::Test::TestContainer<TestElement>;

const char* const ID = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

Poco::JSON::Array::Ptr parseArray(const std::string& text) {
    return Kivo::Test::parseValue(text).extract<Poco::JSON::Array::Ptr>();
}

// A valid description of the service "Media", with `member` replaced by `value` (JSON text) or
// removed when `value` is empty.
Poco::JSON::Object::Ptr description(const std::string& member = "", const std::string& value = "") {
    Poco::JSON::Object::Ptr json = parseObject(
        std::string(R"({"id":")") + ID +
        R"(","name":"Media","uri":"/Media","description":"music","port":8080,)"
        R"("serviceCategories":["media","radio"],"privileges":["play"],"versions":["1.2"]})");
    if (!member.empty()) {
        json->remove(member);
        if (!value.empty()) json->set(member, parseObject("{\"v\":" + value + "}")->get("v"));
    }
    return json;
}

// The description of a resource, as initResourceFromJSON reads it.
Poco::JSON::Object::Ptr resourceJSON(const std::string& name, const std::string& uri) {
    return parseObject(std::string(R"({"id":")") + ID + R"(","name":")" + name + R"(","uri":")" +
                       uri + R"(","description":"d"})");
}

TEST(Service, InitFromJSONChecksEveryPropertyNameAndUri) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    struct Row {
        const char* member;
        const char* value;  // empty: removed
        const char* log;
    };
    const Row rows[] = {
        {"versions", "",
         "Error: Failed to init property versions for Media: not found in JSON Object."},
        {"serviceCategories", R"(["media","Foo"])",
         "Error: Failed to init property serviceCategories for Media: invalid value"},
        {"port", "70000", "Error: Failed to init property port for Media: invalid value"},
        {"name", R"("Other")",
         "Error: Error while parsing service properties from JSON object: Service name is "
         "different to Service type name!"},
        {"uri", R"("/Media/extra")",
         "Error: Error while parsing service properties from JSON object: Service URI is invalid!"},
        {"uri", R"("/Other")",
         "Error: Error while parsing service properties from JSON object: Service URI is invalid!"},
    };
    for (const Row& row : rows) {
        Service service("Media", "", 1, PropertyValueUuid());
        capture.channel().clear();
        const auto json = description(row.member, row.value);
        EXPECT_FALSE(service.initFromJSON(json.get())) << row.member << " " << row.value;
        EXPECT_EQ(std::vector<std::string>{row.log}, capture.texts()) << row.member;
        EXPECT_FALSE(service.isInitialisedFromJSON());
    }

    Service service("Media", "", 1, PropertyValueUuid());
    EXPECT_EQ((std::vector<std::string>{"description", "id", "name", "port", "privileges",
                                        "serviceCategories", "uri", "versions"}),
              service.getPropertyKeys());
    EXPECT_EQ("/Media", service.getUri().getValue().toString());
    capture.channel().clear();
    EXPECT_FALSE(service.initFromJSON(nullptr));
    EXPECT_EQ(std::vector<std::string>{"Error: Tried to create service object from NULL-Pointer"},
              capture.texts());
    const auto json = description();
    ASSERT_TRUE(service.initFromJSON(json.get()));
    EXPECT_TRUE(service.isInitialisedFromJSON());
    EXPECT_EQ(jsonText(json), jsonText(service.toJSON(0))) << "the description round-trips";
}

TEST(Service, ResourcesRegisterByNameAndAreFoundCaseInsensitively) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    Service service("Media", "music", 1, PropertyValueUuid(ID));
    TestResource tracks(service, "Tracks");
    TestResource albums(service, "Albums");
    EXPECT_EQ(&tracks, service.getResource("tracks"));
    EXPECT_EQ(&tracks, service.getResource("TRACKS"));
    EXPECT_EQ(nullptr, service.getResource("radio"));
    EXPECT_EQ("/Media/Tracks", tracks.getUri().getValue().toString());

    EXPECT_THROW(TestResource(service, "Tracks"), Poco::AssertionViolationException);
    EXPECT_EQ(&tracks, service.getResource("Tracks")) << "the first registration stays";
    // The refused resource's destructor cannot unregister what it never registered.
    EXPECT_EQ((std::vector<std::string>{
                  "Error: Failed to register resource Tracks. Resource name is already in use.",
                  "Error: Failed to unregister resource Tracks from parent service Media"}),
              capture.texts());

    const auto resources = service.getDataAsJSON(0)->getArray("resources");
    ASSERT_EQ(2u, resources->size());
    EXPECT_EQ("Albums", resources->getObject(0)->getValue<std::string>("name")) << "name order";
    EXPECT_FALSE(resources->getObject(0)->has("elements"));
    EXPECT_TRUE(
        service.getDataAsJSON(true, 0)->getArray("resources")->getObject(1)->has("elements"));

    capture.channel().clear();
    {
        Service other("Other", "", 1, PropertyValueUuid());
        ASSERT_TRUE(other.registerResource(&tracks));
    }
    EXPECT_EQ((std::vector<std::string>{"Critical: Service object Other is destroyed before all "
                                        "dependent resource objects have been deleted!"}),
              capture.texts());
}

// Makes the resource "Extra" on demand.
class OnDemandService : public Service {
public:
    OnDemandService() : Service("Media", "", 1, PropertyValueUuid()) {}

    std::unique_ptr<TestResource> extra;

protected:
    AbstractResource* createOptionalResource(const std::string& name) override {
        if (name != "Extra" || extra) return nullptr;
        extra = std::make_unique<TestResource>(*this, "Extra");
        return extra.get();
    }
};

TEST(Service, ResourceDescriptions) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    OnDemandService service;
    TestResource tracks(service, "Tracks");
    const auto good = parseArray("[" + jsonText(resourceJSON("tracks", "/Media/Tracks")) + "," +
                                 jsonText(resourceJSON("Extra", "/Media/Extra")) + "]");
    ASSERT_TRUE(service.initResourcesFromJSON(good.get()));
    EXPECT_EQ("d", tracks.getDescription().getValue());
    ASSERT_NE(nullptr, service.extra);
    EXPECT_EQ("d", service.extra->getDescription().getValue());
    EXPECT_TRUE(capture.texts().empty());

    const std::string noName =
        "Error: Failed to init service resource from JSON: Invalid JSON data. Could not find "
        "property 'name'.";
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {R"([{"description":"no name"}])", {noName}},
        {R"([5])", {noName}},
        {R"([{"name":"Albums"}])",
         {"Error: Failed to parse Service resource from JSON: Resource name 'Albums' is unknown"}},
        {R"([{"name":"Tracks","id":"6ba7b810-9dad-11d1-80b4-00c04fd430c8","uri":"/Media/Tracks"}])",
         {"Error: Failed to init property description for Tracks: not found in JSON Object.",
          "Error: Failed to initialise resource object from JSON:  could not initialise property "
          "description",
          "Error: Failed to parse resource Tracksof service Media"}},
    };
    for (auto [json, log] : rows) {
        capture.channel().clear();
        EXPECT_FALSE(service.initResourcesFromJSON(parseArray(json).get())) << json;
        log.push_back("Error: Failed to initialise a service resource from JSON.");
        EXPECT_EQ(log, capture.texts()) << json;
    }
}

// Not convertible to text: a description member of this type makes initialisation throw.
struct Opaque {};

// The element with ID in the resource at `resourceUri`, or null.
XObject* resolved(const Service& service, const std::string& resourceUri) {
    const auto placeholder = DummyObject::createFromUri(resourceUri + "/" + ID);
    XObject* result = nullptr;
    return service.resolve(placeholder.get(), result) ? result : nullptr;
}

// Resolution follows a resource's URI, and a resource leaves the map and the resolver by
// identity, so no lookup reaches a destroyed one (ASan reports any that does).
TEST(Service, ResolvesTheElementsOfItsResourcesWhileTheyLive) {
    Service service("Media", "", 1, PropertyValueUuid());
    Items tracks(service, "Tracks");
    const auto element = parseObject(std::string(R"({"id":")") + ID + R"(","title":"a"})");
    ASSERT_TRUE(tracks.addElement(element.get()).isSuccess());
    AbstractResource::Ptr held;
    ASSERT_TRUE(tracks.getElement(Poco::UUID(ID), held).isSuccess());
    EXPECT_EQ(held.get(), resolved(service, "/Media/Tracks"));
    EXPECT_EQ(nullptr, resolved(service, "/Media/Albums"));

    ASSERT_TRUE(service.initResourceFromJSON(resourceJSON("Tracks", "/Media/Songs").get()));
    EXPECT_EQ(held.get(), resolved(service, "/Media/Songs"));
    EXPECT_EQ(nullptr, resolved(service, "/Media/Tracks"));
    auto throwing = resourceJSON("Tracks", "/Media/Songs");
    throwing->set("description", Opaque());
    EXPECT_THROW(service.initResourceFromJSON(throwing.get()), Poco::BadCastException);
    EXPECT_EQ(held.get(), resolved(service, "/Media/Songs")) << "still filed after the throw";

    // Names that differ only in case: destroying one removes exactly that one.
    auto lower = std::make_unique<Items>(service, "tracks");
    ASSERT_TRUE(lower->addElement(element.get()).isSuccess());
    lower.reset();
    EXPECT_EQ((Service::ResourceMap{{"Tracks", &tracks}}), service.getResources());
    EXPECT_EQ(1u, service.getDataAsJSON(0)->getArray("resources")->size());
    EXPECT_EQ(nullptr, resolved(service, "/Media/tracks"));
    // Moved by its own initialisation, never re-filed by the service: as it goes it leaves
    // nothing behind under its old URI and does not take out the resource at its new one.
    auto moved = std::make_unique<Items>(service, "Moved");
    ASSERT_TRUE(moved->addElement(element.get()).isSuccess());
    ASSERT_TRUE(
        moved->initResourceFromJSON(resourceJSON("Moved", "/Media/Songs").get()).isSuccess());
    moved.reset();
    EXPECT_EQ(nullptr, resolved(service, "/Media/Moved"));
    EXPECT_EQ(held.get(), resolved(service, "/Media/Songs"));
    EXPECT_EQ((LocalReferenceResolver::SourceList{&tracks}),
              service.getLocalResolver().getSources());
}

}  // namespace
}  // namespace Kivo::Data
