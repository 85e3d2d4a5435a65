#include "Data/ElementContainer.h"

#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementFixture.h"
#include "Data/Service.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::IndexFreeTextQuery;
using Base::IndexGenericValueQuery;
using Base::PropertyValueUuid;
using Kivo::Test::TestElement;

Poco::JSON::Object::Ptr parse(const std::string& text) {
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

std::string id(int n) {
    char text[40];
    std::snprintf(text, sizeof text, "00000000-0000-4000-8000-%012d", n);
    return text;
}

// Elements of the test kind; "title" is required, deleting can be switched off.
class Items : public ElementContainer<TestElement> {
public:
    explicit Items(Service& service) : ElementContainer(service, "Items", "Items", PropertyValueUuid()) {
        init();
    }
    ~Items() override { clear(); }
    std::set<Base::PropertyKey> getRequiredProperties() const override { return {"title"}; }
    bool isDeleteAllowed() const override { return deletable; }
    using AbstractResource::registerElementEvents;
    using AbstractResource::unregisterElementEvents;

    bool deletable = true;
};

struct Tree {
    Service service{"Media", "", 1, PropertyValueUuid()};
    Items items{service};

    OperationResult add(int n, const std::string& title, const std::string& extra = "") {
        const auto json = parse("{\"id\":\"" + id(n) + "\",\"title\":\"" + title + "\"" + extra + "}");
        return items.addElement(json.get());
    }
    std::vector<std::string> titles(const Base::PropertyIndexQuery& query) {
        AbstractResource::ElementQueryResult found;
        EXPECT_TRUE(items.findElements(query, found).isSuccess());
        std::vector<std::string> result;
        for (const auto& element : found) {
            result.push_back(static_cast<const TestElement&>(*element).title.getValue());
        }
        return result;
    }
};

IndexGenericValueQuery byKey(const std::string& key, std::set<std::string> values) {
    IndexGenericValueQuery query;
    query.key = key;
    query.values = std::move(values);
    return query;
}

TEST(ElementContainer, AddRefusesAndLeavesNothingBehind) {
    Tree tree;
    ASSERT_EQ(OperationResult::OK, tree.add(1, "one").value());
    struct Row {
        const char* json;
        OperationResult::Value result;
    };
    const std::string dup = "{\"id\":\"" + id(1) + "\",\"title\":\"dup\"}";
    const Row rows[] = {
        {R"({"count":3})", OperationResult::INVALID_OBJECT},
        {R"({"title":null})", OperationResult::INVALID_OBJECT},
        {R"({"title":"x","ghost":1})", OperationResult::UNKNOWN_PROPERTY},
        {R"({"title":"x","count":500})", OperationResult::INVALID_VALUE},
        {dup.c_str(), OperationResult::DUPLICATE},
    };
    for (const Row& row : rows) {
        const auto json = parse(row.json);
        EXPECT_EQ(row.result, tree.items.addElement(json.get()).value()) << row.json;
        EXPECT_EQ(1u, tree.items.size()) << row.json;
    }
    EXPECT_EQ((std::vector<std::string>{"one"}), tree.titles(byKey("title", {"%"})));
    EXPECT_TRUE(tree.titles(byKey("title", {"dup"})).empty()) << "a refused element is not indexed";
    EXPECT_EQ(OperationResult::INVALID_OBJECT, tree.items.addElement(nullptr).value());
}

TEST(ElementContainer, ElementsShareTheTreeLockAndTheResourceUri) {
    Tree tree;
    ASSERT_TRUE(tree.add(7, "seven").isSuccess());
    AbstractResource::Ptr element;
    ASSERT_TRUE(tree.items.getElement(Poco::UUID(id(7)), element).isSuccess());
    EXPECT_EQ(tree.service.getLock().get(), element->getLock().get());
    EXPECT_EQ(tree.service.getLock().get(), tree.items.getLock().get());
    EXPECT_EQ("/Media/Items/" + id(7), element->getUri().getValue().toString());
    EXPECT_EQ(OperationResult::NOT_FOUND,
              tree.items.getElement(Poco::UUID(id(8)), element).value());
}

TEST(ElementContainer, PagesInIdOrder) {
    Tree tree;
    for (int n : {3, 1, 2}) ASSERT_TRUE(tree.add(n, "t" + std::to_string(n)).isSuccess());
    struct Row {
        int offset;
        int count;
        OperationResult::Value result;
        std::vector<std::string> titles;
    };
    const Row rows[] = {
        {0, 10, OperationResult::OK, {"t1", "t2", "t3"}},
        {1, 1, OperationResult::OK, {"t2"}},
        {3, 5, OperationResult::OK, {}},
        {4, 1, OperationResult::INVALID_VALUE, {"kept"}},
        {-1, 1, OperationResult::INVALID_VALUE, {"kept"}},
        {0, -1, OperationResult::INVALID_VALUE, {"kept"}},
    };
    for (const Row& row : rows) {
        AbstractResource::ElementQueryResult page;
        page.push_back(nullptr);
        EXPECT_EQ(row.result, tree.items.getElements(page, row.offset, row.count).value())
            << row.offset << "," << row.count;
        std::vector<std::string> titles;
        for (const auto& element : page) {
            titles.push_back(element.isNull() ? "kept"
                                              : static_cast<const TestElement&>(*element).title.getValue());
        }
        EXPECT_EQ(row.titles, titles) << row.offset << "," << row.count;
    }
}

TEST(ElementContainer, IndexesFollowWritesUpdatesAndRemovals) {
    Tree tree;
    ASSERT_TRUE(tree.add(1, "alpha", R"(,"count":5)").isSuccess());
    ASSERT_TRUE(tree.add(2, "beta", R"(,"note":"n")").isSuccess());
    EXPECT_EQ((std::vector<std::string>{"alpha"}), tree.titles(byKey("count", {"5"})));
    EXPECT_EQ((std::vector<std::string>{"beta"}), tree.titles(byKey("note", {"n"})));

    const auto update = parse(R"({"count":9,"level":3})");
    ASSERT_EQ(OperationResult::OK,
              tree.items.updateElementFromJSON(Poco::UUID(id(1)), update.get()).value());
    EXPECT_TRUE(tree.titles(byKey("count", {"5"})).empty());
    EXPECT_EQ((std::vector<std::string>{"alpha"}), tree.titles(byKey("count", {"9"})));
    EXPECT_EQ((std::vector<std::string>{"alpha"}), tree.titles(byKey("level", {"3"})))
        << "an optional property first set by an update is indexed when the update returns";

    AbstractResource::Ptr beta;
    ASSERT_TRUE(tree.items.getElement(Poco::UUID(id(2)), beta).isSuccess());
    ASSERT_TRUE(beta->setProperty("level", "4").isSuccess());
    EXPECT_EQ((std::vector<std::string>{"beta"}), tree.titles(byKey("level", {"4"})))
        << "a first value set by a client write is indexed through OptionalPropertySet";

    IndexFreeTextQuery freeText;
    freeText.values = {"beta"};
    EXPECT_EQ((std::vector<std::string>{"beta"}), tree.titles(freeText));

    EXPECT_EQ(OperationResult::NOT_FOUND,
              tree.items.updateElementFromJSON(Poco::UUID(id(9)), update.get()).value());
    tree.items.deletable = false;
    EXPECT_EQ(OperationResult::FORBIDDEN, tree.items.removeElement(Poco::UUID(id(1))).value());
    tree.items.deletable = true;
    EXPECT_EQ(OperationResult::OK, tree.items.removeElement(Poco::UUID(id(1))).value());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.removeElement(Poco::UUID(id(1))).value());
    EXPECT_TRUE(tree.titles(byKey("count", {"9"})).empty());
    EXPECT_EQ((std::vector<std::string>{"beta"}), tree.titles(byKey("title", {"%"})));

    // Removed elements that a caller still holds no longer move the indexes.
    ASSERT_TRUE(beta->setProperty("title", "gamma").isSuccess());
    tree.items.clear();
    EXPECT_EQ(0u, tree.items.size());
    ASSERT_TRUE(beta->setProperty("title", "delta").isSuccess());
    EXPECT_TRUE(tree.titles(byKey("title", {"%"})).empty());
}

