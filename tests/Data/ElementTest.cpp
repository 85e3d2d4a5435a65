#include "Data/Element.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Kivo::Test::DataChangedRecorder;
using Kivo::Test::ElementTree;
using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestElement;

Poco::JSON::Object::Ptr parse(const std::string& text) {
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

std::string text(const Poco::JSON::Object::Ptr& json) {
    std::ostringstream out;
    json->stringify(out);
    return out.str();
}

// A DataChanged for "count" alone: no test raises one except drain().
bool isMarker(const DataChangedRecorder::Payload& payload) {
    return payload.getSourcePropertyKeys() == KeyCollection{"count"};
}

// Raises a marker DataChanged and waits for it. Deliveries keep the order of the raises, so
// every event raised before the marker has arrived by then.
void drain(TestElement& element, DataChangedRecorder& recorder) {
    ASSERT_TRUE(element.setProperty("count", std::to_string(element.count.getValue() + 1))
                    .isSuccess());
    ASSERT_TRUE(recorder.waitUntil([](const std::vector<DataChangedRecorder::Payload>& payloads) {
        return std::any_of(payloads.begin(), payloads.end(), isMarker);
    }));
}

class ElementTest : public ::testing::Test {
protected:
    ElementTest() { recorder.subscribe(element); }
    ~ElementTest() override { recorder.unsubscribe(element); }

    // Deliveries that came before the marker raised by drain().
    std::vector<KeyCollection> eventsBeforeDrain() {
        drain(element, recorder);
        std::vector<KeyCollection> keys;
        for (const auto& payload : recorder.payloads()) {
            if (isMarker(payload)) break;
            keys.push_back(payload.getSourcePropertyKeys());
        }
        return keys;
    }

    ElementTree tree;
    TestElement element{tree.resource};
    DataChangedRecorder recorder;
};

TEST_F(ElementTest, SetPropertyResults) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    EXPECT_EQ(OperationResult::OK, element.setProperty("title", "hello").value());
    EXPECT_EQ(OperationResult::INVALID_VALUE, element.setProperty("count", "101").value());
    EXPECT_EQ(OperationResult::INVALID_VALUE, element.setProperty("count", "many").value());
    EXPECT_EQ(OperationResult::FORBIDDEN, element.setProperty("readonly", "x").value());
    element.writable.insert("ghost");
    EXPECT_EQ(OperationResult::UNKNOWN_PROPERTY, element.setProperty("ghost", "x").value());
    EXPECT_EQ(OperationResult::FORBIDDEN, element.setProperty("id", "x").value());
    EXPECT_EQ("hello", element.title.getValue());
    EXPECT_EQ(0, element.count.getValue());
    EXPECT_EQ((std::vector<std::string>{
                  "Error: Element::setProperty: no write access for property readonly",
                  "Error: Item::setProperty: request with unknown property ghost",
                  "Error: Element::setProperty: no write access for property id"}),
              capture.texts());
    EXPECT_EQ(std::vector<KeyCollection>{{"title"}}, eventsBeforeDrain());
}

TEST_F(ElementTest, WithoutPostAccessOnlyRemovalWorks) {
    element.writable.clear();
    ASSERT_TRUE(element.tags.addElement(std::string("x")) == false);
    EXPECT_EQ(OperationResult::FORBIDDEN, element.setProperty("title", "x").value());
    const auto update = parse(R"({"title":"x"})");
    EXPECT_EQ(OperationResult::FORBIDDEN, element.updateByJSON(update.get()).value());
    EXPECT_EQ(OperationResult::OK, element.removeProperty("tags").value());
    EXPECT_EQ(OperationResult::OK, element.removeProperty("note").value());
}

TEST_F(ElementTest, RemovePropertyResults) {
    ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    ASSERT_TRUE(element.registerProperty("known", nullptr));
    ASSERT_EQ(OperationResult::OK, element.setProperty("tags", R"(["b","a"])").value());
    ASSERT_EQ(OperationResult::OK, element.setProperty("note", "remember").value());

    EXPECT_EQ(OperationResult::OK, element.removeProperty("tags").value());
    EXPECT_EQ(0u, element.tags.getPropertyValue().size());
    EXPECT_EQ(OperationResult::OK, element.removeProperty("note").value());
    EXPECT_TRUE(element.note.isNull());
    EXPECT_TRUE(element.knowsProperty("note"));
    EXPECT_FALSE(element.hasProperty("note"));
    EXPECT_EQ(OperationResult::OK, element.removeProperty("note").value()) << "already unset";
    EXPECT_EQ(OperationResult::NOT_FOUND, element.removeProperty("known").value());
    EXPECT_EQ(OperationResult::UNKNOWN_PROPERTY, element.removeProperty("ghost").value());
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, element.removeProperty("title").value());
    EXPECT_EQ((std::vector<std::string>{
                  "Warning: Item::removeProperty: tried to delete non-existing property known",
                  "Error: Item::removeProperty: request for unknown property ghost",
                  "Error: Item::removeProperty: action is not available for property title"}),
              capture.texts());
}

