#include "Data/ElementContainer.h"

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementFixture.h"
#include "Data/Service.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::IndexFreeTextQuery;
using Base::IndexGenericValueQuery;
using Kivo::Test::parseObject;
using Kivo::Test::TestElement;
typedef std::vector<std::string> Texts;

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
        const auto json =
            parseObject("{\"id\":\"" + id(n) + "\",\"title\":\"" + title + "\"" + extra + "}");
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
        IndexGenericValueQuery query;
        query.key = key;
        query.values = {value};
        return titles(query);
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
        {"{\"id\":\"" + id(1) + "\",\"title\":\"dup\"}", OperationResult::DUPLICATE},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.result, tree.items.addElement(parseObject(row.json).get()).value())
            << row.json;
        EXPECT_EQ(1u, tree.items.size()) << row.json;
    }
    EXPECT_EQ(Texts{"one"}, tree.byKey("title", "%")) << "a refused element is not indexed";
    EXPECT_EQ(OperationResult::INVALID_OBJECT, tree.items.addElement(nullptr).value());

    AbstractResource::Ptr held;
    ASSERT_TRUE(tree.items.getElement(Poco::UUID(id(1)), held).isSuccess());
    EXPECT_EQ(tree.service.getLock().get(), held->getLock().get()) << "one lock per tree";
    EXPECT_EQ("/Media/Items/" + id(1), held->getUri().getValue().toString());
    const Poco::UUID unknown(id(8));
    AbstractResource::Ptr none;
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.getElement(unknown, none).value());
    EXPECT_EQ(OperationResult::NOT_FOUND,
              tree.items.updateElementFromJSON(unknown, parseObject("{}").get()).value());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.removeElement(unknown).value());
    EXPECT_EQ(OperationResult::NOT_FOUND, tree.items.withdrawElement(unknown).value());
    tree.items.deletable = false;
    EXPECT_EQ(OperationResult::FORBIDDEN, tree.items.removeElement(Poco::UUID(id(1))).value());
    ASSERT_EQ(OperationResult::OK, tree.add(2, "two").value());
    EXPECT_EQ(OperationResult::OK, tree.items.withdrawElement(Poco::UUID(id(2))).value())
        << "the owner's removal ignores the clients' gate";
    EXPECT_EQ(Texts{"one"}, tree.byKey("title", "%"));
    tree.items.deletable = true;
    EXPECT_EQ(OperationResult::OK, tree.items.removeElement(Poco::UUID(id(1))).value());
    // A removed element that a caller still holds no longer moves the indexes.
    ASSERT_TRUE(held->setProperty("title", "delta").isSuccess());
    EXPECT_EQ(Texts{}, tree.byKey("title", "%"));
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

TEST(ElementContainer, FreeTextFindsAnElementOnce) {
    Tree tree;
    ASSERT_TRUE(tree.add(1, "alpha", R"(,"note":"beta")").isSuccess());
    ASSERT_TRUE(tree.add(2, "beta", R"(,"note":"beta")").isSuccess());
    IndexFreeTextQuery freeText;
    freeText.values = {"beta"};
    EXPECT_EQ((Texts{"alpha", "beta"}), tree.titles(freeText)) << "beta is in two indexes";
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

}  // namespace
}  // namespace Kivo::Data