TEST(ElementContainer, LoadsElementDataThroughTheService) {
    Tree tree;
    const auto data = Poco::JSON::Parser()
                          .parse("[{\"id\":\"" + id(1) + "\",\"title\":\"a\"},{\"id\":\"" + id(2) +
                                 "\",\"title\":\"b\"},{\"title\":\"c\",\"count\":-1}]")
                          .extract<Poco::JSON::Array::Ptr>();
    EXPECT_FALSE(tree.service.initResourceDataFromJSON("items", data.get()));
    EXPECT_EQ(2u, tree.items.size()) << "elements before the refused one stay";
    const auto json = tree.items.getDataAsJSON(0);
    EXPECT_EQ(2u, json->getArray("elements")->size());
}

TEST(ElementContainer, DescribesEveryElementProperty) {
    Tree tree;
    const auto description = tree.items.getSpecificationAsJSON();
    EXPECT_EQ("Item", description->getValue<std::string>("element"));
    ASSERT_EQ(1u, description->getArray("required")->size());
    EXPECT_EQ("title", description->getArray("required")->getElement<std::string>(0));
    const auto properties = description->getObject("properties");
    const auto property = [&](const std::string& key) { return properties->getObject(key); };
    EXPECT_EQ((std::vector<std::string>{"count", "id", "level", "name", "note", "readonly", "tags",
                                        "title", "uri"}),
              properties->getNames());
    EXPECT_EQ("integer", property("count")->getValue<std::string>("kind"));
    EXPECT_EQ(0, property("count")->getValue<int>("minimum"));
    EXPECT_EQ(100, property("count")->getValue<int>("maximum"));
    EXPECT_FALSE(property("count")->has("resolution"));
    EXPECT_TRUE(property("count")->getValue<bool>("writable"));
    EXPECT_FALSE(property("readonly")->getValue<bool>("writable"));
    EXPECT_EQ("fixed", property("readonly")->getValue<std::string>("default"));
    EXPECT_EQ("text", property("title")->getValue<std::string>("format"));
    EXPECT_EQ("array", property("tags")->getValue<std::string>("kind"));
    EXPECT_EQ("uuid", property("id")->getValue<std::string>("kind"));
    EXPECT_EQ("uri", property("uri")->getValue<std::string>("kind"));
    EXPECT_TRUE(property("level")->getValue<bool>("optional"));
    EXPECT_EQ(5, property("level")->getValue<int>("maximum"));
    EXPECT_FALSE(property("title")->getValue<bool>("optional"));
    EXPECT_EQ(0u, tree.items.size()) << "the prototype never joins the resource";
}

TEST(ElementContainer, NotificationsFromForeignElementsAreDropped) {
    Tree tree;
    Kivo::Test::ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    TestElement stranger(tree.items);
    tree.items.registerElementEvents(stranger);
    ASSERT_TRUE(stranger.setProperty("note", "x").isSuccess());
    tree.items.unregisterElementEvents(stranger);
    EXPECT_EQ(std::vector<std::string>{"Warning: Resource Items received notification from "
                                       "unknown element " +
                                       stranger.getIdentification().toString()},
              capture.texts());
    EXPECT_TRUE(tree.items.getElementPropertyKeys().empty()) << "no index was touched";
}

}  // namespace
}  // namespace Kivo::Data