TEST_F(ElementTest, UpdateIsAllOrNothing) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    struct Row {
        const char* json;
        OperationResult::Value result;
        const char* log;
    };
    const Row rows[] = {
        {R"({"title":"new","count":200})", OperationResult::INVALID_VALUE,
         "Error: Item::updateByJSON: property count has an invalid value"},
        {R"({"title":"new","ghost":1})", OperationResult::NOT_FOUND,
         "Error: Item::updateByJSON: property ghost is not known for Item"},
        {R"({"title":"new","readonly":"x"})", OperationResult::FORBIDDEN,
         "Error: Item::updateByJSON: update of property readonly is not allowed"},
        {R"({"title":"new","level":9})", OperationResult::INVALID_VALUE,
         "Error: Item::updateByJSON: property level has an invalid value"},
        {R"({"title":"new","tags":"not an array"})", OperationResult::INVALID_VALUE,
         "Error: Item::updateByJSON: property tags has an invalid value"},
    };
    const std::string before = text(element.toJSON(0));
    for (const Row& row : rows) {
        capture.channel().clear();
        const auto update = parse(row.json);
        EXPECT_EQ(row.result, element.updateByJSON(update.get()).value()) << row.json;
        EXPECT_EQ(before, text(element.toJSON(0))) << row.json;
        EXPECT_EQ(std::vector<std::string>{row.log}, capture.texts()) << row.json;
    }
    EXPECT_TRUE(element.note.isNull());
    EXPECT_TRUE(eventsBeforeDrain().empty());
}

TEST_F(ElementTest, UpdateRaisesOneEventForAllChangedKeys) {
    const auto update = parse(R"({"title":"new","count":7,"tags":["x"],"note":"n","level":1})");
    const OperationResult result = element.updateByJSON(update.get());
    EXPECT_EQ(OperationResult::OK, result.value());
    EXPECT_EQ("new", element.title.getValue());
    EXPECT_EQ(7, element.count.getValue());
    EXPECT_EQ("n", element.note.get()->getValue());
    EXPECT_EQ(1, element.level.get()->getValue());

    const auto same = parse(R"({"title":"new","count":"7","tags":["x"]})");
    EXPECT_EQ(OperationResult::NO_UPDATE, element.updateByJSON(same.get()).value());
    EXPECT_EQ("ok", element.updateByJSON(same.get()).toString());

    const auto events = eventsBeforeDrain();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ((KeyCollection{"count", "level", "note", "tags", "title"}), events[0]);
    EXPECT_EQ(element.getIdentification(), recorder.payloads()[0].getSourceElementId());
}

TEST_F(ElementTest, UpdateOfAnUnsetOptionalWithANullMemberThrows) {
    const auto update = parse(R"({"title":null})");
    EXPECT_THROW(element.updateByJSON(update.get()), Poco::InvalidAccessException);
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, element.updateByJSON(nullptr).value());
}

TEST_F(ElementTest, OptionalPropertySetIsRaisedForFirstValuesOnly) {
    std::vector<std::string> firstSets;
    struct Watcher {
        std::vector<std::string>* seen;
        void onSet(const void*, IElementDataChangedSource::OptionalPropertySetEventPayload& p) {
            seen->push_back(p.getSourceProperty()->getKey());
        }
    } watcher{&firstSets};
    element.OptionalPropertySet += Poco::delegate(&watcher, &Watcher::onSet);

    EXPECT_TRUE(element.setProperty("note", "a").isSuccess());
    EXPECT_TRUE(element.setProperty("note", "b").isSuccess());
    EXPECT_EQ(OperationResult::INVALID_VALUE, element.setProperty("level", "6").value());
    EXPECT_TRUE(element.level.isNull()) << "a refused first value creates nothing";
    EXPECT_TRUE(element.removeProperty("note").isSuccess());
    EXPECT_TRUE(element.setProperty("note", "c").isSuccess());
    element.level.initPropertyValue();
    element.level.initPropertyValue();
    EXPECT_EQ((std::vector<std::string>{"note", "note", "level"}), firstSets);
    element.OptionalPropertySet -= Poco::delegate(&watcher, &Watcher::onSet);

    // note a, note b, note removed, note c; initPropertyValue changes no value.
    EXPECT_EQ((std::vector<KeyCollection>{{"note"}, {"note"}, {"note"}, {"note"}}),
              eventsBeforeDrain());
}

