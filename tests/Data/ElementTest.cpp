#include "Data/Element.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <Poco/UUIDGenerator.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementContainer.h"
#include "Data/ElementFixture.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Kivo::Test::DataChangedRecorder;
using Kivo::Test::jsonText;
using Kivo::Test::parseObject;
using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestElement;
using Kivo::Test::uuidOf;
typedef std::vector<std::string> Texts;

class ElementTest : public ::testing::Test {
protected:
    ElementTest() { recorder.subscribe(element); }
    ~ElementTest() override { recorder.unsubscribe(element); }

    // The keys of the DataChanged deliveries so far. A marker write of "count" alone is raised
    // and waited for first: deliveries keep the order of the raises, so every earlier one has
    // arrived by then.
    std::vector<KeyCollection> eventsSoFar() {
        const auto isMarker = [](const DataChangedRecorder::Payload& payload) {
            return payload.getSourcePropertyKeys() == KeyCollection{"count"};
        };
        EXPECT_TRUE(element.setProperty("count", "77").isSuccess());
        EXPECT_TRUE(recorder.waitUntil([&](const std::vector<DataChangedRecorder::Payload>& all) {
            return std::any_of(all.begin(), all.end(), isMarker);
        }));
        std::vector<KeyCollection> keys;
        for (const auto& payload : recorder.payloads()) {
            if (isMarker(payload)) break;
            keys.push_back(payload.getSourcePropertyKeys());
        }
        return keys;
    }

    Kivo::Test::ElementTree tree;
    Kivo::Test::TestElement element{tree.resource};
    DataChangedRecorder recorder;
};

TEST_F(ElementTest, SetAndRemovePropertyResultsAndLogLines) {
    ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    ASSERT_TRUE(element.registerProperty("known", nullptr));
    element.writable.insert("ghost");
    struct Row {
        bool remove;
        const char* key;
        const char* value;
        OperationResult::Value result;
        const char* log;
    };
    const Row rows[] = {
        {false, "title", "hello", OperationResult::OK, nullptr},
        {false, "count", "101", OperationResult::INVALID_VALUE, nullptr},
        {false, "count", "many", OperationResult::INVALID_VALUE, nullptr},
        {false, "readonly", "x", OperationResult::FORBIDDEN,
         "Error: Element::setProperty: no write access for property readonly"},
        {false, "ghost", "x", OperationResult::UNKNOWN_PROPERTY,
         "Error: Item::setProperty: request with unknown property ghost"},
        {false, "id", "x", OperationResult::FORBIDDEN,
         "Error: Element::setProperty: no write access for property id"},
        {false, "tags", R"(["b","a"])", OperationResult::OK, nullptr},
        {true, "tags", "", OperationResult::OK, nullptr},
        {false, "note", "remember", OperationResult::OK, nullptr},
        {true, "note", "", OperationResult::OK, nullptr},
        {true, "note", "already unset", OperationResult::OK, nullptr},
        {true, "known", "", OperationResult::NOT_FOUND,
         "Warning: Item::removeProperty: tried to delete non-existing property known"},
        {true, "ghost", "", OperationResult::UNKNOWN_PROPERTY,
         "Error: Item::removeProperty: request for unknown property ghost"},
        {true, "title", "", OperationResult::PROCESSING_ERROR,
         "Error: Item::removeProperty: action is not available for property title"},
    };
    for (const Row& row : rows) {
        capture.channel().clear();
        const OperationResult result =
            row.remove ? element.removeProperty(row.key) : element.setProperty(row.key, row.value);
        EXPECT_EQ(row.result, result.value()) << row.key << " " << row.value;
        EXPECT_EQ(row.log ? Texts{row.log} : Texts(), capture.texts()) << row.key;
    }
    EXPECT_EQ(0, element.count.getValue());
    EXPECT_EQ(0u, element.tags.getPropertyValue().size());
    EXPECT_TRUE(element.note.isNull());
    EXPECT_EQ((std::vector<KeyCollection>{{"title"}, {"tags"}, {"tags"}, {"note"}, {"note"}}),
              eventsSoFar());

    // Without post access only removal works.
    element.writable.clear();
    EXPECT_FALSE(element.tags.addElement(std::string("x")));
    EXPECT_FALSE(element.note.setValueFromString("x"));
    EXPECT_TRUE(element.note.isNull());
    EXPECT_EQ(OperationResult::FORBIDDEN, element.setProperty("note", "x").value());
    EXPECT_EQ(OperationResult::FORBIDDEN,
              element.updateByJSON(parseObject(R"({"title":"x"})").get()).value());
    EXPECT_EQ(OperationResult::OK, element.removeProperty("tags").value());
    EXPECT_EQ(OperationResult::OK, element.removeProperty("note").value());
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
    const std::string before = jsonText(element.toJSON(0));
    for (const Row& row : rows) {
        capture.channel().clear();
        EXPECT_EQ(row.result, element.updateByJSON(parseObject(row.json).get()).value())
            << row.json;
        EXPECT_EQ(before, jsonText(element.toJSON(0))) << row.json;
        EXPECT_EQ(Texts{row.log}, capture.texts()) << row.json;
    }
    EXPECT_TRUE(element.level.isNull()) << "a refused first value creates nothing";
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, element.updateByJSON(nullptr).value());
    EXPECT_THROW(element.updateByJSON(parseObject(R"({"title":null})").get()),
                 Poco::InvalidAccessException);
    EXPECT_TRUE(eventsSoFar().empty());
}

