#include "Data/Base/PropertyIndexQuery.h"

#include <memory>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/Base/Property.h"
#include "Data/Base/PropertyIndexUser.h"
#include "TestChannel.h"
#include "TestObject.h"

namespace Kivo::Data::Base {
namespace {

using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestObject;

// An object with a text "name" and a number "size".
struct Item {
    Item(const std::string& id, const std::string& name, long size)
        : object(id),
          nameProperty("name", &object, PropertyValueString(name)),
          sizeProperty("size", &object, PropertyValueNumberBase<long>(size, {}, {}, {})) {
        object.registerProperty("name", &nameProperty);
        object.registerProperty("size", &sizeProperty);
    }
    TestObject object;
    PropertyString nameProperty;
    PropertyInteger sizeProperty;
};

std::vector<std::string> ids(const std::vector<Object*>& objects) {
    std::vector<std::string> result;
    for (const Object* object : objects) result.push_back(object->getType().name);
    return result;
}

class PropertyIndexQueryTest : public ::testing::Test {
protected:
    PropertyIndexQueryTest() {
        for (const auto& item : items) {
            EXPECT_TRUE(user.registerPropertyAtIndex(&item->nameProperty));
            EXPECT_TRUE(user.registerPropertyAtIndex(&item->sizeProperty));
        }
    }

    std::vector<std::string> byName(std::set<std::string> values) {
        IndexGenericValueQuery query;
        query.key = "name";
        query.values = std::move(values);
        return ids(user.find(query));
    }
    std::vector<std::string> freeText(std::set<std::string> values) {
        IndexFreeTextQuery query;
        query.values = std::move(values);
        return ids(user.find(query));
    }

