#include "Data/ElementContainer.h"

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementFixture.h"
#include "Data/Service.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::IndexFreeTextQuery;
using Base::IndexGenericValueQuery;
using Kivo::Test::TestElement;
typedef std::vector<std::string> Texts;

Poco::JSON::Object::Ptr parse(const std::string& text) {
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

std::string id(int n) {
    char text[40];
    std::snprintf(text, sizeof text, "00000000-0000-4000-8000-%012d", n);
    return text;
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
        const auto json = parse("{\"id\":\"" + id(n) + "\",\"title\":\"" + title + "\"" + extra + "}");
        return items.addElement(json.get());
    }
    static std::string titleOf(const AbstractResource::Ptr& element) {
        return element.isNull() ? "null" : static_cast<const TestElement&>(*element).title.getValue();
    }
    Texts titles(const Base::PropertyIndexQuery& query) {
        AbstractResource::ElementQueryResult found;
        EXPECT_TRUE(items.findElements(query, found).isSuccess());
        Texts result;
        for (const auto& element : found) result.push_back(titleOf(element));
        return result;
    }
    Texts byKey(const std::string& key, const std::string& value) {
        IndexGenericValueQuery query;
        query.key = key;
        query.values = {value};
        return titles(query);
    }
};

TEST(ElementContainer, AddRefusesAndLeavesNothingBehind) {
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
        {"{\"id\":\"" + id(1) + "\",\"title\":\"dup\"}", OperationResult::DUPLICATE},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.result, tree.items.addElement(parse(row.json).get()).value()) << row.json;
        EXPECT_EQ(1u, tree.items.size()) << row.json;
    }
    EXPECT_EQ(Texts{"one"}, tree.byKey("title", "%")) << "a refused element is not indexed";
    EXPECT_EQ(OperationResult::INVALID_OBJECT, tree.items.addElement(nullptr).value());

    AbstractResource::Ptr element;
    ASSERT_TRUE(tree.items.getElement(Poco::UUID(id(1)), element).isSuccess());
    EXPECT_EQ(tree.service.getLock().get(), element->getLock().get()) << "one lock per tree";
    EXPECT_EQ("/Media/Items/" + id(1), element->getUri().getValue().toString());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.getElement(Poco::UUID(id(8)), element).value());
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
        {0, 10, OperationResult::OK, {"t1", "t2", "t3"}}, {1, 1, OperationResult::OK, {"t2"}},
        {3, 5, OperationResult::OK, {}}, {4, 1, OperationResult::INVALID_VALUE, {"null"}},
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

TEST(ElementContainer, IndexesFollowFirstValuesAndRemovals) {
    Tree tree;
    ASSERT_TRUE(tree.add(1, "alpha", R"(,"count":5)").isSuccess());
    ASSERT_TRUE(tree.add(2, "beta", R"(,"tags":["beta"])").isSuccess());
    IndexFreeTextQuery freeText;
    freeText.values = {"beta"};
    EXPECT_EQ(Texts{"beta"}, tree.titles(freeText)) << "once, though found in two indexes";

    const auto update = parse(R"({"count":9,"level":3})");
    ASSERT_TRUE(tree.items.updateElementFromJSON(Poco::UUID(id(1)), update.get()).isSuccess());
    EXPECT_EQ(Texts{"alpha"}, tree.byKey("level", "3"))
        << "an optional property first set by an update is indexed when the update returns";
    AbstractResource::Ptr beta;
    ASSERT_TRUE(tree.items.getElement(Poco::UUID(id(2)), beta).isSuccess());
    ASSERT_TRUE(beta->setProperty("level", "4").isSuccess());
    EXPECT_EQ(Texts{"beta"}, tree.byKey("level", "4"))
        << "a first value set by a client write is indexed through OptionalPropertySet";

    EXPECT_EQ(OperationResult::NOT_FOUND,
              tree.items.updateElementFromJSON(Poco::UUID(id(9)), update.get()).value());
    tree.items.deletable = false;
    EXPECT_EQ(OperationResult::FORBIDDEN, tree.items.removeElement(Poco::UUID(id(1))).value());
    tree.items.deletable = true;
    EXPECT_EQ(OperationResult::OK, tree.items.removeElement(Poco::UUID(id(1))).value());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.removeElement(Poco::UUID(id(1))).value());
    EXPECT_EQ(Texts{}, tree.byKey("count", "9"));
    EXPECT_EQ(Texts{"beta"}, tree.byKey("title", "%"));

    // Removed elements that a caller still holds no longer move the indexes.
    tree.items.clear();
    EXPECT_EQ(0u, tree.items.size());
    ASSERT_TRUE(beta->setProperty("title", "delta").isSuccess());
    EXPECT_EQ(Texts{}, tree.byKey("title", "%"));
}

TEST(ElementContainer, LoadsElementDataThroughTheServiceUpToARefusal) {
    Tree tree;
    const auto data = Poco::JSON::Parser()
                          .parse("[{\"id\":\"" + id(1) + "\",\"title\":\"a\"},{\"id\":\"" + id(2) +
                                 "\",\"title\":\"b\"},{\"title\":\"c\",\"count\":-1}]")
                          .extract<Poco::JSON::Array::Ptr>();
    EXPECT_FALSE(tree.service.initResourceDataFromJSON("items", data.get()));
    EXPECT_EQ(2u, tree.items.size()) << "elements before the refused one stay";
    EXPECT_EQ(2u, tree.items.getDataAsJSON(0)->getArray("elements")->size());
}

TEST(ElementContainer, DescribesEveryElementProperty) {
    Tree tree;
    const auto description = tree.items.getSpecificationAsJSON();
    EXPECT_EQ("Item", description->getValue<std::string>("element"));
    const auto text = [](const Poco::Dynamic::Var& json) {
        std::ostringstream out;
        Poco::JSON::Stringifier::stringify(json, out);
        return out.str();
    };
    EXPECT_EQ(R"(["title"])", text(description->get("required")));
    const auto properties = description->getObject("properties");
    EXPECT_EQ((Texts{"count", "id", "level", "name", "note", "readonly", "tags", "title", "uri"}),
              properties->getNames());
    EXPECT_EQ(R"({"default":0,"kind":"integer","maximum":100,"minimum":0,"optional":false,)"
              R"("writable":true})",
              text(properties->get("count")));
    EXPECT_EQ(R"({"default":1,"kind":"integer","maximum":5,"minimum":1,"optional":true,)"
              R"("writable":true})",
              text(properties->get("level")));
    EXPECT_EQ(R"({"default":"fixed","format":"text","kind":"string","optional":false,)"
              R"("writable":false})",
              text(properties->get("readonly")));
    EXPECT_EQ("array", properties->getObject("tags")->getValue<std::string>("kind"));
    EXPECT_EQ("uuid", properties->getObject("id")->getValue<std::string>("kind"));
    EXPECT_EQ("uri", properties->getObject("uri")->getValue<std::string>("kind"));
    EXPECT_EQ(0u, tree.items.size()) << "the prototype never joins the resource";
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

}  // namespace
}  // namespace Kivo::Data