TEST_F(ElementTest, DuplicateOptionalKeysAreAProgrammingError) {
    ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    // "note" is another optional property, "title" a present member property.
    for (const std::string key : {"note", "title"}) {
        capture.channel().clear();
        EXPECT_THROW(OptionalProperty<Base::PropertyValueString>(key, element),
                     Poco::BugcheckException)
            << key;
        EXPECT_EQ(Texts{"Warning: Self-registration of optional property " + key +
                        " for element Media.Tracks.Item has failed"},
                  capture.texts());
    }
    EXPECT_EQ(OperationResult::OK, element.setProperty("note", "kept").value());
    EXPECT_EQ("kept", element.note.get()->getValue()) << "the first declaration still answers";
    EXPECT_EQ(&element.title, element.getProperty("title"));
}

TEST_F(ElementTest, JsonFormsAndInitialisation) {
    element.setProperty("note", "n");
    EXPECT_EQ((Texts{"id", "name", "uri"}), element.toJSON(-1)->getNames());
    EXPECT_EQ((Texts{"count", "id", "name", "note", "readonly", "tags", "title", "uri"}),
              element.toJSON(0)->getNames());
    EXPECT_TRUE(element.toJSON(Texts{"tags"})->isArray("tags"));

    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    const std::string id = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
    // Keys go in order: count, id, level, name, ... so "level" fails after count and id.
    const auto bad = parseObject(R"({"count":5,"id":")" + id + R"(","level":9,"name":"n"})");
    EXPECT_EQ(OperationResult::INVALID_VALUE, element.initElementFromJSON(bad.get()).value());
    EXPECT_EQ(5, element.count.getValue());
    EXPECT_EQ("", element.getName().getValue());
    // Integer members set by code (long, not the parser's int) are read as their decimal text.
    for (const long count : {42L, -1L}) {
        Poco::JSON::Object counted;
        counted.set("count", count);
        EXPECT_EQ(count == 42 ? OperationResult::OK : OperationResult::INVALID_VALUE,
                  element.initElementFromJSON(&counted).value());
        EXPECT_EQ(42, element.count.getValue());
    }
    const auto good = parseObject(R"({"name":"n","readonly":"set by owner","uri":"/x"})");
    EXPECT_EQ(OperationResult::OK, element.initElementFromJSON(good.get()).value());
    EXPECT_EQ("set by owner", element.readonly.getValue());
    EXPECT_EQ("/Media/Tracks/" + id, element.getUri().getValue().toString())
        << "the URI follows the resource and the id, whatever the JSON says";
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, element.initElementFromJSON(nullptr).value());
    EXPECT_EQ((Texts{"Error: Failed to initialise element from JSON: level: could not be "
                     "initalised",
                     "Error: Failed to initialise element from JSON: count property has invalid "
                     "value",
                     "Error: Failed to initialise element from JSON:  JSON object is null "
                     "pointer"}),
              capture.texts());
}