TEST_F(ElementTest, JsonForms) {
    element.setProperty("note", "n");
    EXPECT_EQ((std::vector<std::string>{"id", "name", "uri"}), element.toJSON(-1)->getNames());
    EXPECT_EQ((std::vector<std::string>{"count", "id", "name", "note", "readonly", "tags", "title",
                                        "uri"}),
              element.toJSON(0)->getNames());
    const auto expanded = element.toJSON(std::vector<std::string>{"tags"});
    EXPECT_EQ(element.toJSON(0)->getNames(), expanded->getNames());
    EXPECT_TRUE(expanded->isArray("tags"));
}

TEST_F(ElementTest, JsonInitialisation) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    const std::string id = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
    const auto unknown = parse(R"({"title":"t","ghost":1})");
    EXPECT_EQ(OperationResult::UNKNOWN_PROPERTY,
              element.initElementFromJSON(unknown.get()).value());
    EXPECT_EQ("untitled", element.title.getValue()) << "nothing is set before the key check";

    // Keys go in order: count, id, level, name, ... so "level" fails after count and id.
    const auto bad =
        parse(R"({"count":5,"id":")" + id + R"(","level":9,"name":"n","title":"t"})");
    EXPECT_EQ(OperationResult::INVALID_VALUE, element.initElementFromJSON(bad.get()).value());
    EXPECT_EQ(5, element.count.getValue());
    EXPECT_EQ(id, element.getIdentification().toString());
    EXPECT_EQ("", element.getName().getValue());

    const auto good = parse(R"({"name":"n","readonly":"set by owner","note":"x","uri":"/x"})");
    EXPECT_EQ(OperationResult::OK, element.initElementFromJSON(good.get()).value());
    EXPECT_EQ("set by owner", element.readonly.getValue());
    EXPECT_EQ("x", element.note.get()->getValue());
    EXPECT_EQ("/Media/Tracks/" + id, element.getUri().getValue().toString());
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, element.initElementFromJSON(nullptr).value());

    EXPECT_EQ((std::vector<std::string>{
                  "Error: Failed to initialise element from JSON:  JSON object for Item has "
                  "unknown property ghost",
                  "Error: Failed to initialise element from JSON: level: could not be initalised",
                  "Error: Failed to initialise element from JSON:  JSON object is null pointer"}),
              capture.texts());
}

TEST(Element, NameAndIdConstructorAdjustsTheUri) {
    struct Named : Element {
        Named(AbstractResource& resource, const Base::PropertyValueUuid& id)
            : Element("Item", resource, Base::PropertyValueString("n"), id) {}
    };
    ElementTree tree;
    const Base::PropertyValueUuid id;
    const Named element(tree.resource, id);
    EXPECT_EQ("/Media/Tracks/" + id.getValue().toString(), element.getUri().getValue().toString());
    EXPECT_EQ("Media.Tracks.Item", element.getType().identifier);
    EXPECT_EQ(&tree.resource, element.getResource());
    EXPECT_TRUE(element.isGetAllowed());
}

TEST(Element, DestructionRaisesDataChangedForEveryProperty) {
    ElementTree tree;
    DataChangedRecorder recorder;
    Poco::UUID id;
    {
        TestElement element(tree.resource);
        recorder.subscribe(element);
        element.setProperty("note", "n");
        id = element.getIdentification();
        ASSERT_TRUE(recorder.waitFor(1));
    }
    // count, title, readonly, tags, note (members); id, name, uri (detached by ~Element).
    ASSERT_TRUE(recorder.waitFor(9)) << recorder.payloads().size();
    const auto payloads = recorder.payloads();
    ASSERT_EQ(9u, payloads.size());
    KeyCollection keys;
    for (const auto& payload : std::vector<DataChangedRecorder::Payload>(payloads.begin() + 1,
                                                                         payloads.end())) {
        EXPECT_EQ(id, payload.getSourceElementId());
        keys.insert(payload.getSourcePropertyKeys().begin(), payload.getSourcePropertyKeys().end());
    }
    EXPECT_EQ((KeyCollection{"count", "id", "name", "note", "readonly", "tags", "title", "uri"}),
              keys);
}

}  // namespace
}  // namespace Kivo::Data