    std::vector<std::unique_ptr<Item>> items = [] {
        std::vector<std::unique_ptr<Item>> made;
        made.emplace_back(new Item("i1", "ab", 12));
        made.emplace_back(new Item("i2", "Ab", 3));
        made.emplace_back(new Item("i3", "xab", 12));
        made.emplace_back(new Item("i4", "12", 7));
        made.emplace_back(new Item("i5", "a.c", 1));
        made.emplace_back(new Item("i6", "abc", 1));
        return made;
    }();
    PropertyIndexUser user;
};

TEST_F(PropertyIndexQueryTest, WildcardTextsBecomeAnchoredPatterns) {
    const IndexGenericValueQuery query;
    EXPECT_EQ("^ab.*25$", query.createRegEx("ab%25"));
    EXPECT_EQ("^.*$", query.createRegEx("%"));
    EXPECT_EQ("^a.c.*$", query.createRegEx("a.c%"));
    EXPECT_EQ("^exact$", query.createRegEx("exact"));
}

TEST_F(PropertyIndexQueryTest, GenericValueQueries) {
    struct Row {
        std::set<std::string> values;
        std::vector<std::string> found;
    };
    const Row rows[] = {
        {{}, {}},
        {{"a%"}, {"i5", "i1", "i6"}},  // case-sensitive, anchored, in value order
        {{"%b"}, {"i2", "i1", "i3"}},
        {{"a.c"}, {"i5"}},              // no wildcard: the dot is a plain character
        {{"a.c%"}, {"i5", "i6"}},       // a wildcard text keeps pattern syntax
        {{"xab", "ab"}, {"i1", "i3"}},  // grouped by ascending text
        {{"ab", "a%"}, {"i5", "i1", "i6"}},  // "a%" sorts first; i1 listed once, there
        {{"%"}, {"i4", "i2", "i5", "i1", "i6", "i3"}},
        {{"nothing"}, {}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.found, byName(row.values)) << ::testing::PrintToString(row.values);
    }
    IndexGenericValueQuery unknown;
    unknown.key = "Name";
    unknown.values = {"%"};
    EXPECT_TRUE(user.find(unknown).empty()) << "keys are case-sensitive";
    EXPECT_THROW(byName({"%("}), Poco::RegularExpressionException);
}

// Every wildcard text reaches the index through find(const RegularExpression&), so a subclass
// that overrides it sees each one, prefix texts included.
TEST_F(PropertyIndexQueryTest, WildcardTextsGoThroughFindByExpression) {
    struct CountingIndex : PropertyIndex<PropertyString> {
        using PropertyIndex::find;
        using PropertyIndex::PropertyIndex;
        std::vector<Object*> find(const Poco::RegularExpression& re) const override {
            ++calls;
            return PropertyIndex::find(re);
        }
        mutable int calls = 0;
    };
    auto* counting = new CountingIndex("name");
    PropertyIndexReferenceMap indexes;
    indexes["name"] = counting;
    for (const auto& item : items) ASSERT_TRUE(counting->insert(&item->nameProperty));

    IndexGenericValueQuery query;
    query.key = "name";
    query.values = {"a%", "%b", "ab"};
    EXPECT_EQ(byName(query.values), ids(query(indexes)));
    EXPECT_EQ(2, counting->calls);
    IndexFreeTextQuery freeQuery;
    freeQuery.values = {"x%"};
    EXPECT_EQ((std::vector<std::string>{"i3"}), ids(freeQuery(indexes)));
    EXPECT_EQ(3, counting->calls);
}

TEST_F(PropertyIndexQueryTest, WildcardTextHoldingNulFindsWhatItsExpressionMatches) {
    // Found with the query fuzz target. The expression library compiles "^ab\0.*$" only up to
    // the NUL, as "^ab", which matches the whole text "ab" alone; a search for the texts that
    // start with "ab\0" answered "ab\0x" instead.
    Item withNul("i7", std::string("ab\0x", 4), 2);
    ASSERT_TRUE(user.registerPropertyAtIndex(&withNul.nameProperty));
    const std::string text("ab\0%", 4);
    EXPECT_EQ((std::vector<std::string>{"i1"}), byName({text}));
    EXPECT_EQ((std::vector<std::string>{"i1"}), freeText({text}));
}

TEST_F(PropertyIndexQueryTest, FreeTextSearchesEveryIndex) {
    EXPECT_EQ((std::vector<std::string>{"i4", "i1", "i3"}), freeText({"12"}))
        << "the size index (key 'name' < 'size') is searched after the name index";
    EXPECT_EQ((std::vector<std::string>{"i1"}), freeText({"ab"}))
        << "a text that no number parses from still searches the string index";
    EXPECT_EQ((std::vector<std::string>{"i4", "i5", "i6", "i1", "i3", "i2"}),
              freeText({"1%", "3"}));

    PropertyIndexReferenceMap broken;
    broken["a"] = PropertyIndexBasePtr();
    IndexFreeTextQuery query;
    query.values = {"x"};
    EXPECT_THROW(query(broken), Poco::NullPointerException);
    IndexGenericValueQuery generic;
    generic.key = "a";
    generic.values = {"x"};
    EXPECT_TRUE(generic(broken).empty()) << "the generic query finds nothing instead";
    EXPECT_TRUE(IndexFreeTextQuery()(PropertyIndexReferenceMap()).empty());
}

TEST(PropertyIndexUser, RegistrationRulesAndLogLines) {
    ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
    PropertyIndexUser user;
    Item a("a", "x", 1), b("b", "y", 2);
    PropertyString orphan("name", PropertyValueString("z"));

    EXPECT_TRUE(user.registerPropertyAtIndex(&a.nameProperty));
    EXPECT_FALSE(user.registerPropertyAtIndex(&a.nameProperty)) << "filed already";
    EXPECT_TRUE(user.registerPropertyAtIndex(&b.nameProperty));
    EXPECT_FALSE(user.registerPropertyAtIndex(&orphan));
    EXPECT_TRUE(user.unregisterPropertyAtIndex(&a.sizeProperty)) << "no index counts as success";
    EXPECT_FALSE(user.unregisterPropertyAtIndex(nullptr));
    EXPECT_TRUE(user.unregisterPropertyAtIndex(&a.nameProperty));
    EXPECT_TRUE(user.unregisterPropertyAtIndex(&b.nameProperty));
    EXPECT_EQ(std::vector<std::string>{"name"}, user.getPropertyKeys()) << "emptied indexes stay";
    EXPECT_EQ((std::vector<std::string>{
                  "Trace: Register Property name of a",
                  "Error: AbstractResource: Tried to register invalid element property.",
                  "Warning: Found no index for property size of a",
                  "Error: AbstractResource: Tried to unregister invalid element property."}),
              capture.texts());

    TestObject owner;
    PropertyBoolean flag("flag", &owner, PropertyValueBoolean(true));
    owner.registerProperty("flag", &flag);
    EXPECT_THROW(user.registerPropertyAtIndex(&flag), Poco::NullPointerException)
        << "a property without index type";
    EXPECT_THROW(user.unregisterPropertyAtIndex(&flag), Poco::NullPointerException);
}

}  // namespace
}  // namespace Kivo::Data::Base