// A member the element does not know is named in the JSON object's own order, and nothing is set
// before that check; a write that leaves a value as it was raises nothing; a null member is
// skipped.
TEST_F(ElementTest, InitialisationNamesUnknownMembersInOrderAndRaisesChangesOnly) {
    Poco::JSON::Object ordered(Poco::JSON_PRESERVE_KEY_ORDER);
    ordered.set("title", "t");
    ordered.set("zeta", 1);
    ordered.set("alpha", 2);
    {
        ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
        EXPECT_EQ(OperationResult::UNKNOWN_PROPERTY,
                  element.initElementFromJSON(&ordered).value());
        EXPECT_EQ((Texts{"Error: Failed to initialise element from JSON:  JSON object for Item "
                         "has unknown property zeta"}),
                  capture.texts());
        EXPECT_EQ("untitled", element.title.getValue());
    }
    const auto first = parseObject(R"({"title":"t","count":0,"tags":["a"],"note":null})");
    EXPECT_EQ(OperationResult::OK, element.initElementFromJSON(first.get()).value());
    const auto again = parseObject(R"({"title":"t","readonly":"r","tags":["a"]})");
    EXPECT_EQ(OperationResult::OK, element.initElementFromJSON(again.get()).value());
    EXPECT_EQ("t", element.title.getValue());
    EXPECT_TRUE(element.note.isNull());
    EXPECT_EQ((std::vector<KeyCollection>{{"tags"}, {"title"}, {"readonly"}}), eventsSoFar());
}

TEST_F(ElementTest, AnIdMemberIsWrittenWhateverItsTextForm) {
    const std::string own = element.getIdentification().toString();
    std::string upper = own;
    std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
    const struct {
        std::string text;  // the "id" member
        std::string id;    // the id afterwards; empty: refused
    } rows[] = {
        {own, own},                    // the id it holds, in the canonical text
        {upper, own},                  // the same id in capitals
        {uuidOf(7), uuidOf(7)},        // another id
        {uuidOf(7), uuidOf(7)},        // that one again
        {"00000000-0000-0000-0000-000000000000", ""},
        {uuidOf(7).substr(1), ""},     // one digit short
    };
    for (const auto& row : rows) {
        const std::string before = element.getIdentification().toString();
        const auto json = parseObject("{\"id\":\"" + row.text + "\"}");
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        const OperationResult result = element.initElementFromJSON(json.get());
        const Texts lines = capture.texts();
        const auto written = std::count(lines.begin(), lines.end(),
                                        std::string("Trace: Property id has changed"));
        if (row.id.empty()) {
            EXPECT_EQ(OperationResult::INVALID_VALUE, result.value()) << row.text;
            EXPECT_EQ(0, written) << row.text;
            EXPECT_EQ(before, element.getIdentification().toString()) << row.text;
        } else {
            EXPECT_EQ(OperationResult::OK, result.value()) << row.text;
            EXPECT_EQ(1, written) << row.text << ": an equal id is written, with its events";
            EXPECT_EQ(row.id, element.getIdentification().toString()) << row.text;
        }
    }
}

// Elements of the test kind; "title" is required, deleting can be switched off.
class Items : public Kivo::Test::TestContainer<TestElement> {
public:
    explicit Items(Service& service) : TestContainer(service, "Items") {}
    ~Items() override { clear(); }
    std::set<Base::PropertyKey> getRequiredProperties() const override { return {"title"}; }
    bool isDeleteAllowed() const override { return deletable; }
    using AbstractResource::registerElementEvents;
    using AbstractResource::unregisterElementEvents;

    bool deletable = true;
};

struct Tree {
    Service service{"Media", "", 1, Base::PropertyValueUuid()};
    Items items{service};

    OperationResult add(int n, const std::string& title, const std::string& extra = "") {
        const auto json =
            parseObject("{\"id\":\"" + uuidOf(n) + "\",\"title\":\"" + title + "\"" + extra + "}");
        return items.addElement(json.get());
    }
    static std::string titleOf(const AbstractResource::Ptr& element) {
        return element.isNull() ? "null"
                                : static_cast<const TestElement&>(*element).title.getValue();
    }
    Texts titles(const Base::PropertyIndexQuery& query) {
        AbstractResource::ElementQueryResult found;
        EXPECT_TRUE(items.findElements(query, found).isSuccess());
        Texts result;
        for (const auto& element : found) result.push_back(titleOf(element));
        return result;
    }
    Texts byKey(const std::string& key, const std::string& value) {
        return titles(Kivo::Test::keyQuery(key, value));
    }
};

TEST(ElementContainer, AddGetAndRemoveResults) {
    Tree tree;
    ASSERT_EQ(OperationResult::OK, tree.add(1, "one").value());
    struct Row {
        std::string json;
        OperationResult::Value result;
    };
    const Row rows[] = {
        {R"({"count":3})", OperationResult::INVALID_OBJECT},
        {R"({"title":null})", OperationResult::INVALID_OBJECT},
        {R"({"title":"x","ghost":1})", OperationResult::UNKNOWN_PROPERTY},
        {R"({"title":"x","count":500})", OperationResult::INVALID_VALUE},
        {"{\"id\":\"" + uuidOf(1) + "\",\"title\":\"dup\"}", OperationResult::DUPLICATE},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.result, tree.items.addElement(parseObject(row.json).get()).value())
            << row.json;
        EXPECT_EQ(1u, tree.items.size()) << row.json;
    }
    EXPECT_EQ(Texts{"one"}, tree.byKey("title", "%")) << "a refused element is not indexed";
    EXPECT_EQ(OperationResult::INVALID_OBJECT, tree.items.addElement(nullptr).value());

    AbstractResource::Ptr held;
    ASSERT_TRUE(tree.items.getElement(Poco::UUID(uuidOf(1)), held).isSuccess());
    EXPECT_EQ(tree.service.getLock().get(), held->getLock().get()) << "one lock per tree";
    EXPECT_EQ("/Media/Items/" + uuidOf(1), held->getUri().getValue().toString());
    const Poco::UUID unknown(uuidOf(8));
    AbstractResource::Ptr none;
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.getElement(unknown, none).value());
    EXPECT_EQ(OperationResult::NOT_FOUND,
              tree.items.updateElementFromJSON(unknown, parseObject("{}").get()).value());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.removeElement(unknown).value());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.withdrawElement(unknown).value());
    tree.items.deletable = false;
    EXPECT_EQ(OperationResult::FORBIDDEN, tree.items.removeElement(Poco::UUID(uuidOf(1))).value());
    ASSERT_EQ(OperationResult::OK, tree.add(2, "two").value());
    EXPECT_EQ(OperationResult::OK, tree.items.withdrawElement(Poco::UUID(uuidOf(2))).value())
        << "the owner's removal ignores the clients' gate";
    EXPECT_EQ(Texts{"one"}, tree.byKey("title", "%"));
    tree.items.deletable = true;
    EXPECT_EQ(OperationResult::OK, tree.items.removeElement(Poco::UUID(uuidOf(1))).value());
    // A removed element that a caller still holds no longer moves the indexes.
    ASSERT_TRUE(held->setProperty("title", "delta").isSuccess());
    EXPECT_EQ(Texts{}, tree.byKey("title", "%"));
}

// An element takes the id its JSON brings; only one without a usable id draws a random one, as
// does an element built outside an addition. Every element of a resource shares one type.
TEST(ElementContainer, ElementsTakeTheirJsonIdAndShareOneType) {
    Tree tree;
    struct Row {
        std::string id;  // the member's JSON text; empty: no "id" member
        OperationResult::Value result;
    };
    const Row rows[] = {
        {"\"" + uuidOf(1) + "\"", OperationResult::OK},
        {"", OperationResult::OK},
        {"", OperationResult::OK},
        {"\"not-a-uuid\"", OperationResult::INVALID_VALUE},
        {"\"00000000-0000-0000-0000-000000000000\"", OperationResult::INVALID_VALUE},
        {"17", OperationResult::INVALID_VALUE},
    };
    std::size_t expected = 0;
    for (const Row& row : rows) {
        const std::string json =
            "{" + (row.id.empty() ? "" : "\"id\":" + row.id + ",") + "\"title\":\"t\"}";
        EXPECT_EQ(row.result, tree.items.addElement(parseObject(json).get()).value()) << json;
        if (row.result == OperationResult::OK) ++expected;
        EXPECT_EQ(expected, tree.items.size()) << json;
    }
    AbstractResource::ElementQueryResult all;
    ASSERT_TRUE(tree.items.getElements(all, 0, 10).isSuccess());
    ASSERT_EQ(3u, all.size());
    const AbstractResource::Ptr detached = tree.items.createDetachedElement();
    all.push_back(detached);
    std::set<Poco::UUID> ids;
    for (const auto& element : all) {
        const Poco::UUID id = element->getIdentification();
        EXPECT_FALSE(id.isNull());
        ids.insert(id);
        EXPECT_EQ(&all[0]->getType(), &element->getType()) << "one type for all elements";
        if (element != detached) {
            EXPECT_EQ("/Media/Items/" + id.toString(), element->getUri().getValue().toString());
        }
    }
    EXPECT_EQ(1u, ids.count(Poco::UUID(uuidOf(1))));
    EXPECT_EQ(4u, ids.size()) << "drawn ids are fresh, and a preset id is not taken twice";
}

TEST(ElementContainer, PagesInIdOrder) {
    Tree tree;
    for (int n : {3, 1, 2}) ASSERT_TRUE(tree.add(n, "t" + std::to_string(n)).isSuccess());
    struct Row {
        int offset, count;
        OperationResult::Value result;
        Texts titles;  // a refused page keeps what the result held
    };
    const Row rows[] = {
        {0, 10, OperationResult::OK, {"t1", "t2", "t3"}},
        {1, 1, OperationResult::OK, {"t2"}},
        {3, 5, OperationResult::OK, {}},
        {4, 1, OperationResult::INVALID_VALUE, {"null"}},
        {-1, 1, OperationResult::INVALID_VALUE, {"null"}},
        {0, -1, OperationResult::INVALID_VALUE, {"null"}},
    };
    for (const Row& row : rows) {
        AbstractResource::ElementQueryResult page{nullptr};
        EXPECT_EQ(row.result, tree.items.getElements(page, row.offset, row.count).value())
            << row.offset << "," << row.count;
        Texts titles;
        for (const auto& element : page) titles.push_back(Tree::titleOf(element));
        EXPECT_EQ(row.titles, titles) << row.offset << "," << row.count;
    }
}

TEST(ElementContainer, LoadsElementDataThroughTheServiceUpToARefusal) {
    Tree tree;
    const auto data = Poco::JSON::Parser()
                          .parse("[{\"id\":\"" + uuidOf(1) + "\",\"title\":\"a\"},{\"id\":\"" +
                                 uuidOf(2) + "\",\"title\":\"b\"},{\"title\":\"c\",\"count\":-1}]")
                          .extract<Poco::JSON::Array::Ptr>();
    EXPECT_FALSE(tree.service.initResourceDataFromJSON("items", data.get()));
    EXPECT_EQ(2u, tree.items.size()) << "elements before the refused one stay";
    EXPECT_EQ(2u, tree.items.getDataAsJSON(0)->getArray("elements")->size());
}

// What the description says of each kind is exercised by the refusal test, which draws its
// values from it; here: the shape, and the prototype it is made from stays out.
TEST(ElementContainer, DescribesEveryElementProperty) {
    Tree tree;
    const auto description = tree.items.getSpecificationAsJSON();
    EXPECT_EQ("Item", description->getValue<std::string>("element"));
    EXPECT_EQ("title", description->getArray("required")->getElement<std::string>(0));
    const auto properties = description->getObject("properties");
    EXPECT_EQ((Texts{"count", "id", "level", "name", "note", "readonly", "tags", "title", "uri"}),
              properties->getNames());
    std::ostringstream level;
    properties->getObject("level")->stringify(level);
    EXPECT_EQ(R"({"default":1,"kind":"integer","maximum":5,"minimum":1,"optional":true,)"
              R"("writable":true})",
              level.str());
    EXPECT_FALSE(properties->getObject("readonly")->getValue<bool>("writable"));
    EXPECT_EQ(0u, tree.items.size());
}

TEST(ElementContainer, NotificationsFromForeignElementsAreDropped) {
    Tree tree;
    Kivo::Test::ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    TestElement stranger(tree.items);
    tree.items.registerElementEvents(stranger);
    ASSERT_TRUE(stranger.setProperty("note", "x").isSuccess());
    tree.items.unregisterElementEvents(stranger);
    EXPECT_EQ(Texts{"Warning: Resource Items received notification from unknown element " +
                    stranger.getIdentification().toString()},
              capture.texts());
    EXPECT_TRUE(tree.items.getElementPropertyKeys().empty()) << "no index was touched";
}

// Elements built one after another for different resources each get their own resource's
// type, and elements of one resource share one, whatever was built in between.
TEST(ElementContainer, ElementTypesFollowTheirResource) {
    Service media{"Media", "", 1, Base::PropertyValueUuid()};
    Service other{"Other", "", 1, Base::PropertyValueUuid()};
    Kivo::Test::TestResource tracks{media, "Tracks"};
    Kivo::Test::TestResource albums{media, "Albums"};
    Kivo::Test::TestResource otherTracks{other, "Tracks"};
    struct Row {
        Kivo::Test::TestResource* resource;
        std::string identifier;
        std::string path;
    };
    const Row rows[] = {
        {&tracks, "Media.Tracks.Item", "/Media/Tracks/"},
        {&tracks, "Media.Tracks.Item", "/Media/Tracks/"},
        {&albums, "Media.Albums.Item", "/Media/Albums/"},
        {&tracks, "Media.Tracks.Item", "/Media/Tracks/"},
        {&otherTracks, "Other.Tracks.Item", "/Other/Tracks/"},
        {&otherTracks, "Other.Tracks.Item", "/Other/Tracks/"},
        {&albums, "Media.Albums.Item", "/Media/Albums/"},
    };
    std::vector<std::unique_ptr<TestElement>> built;
    std::map<const AbstractResource*, const Element::Type*> typeOf;
    for (const Row& row : rows) {
        built.push_back(std::make_unique<TestElement>(*row.resource));
        const Element::Type& type = built.back()->getType();
        EXPECT_EQ("Item", type.name);
        EXPECT_EQ(row.identifier, type.identifier);
        EXPECT_EQ(row.path, type.path);
        EXPECT_EQ(row.path + built.back()->getIdentification().toString(),
                  built.back()->getUri().getValue().toString());
        const auto known = typeOf.emplace(row.resource, &type).first;
        EXPECT_EQ(known->second, &type) << row.identifier << ": one type per resource";
    }
    EXPECT_EQ(3u, typeOf.size());
}

// Ids (in element URIs and in JSON) are written as the UUID library writes them, and read as it
// reads them, for any id and any text.
TEST(XObject, IdTextIsTheUuidText) {
    const std::string texts[] = {
        "00000000-0000-0000-0000-000000000000", "ffffffff-ffff-ffff-ffff-ffffffffffff",
        "01234567-89ab-cdef-0123-456789abcdef", "fedcba98-7654-3210-fedc-ba9876543210",
        "a0000000-000b-00c0-0d00-e0000000000f",
    };
    for (const std::string& text : texts) {
        const Poco::UUID uuid(text);
        EXPECT_EQ(text, Base::PropertyValueUuid::textOf(uuid));
        std::string uri = "/a/";
        Base::PropertyValueUuid::appendTextOf(uuid, uri);
        EXPECT_EQ("/a/" + text, uri);
        EXPECT_TRUE(Base::PropertyValueUuid::isTextOf(text, uuid)) << text;
        std::string upper = text;
        std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
        EXPECT_EQ(upper == text, Base::PropertyValueUuid::isTextOf(upper, uuid))
            << "another text form of the same id is no textOf: " << text;
        for (const std::string& other : {text + " ", text.substr(0, 35), std::string()}) {
            EXPECT_FALSE(Base::PropertyValueUuid::isTextOf(other, uuid)) << '"' << other << '"';
        }
    }
    EXPECT_FALSE(Base::PropertyValueUuid::isTextOf(texts[2], Poco::UUID(texts[3])));
    const std::string read[] = {
        texts[2], "FEDCBA98-7654-3210-FEDC-BA9876543210", "0123456789abcdef0123456789abcdef",
        texts[3] + "trailing", "0123456g-89ab-cdef-0123-456789abcdef",
        "01234567-89ab-cdef-0123-456789abcde ", "01234567+89ab-cdef-0123-456789abcdef",
        "01234567-89ab-cdef-0123-456789abcd", "", "-",
    };
    for (const std::string& text : read) {
        Poco::UUID expected(texts[4]);
        const bool accepted = expected.tryParse(text);
        Poco::UUID uuid(texts[4]);
        EXPECT_EQ(accepted, Base::PropertyValueUuid::parseText(text, uuid)) << '"' << text << '"';
        EXPECT_EQ(expected, uuid) << "read, or kept on refusal: \"" << text << '"';
    }
    for (int i = 0; i < 50; ++i) {
        const Poco::UUID drawn = Poco::UUIDGenerator::defaultGenerator().createRandom();
        EXPECT_EQ(drawn.toString(),
                  Base::PropertyValueUuid(drawn).getGenericValue().extract<std::string>());
    }
}

}  // namespace
}  // namespace Kivo::Data
