#include "Data/Base/PropertyIndex.h"

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/Base/Property.h"
#include "Data/Base/PropertyIndexOwnerTable.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/Base/PropertyIndexUser.h"
#include "TestChannel.h"
#include "TestObject.h"

namespace Kivo::Data::Base {
namespace {

using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestObject;

typedef PropertyIndex<PropertyString> StringIndex;

// An object named `name` with a string property "key" holding `value`.
struct Owned {
    Owned(const std::string& name, const std::string& value, const std::string& key = "key")
        : object(name), property(key, &object, PropertyValueString(value)) {
        object.registerProperty(key, &property);
    }
    TestObject object;
    PropertyString property;
};

// An object with an integer property "n" holding `value` within [min, max].
struct Numbered {
    Numbered(const std::string& name, long value, Poco::Nullable<long> min = {},
             Poco::Nullable<long> max = {})
        : object(name), property("n", &object, PropertyValueNumberBase<long>(value, min, max, {})) {
        object.registerProperty("n", &property);
    }
    TestObject object;
    PropertyInteger property;
};

std::vector<std::string> names(const std::vector<Object*>& objects) {
    std::vector<std::string> result;
    for (const Object* object : objects) result.push_back(object->getType().name);
    return result;
}

TEST(PropertyIndex, RefusesWhatItCannotFile) {
    StringIndex index("key");
    Owned a("a", "x");
    Owned upper("upper", "x", "Key");
    PropertyString orphan("key", PropertyValueString("x"));
    TestObject numbers("numbers");
    PropertyInteger number("key", &numbers, PropertyValueNumberBase<long>(1, {}, {}, {}));
    PropertyString second("key", &a.object, PropertyValueString("y"));

    EXPECT_FALSE(index.insert(static_cast<PropertyBase*>(nullptr))) << "null";
    EXPECT_FALSE(index.insert(&upper.property)) << "key differs by case";
    EXPECT_FALSE(index.insert(&orphan)) << "no parent";
    EXPECT_FALSE(index.insert(static_cast<PropertyBase*>(&number))) << "other value type";
    EXPECT_TRUE(index.insert(&a.property));
    EXPECT_FALSE(index.insert(&second)) << "a second property of the same object";
    EXPECT_FALSE(index.insert(&a.property)) << "the same property twice";
    EXPECT_EQ(&a.property, index.find(&a.object));
    EXPECT_EQ((std::vector<std::string>{"a"}), names(index.get()));
}

// Values in order, moved on change; lookups by text, and by patterns covering the whole text.
TEST(PropertyIndex, KeepsValueOrderMovesOnChangeAndLooksUp) {
    StringIndex index("key");
    Owned c("c", "3"), b1("b1", "2"), a("a", "1"), b2("b2", "2");
    for (Owned* owned : {&c, &b1, &a, &b2}) ASSERT_TRUE(index.insert(&owned->property));
    EXPECT_EQ((std::vector<std::string>{"a", "b1", "b2", "c"}), names(index.get()))
        << "ascending values, equal values in filing order";
    EXPECT_EQ((std::vector<std::string>{"b1", "b2"}), names(index.find(std::string("2"))));

    ASSERT_TRUE(b1.property.setValue("4"));
    EXPECT_EQ((std::vector<std::string>{"b2"}), names(index.find(std::string("2"))));
    EXPECT_EQ((std::vector<std::string>{"b1"}), names(index.find(std::string("4"))));
    ASSERT_TRUE(b1.property.setValue("2"));
    EXPECT_EQ((std::vector<std::string>{"b2", "b1"}), names(index.find(std::string("2"))))
        << "a re-filed object goes after the others of its value";

    EXPECT_TRUE(index.remove(&b2.object));
    EXPECT_FALSE(index.remove(&b2.object));
    EXPECT_EQ((std::vector<std::string>{"a", "b1", "c"}), names(index.get()));
    ASSERT_TRUE(b2.property.setValue("0")) << "an unfiled property no longer moves anything";
    EXPECT_EQ((std::vector<std::string>{"a", "b1", "c"}), names(index.get()));

    StringIndex patterns("key");
    EXPECT_TRUE(patterns.find(std::string("x")).empty()) << "an empty index";
    Owned whole("whole", "abc"), inner("inner", "xabcx");
    ASSERT_TRUE(patterns.insert(&whole.property));
    ASSERT_TRUE(patterns.insert(&inner.property));
    EXPECT_EQ((std::vector<std::string>{"whole"}),
              names(patterns.find(Poco::RegularExpression("abc"))))
        << "the pattern must cover the whole text";
}

// Integers and UUIDs (in the index the property kind makes) are keyed by their plain value; a text
// is still read with the smallest filed value's limits, and with more distinct limits than the
// index shares prototypes for.
TEST(PropertyIndex, PlainKeyedKindsReadTextsWithTheFiledChecks) {
    PropertyIndex<PropertyInteger> numbers("n");
    Numbered low("low", 5, 0, 10), high("high", 50, 0, 100), free("free", 1000);
    for (Numbered* filed : {&free, &high, &low}) ASSERT_TRUE(numbers.insert(&filed->property));
    const struct {
        Numbered* leaving;
        std::string text;
        std::vector<std::string> found;
    } steps[] = {
        {nullptr, "5", {"low"}}, {nullptr, "50", {}},  // above the smallest value's maximum
        {&low, "50", {"high"}},  {nullptr, "1,000", {}}, {&high, "1,000", {"free"}},
        {nullptr, "-3", {}},     {nullptr, "abc", {}},  // unparsable
    };
    for (const auto& step : steps) {
        if (step.leaving != nullptr) {
            ASSERT_TRUE(numbers.remove(&step.leaving->object));
        }
        EXPECT_EQ(step.found, names(numbers.find(step.text))) << step.text;
    }
    EXPECT_EQ((std::vector<std::string>{"free"}),
              names(numbers.find(Poco::RegularExpression("1.*"))));

    PropertyIndex<PropertyInteger> bounded("n");
    std::vector<std::unique_ptr<Numbered>> each;
    for (long value = 0; value < 40; ++value) {
        each.push_back(std::make_unique<Numbered>(std::to_string(value), value, value, value));
        ASSERT_TRUE(bounded.insert(&each.back()->property));
    }
    for (long value = 0; value < 40; ++value) {
        EXPECT_EQ((std::vector<std::string>{std::to_string(value)}),
                  names(bounded.find(std::to_string(value))));
        if (value + 1 < 40) {
            EXPECT_TRUE(bounded.find(std::to_string(value + 1)).empty()) << "outside its limits";
        }
        ASSERT_TRUE(bounded.remove(&each[value]->object));
    }
    EXPECT_TRUE(bounded.get().empty());

    TestObject a("a"), b("b");
    PropertyUuid idA("id", &a,
                     PropertyValueUuid(Poco::UUID("6ba7b810-9dad-11d1-80b4-00c04fd430c8")));
    PropertyUuid idB("id", &b,
                     PropertyValueUuid(Poco::UUID("00000000-0000-4000-8000-000000000001")));
    a.registerProperty("id", &idA);
    b.registerProperty("id", &idB);
    PropertyIndexBasePtr ids = idA.createIndex();
    ASSERT_FALSE(ids.isNull());
    EXPECT_EQ("id", ids->getKey());
    ASSERT_TRUE(ids->insert(&idA));
    ASSERT_TRUE(ids->insert(&idB));
    EXPECT_EQ((std::vector<std::string>{"b", "a"}), names(ids->get()));
    EXPECT_EQ((std::vector<std::string>{"a"}),
              names(ids->find(std::string("6ba7b810-9dad-11d1-80b4-00c04fd430c8"))));
    EXPECT_TRUE(ids->find(Poco::UUID::null().toString()).empty()) << "the null UUID is refused";
    EXPECT_TRUE(ids->find(std::string("6ba7b810")).empty());
    EXPECT_EQ((std::vector<std::string>{"a"}),
              names(ids->find(Poco::RegularExpression("6ba7.*c8"))));
    ASSERT_TRUE(idA.setValue(Poco::UUID("00000000-0000-4000-8000-000000000000")));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), names(ids->get())) << "re-filed by value";
}

// A text is read as a URI and found by the path that orders URIs; what does not read is
// refused with the value's own log line.
TEST(PropertyIndex, UriTextsAreFoundByTheirPath) {
    TestObject a("a"), b("b"), c("c");
    PropertyUri uriA("uri", &a, PropertyValueUri("/svc/a"));
    PropertyUri uriB("uri", &b, PropertyValueUri("http://host/svc/b"));
    PropertyUri uriC("uri", &c, PropertyValueUri("/svc/x%20y"));
    PropertyIndex<PropertyUri> index("uri");
    for (PropertyUri* uri : {&uriA, &uriB, &uriC}) {
        uri->getParent()->registerProperty("uri", uri);
        ASSERT_TRUE(index.insert(uri));
    }
    const struct {
        std::string text;
        std::vector<std::string> found;
    } rows[] = {
        {"/svc/a", {"a"}},
        {"https://elsewhere/svc/a", {"a"}},  // the same path
        {"/svc/b", {"b"}},
        {"/svc/x y", {"c"}},
        {"/svc/x%20y", {"c"}},
        {"svc/a", {}},
        {"", {}},
    };
    ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
    for (const auto& row : rows) EXPECT_EQ(row.found, names(index.find(row.text))) << row.text;
    EXPECT_TRUE(capture.texts().empty());
    std::string reason;
    try {
        Poco::URI rejected("http://host:abc/x");
    } catch (const Poco::SyntaxException& error) {
        reason = error.displayText();
    }
    EXPECT_TRUE(index.find(std::string("http://host:abc/x")).empty());
    EXPECT_EQ(std::vector<std::string>{"Error: Failed to parse value for PropertyValueUri: " + reason},
              capture.texts());
}

TEST(PropertyIndex, EveryIndexableKindMakesItsIndex) {
    TestObject owner;
    PropertyBoolean flag("flag", &owner, PropertyValueBoolean(true));
    PropertyServiceCategoryArray categories(
        "categories", &owner,
        PropertyValueArray<
            PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>(
            PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>()));
    owner.registerProperty("categories", &categories);
    EXPECT_TRUE(flag.createIndex().isNull()) << "booleans are not indexed";
    PropertyIndexBasePtr arrays = categories.createIndex();
    ASSERT_TRUE(categories.addElement(std::string("media")));
    EXPECT_TRUE(arrays->insert(&categories));
    EXPECT_EQ(1u, arrays->find(std::string(R"(["media"])")).size());
    ASSERT_TRUE(categories.addElement(std::string("map")));
    EXPECT_EQ(1u, arrays->find(std::string(R"(["map","media"])")).size()) << "moved on change";
}

// Two entries of one owner: `a`'s filed property is moved onto `b`, which is filed too, under
// the same value. Every operation then acts on the first of them, as the walk over the value's
// entries does, not on the entry kept for the object.
TEST(PropertyIndex, AnOwnerWithTwoEntriesIsWalked) {
    Owned a("a", "v"), b("b", "v");
    {
        StringIndex index("key");
        ASSERT_TRUE(index.insert(&a.property));
        ASSERT_TRUE(index.insert(&b.property));
        a.property.setParent(&b.object);
        EXPECT_TRUE(index.remove(&b.object)) << "takes a's entry, the first one owned by b";
        EXPECT_EQ(nullptr, index.find(&b.object));
        EXPECT_EQ(&a.property, index.find(&a.object));
        ASSERT_TRUE(b.property.setValue("x"));
        EXPECT_EQ((std::vector<std::string>{"b"}), names(index.find(std::string("x"))))
            << "b's property is still observed";
        ASSERT_TRUE(a.property.setValue("w"));
        EXPECT_TRUE(index.find(std::string("w")).empty()) << "a's property is not";
        a.property.setParent(&a.object);
        ASSERT_TRUE(a.property.setValue("v"));
        ASSERT_TRUE(b.property.setValue("v"));
    }
    {
        StringIndex index("key");
        ASSERT_TRUE(index.insert(&a.property));
        ASSERT_TRUE(index.insert(&b.property));
        a.property.setParent(&b.object);
        ASSERT_TRUE(b.property.setValue("y"));
        EXPECT_EQ((std::vector<std::string>{"b"}), names(index.find(std::string("y"))));
        a.property.setParent(&a.object);
        EXPECT_EQ((std::vector<std::string>{"b"}), names(index.find(std::string("v"))))
            << "b's change re-filed a's entry, so b's own stays under the old value";
        IndexGenericValueQuery query;
        query.key = "key";
        query.values = {"v"};
        PropertyIndexReferenceMap map;
        map["key"] = new StringIndex("key");
        auto& twice = static_cast<StringIndex&>(*map["key"]);
        ASSERT_TRUE(twice.insert(&a.property));
        ASSERT_TRUE(twice.insert(&b.property));
        ASSERT_TRUE(b.property.setValue("v"));
        a.property.setParent(&b.object);
        EXPECT_EQ((std::vector<std::string>{"b", "b"}), names(twice.find(std::string("v"))));
        EXPECT_EQ((std::vector<std::string>{"b"}), names(query(map)))
            << "a query lists each object once";
        query.values = {"v", "v%"};
        EXPECT_EQ((std::vector<std::string>{"b"}), names(query(map)));
        a.property.setParent(&a.object);
    }
}

// Few values shared by many objects, through random filing, re-filing, removal and
// destruction: every value keeps its objects in filing order (a re-filed one goes last), and
// values emptied and filled again are looked up as before.
TEST(PropertyIndex, SharedValuesKeepFilingOrderThroughChurn) {
    std::mt19937 random(1125);
    PropertyIndex<PropertyInteger> index("n");
    std::vector<std::unique_ptr<Numbered>> objects(40);
    // Filed objects by value, each value's in filing order.
    std::map<long, std::vector<Numbered*>> model;
    auto unmodel = [&model](Numbered* numbered) {
        auto& filed = model[numbered->property.getValue()];
        filed.erase(std::find(filed.begin(), filed.end(), numbered));
    };
    for (int round = 0; round < 4000; ++round) {
        std::unique_ptr<Numbered>& slot = objects[random() % objects.size()];
        const long value = static_cast<long>(random() % 4);
        if (slot == nullptr) {
            slot.reset(new Numbered(std::to_string(round), value));
            ASSERT_TRUE(index.insert(&slot->property));
            model[value].push_back(slot.get());
        } else if (random() % 3 == 0) {
            unmodel(slot.get());
            if (random() % 2 == 0) {
                ASSERT_TRUE(index.remove(&slot->object));
            }
            slot.reset();
        } else if (value != slot->property.getValue()) {
            unmodel(slot.get());
            ASSERT_TRUE(slot->property.setValue(value));
            model[value].push_back(slot.get());
        }
        std::vector<std::string> expected;
        for (const auto& [filedValue, filed] : model) {
            std::vector<std::string> ofValue;
            for (Numbered* numbered : filed) ofValue.push_back(numbered->object.getType().name);
            ASSERT_EQ(ofValue, names(index.find(std::to_string(filedValue))))
                << "round " << round << " value " << filedValue;
            expected.insert(expected.end(), ofValue.begin(), ofValue.end());
        }
        ASSERT_EQ(expected, names(index.get())) << "round " << round;
    }
}

// An object filed under a value its property no longer has: removing it takes the entry after
// the range of its current value, and the key of the object itself. A property the index still
// holds is refused wherever its owner went: moved onto an object that is not filed, or left
// behind with a stale entry after its object was unfiled.
TEST(PropertyIndex, RemovingAStaleObjectTakesTheEntryAfterItsRange) {
    Owned a("a", "1"), b("b", "2"), c("c", "3");
    TestObject elsewhere("elsewhere");
    StringIndex index("key");
    for (Owned* owned : {&a, &b, &c}) ASSERT_TRUE(index.insert(&owned->property));
    b.property.setParent(&elsewhere);
    EXPECT_FALSE(index.insert(&b.property)) << "moved onto an object that is not filed";
    EXPECT_EQ(nullptr, index.find(&elsewhere));
    b.property.setParent(&b.object);

    a.property.ValueChanged.disable();
    ASSERT_TRUE(a.property.setValue("3"));
    EXPECT_FALSE(index.remove(&a.object)) << "no entry after the range at the end";
    ASSERT_TRUE(a.property.setValue("2"));
    a.property.ValueChanged.enable();

    EXPECT_TRUE(index.remove(&a.object)) << "takes c's entry, unfiles a";
    EXPECT_EQ(nullptr, index.find(&a.object));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), names(index.get()))
        << "a's stale entry stays, c's went";
    EXPECT_EQ((std::vector<std::string>{"a"}), names(index.find(std::string("1"))));
    EXPECT_EQ(&c.property, index.find(&c.object)) << "c is still filed, without an entry";
    EXPECT_FALSE(index.insert(&c.property));
    EXPECT_FALSE(index.insert(&a.property)) << "a's stale entry still holds its property";
    ASSERT_TRUE(a.property.setValue("1")) << "back to the value of its entry";
    ASSERT_TRUE(a.property.setValue("5"));
    EXPECT_EQ((std::vector<std::string>{"a"}), names(index.find(std::string("5"))))
        << "a is still observed and moves";
    ASSERT_TRUE(c.property.setValue("0"));
    EXPECT_TRUE(index.find(std::string("0")).empty()) << "c's events were unregistered";
    EXPECT_EQ((std::vector<std::string>{"b", "a"}), names(index.get()));
}

// A destroyed property leaves nothing behind, whatever state it was in: filed normally,
// detached from its object first (as an element does), or in the states the walks leave (an
// entry without object, an object without entry, a property with two entries).
TEST(PropertyIndex, NothingDestroyedStaysFiled) {
    ScopedLogCapture capture(Poco::Message::PRIO_DEBUG);
    StringIndex index("key");
    Owned keep("keep", "2");
    ASSERT_TRUE(index.insert(&keep.property));
    {
        Owned gone("gone", "2"), detached("detached", "2");
        ASSERT_TRUE(index.insert(&gone.property));
        ASSERT_TRUE(index.insert(&detached.property));
        detached.object.unregisterAllProperties();
    }
    EXPECT_EQ((std::vector<std::string>{
                  "Warning: ProperyIndex: Received event from a property with key key but "
                  "without parent",
                  "Debug: ProperyIndex: property key from gone has been removed"}),
              capture.texts());
    EXPECT_EQ((std::vector<std::string>{"keep"}), names(index.find(std::string("2"))));
    {
        Owned a("a", "1"), b("b", "2"), c("c", "3");
        for (Owned* owned : {&a, &b, &c}) ASSERT_TRUE(index.insert(&owned->property));
        a.property.ValueChanged.disable();
        ASSERT_TRUE(a.property.setValue("2"));
        a.property.ValueChanged.enable();
        ASSERT_TRUE(index.remove(&a.object));
        keep.property.setParent(&b.object);
        ASSERT_TRUE(b.property.setValue("9")) << "re-files keep's entry, the first owned by b";
        keep.property.setParent(&keep.object);
        EXPECT_EQ((std::vector<std::string>{"a", "b", "b"}), names(index.get()));
    }
    EXPECT_TRUE(index.get().empty());
    EXPECT_EQ(&keep.property, index.find(&keep.object));
}

// find(text) reads the text with the check of the smallest filed value, whichever format it
// has, and whatever pattern a custom value carries; re-filing takes the new value's check.
TEST(PropertyIndex, TextIsCheckedByTheSmallestValuesFormat) {
    StringIndex index("key");
    TestObject dated("dated"), free("free"), custom("custom");
    PropertyString date("key", &dated,
                        PropertyValueString("2020-01-01", PropertyValueString::STRING_FORMAT_DATE));
    PropertyString text("key", &free, PropertyValueString("x"));
    PropertyValueString digits("5", PropertyValueString::STRING_FORMAT_CUSTOM);
    ASSERT_TRUE(digits.setCustomFormat("[0-9]+"));
    PropertyString pattern("key", &custom, digits);
    for (PropertyString* property : {&date, &text, &pattern}) ASSERT_TRUE(index.insert(property));

    EXPECT_EQ((std::vector<std::string>{"dated"}), names(index.find(std::string("2020-01-01"))));
    EXPECT_TRUE(index.find(std::string("x")).empty()) << "the date check refuses 'x'";
    ASSERT_TRUE(date.setPropertyValue(PropertyValueString("y")));
    EXPECT_EQ((std::vector<std::string>{"custom"}), names(index.find(std::string("5"))));
    EXPECT_TRUE(index.find(std::string("x")).empty()) << "now the custom pattern refuses it";
    ASSERT_TRUE(index.remove(&custom));
    EXPECT_EQ((std::vector<std::string>{"free"}), names(index.find(std::string("x"))));
    ASSERT_TRUE(index.insert(&pattern));
    ASSERT_TRUE(pattern.setValue("42"));
    EXPECT_TRUE(index.find(std::string("x")).empty()) << "the pattern came back with its value";
    EXPECT_EQ((std::vector<std::string>{"custom"}), names(index.find(std::string("42"))));
}

// Mostly insertions, then mostly removals (the table grows, then shrinks): every lookup
// answers as a map does.
TEST(PropertyIndexOwnerTable, AnswersAsAMap) {
    struct Record {
        Object* key;
    };
    std::mt19937 random(19);
    std::vector<TestObject> objects(600);
    std::map<Object*, Record> reference;
    PropertyIndexOwnerTable<Record> table;
    for (int round = 0; round < 20000; ++round) {
        Object* object = &objects[random() % objects.size()];
        const bool adding = (random() % 3 != 0) == (round < 10000);
        if (adding && reference.count(object) == 0) {
            table.insert(&reference.emplace(object, Record{object}).first->second);
        } else {
            table.erase(object);
            reference.erase(object);
        }
        Object* probe = &objects[random() % objects.size()];
        const auto expected = reference.find(probe);
        ASSERT_EQ(expected == reference.end() ? nullptr : &expected->second, table.find(probe))
            << "round " << round;
    }
    for (TestObject& object : objects) {
        const auto expected = reference.find(&object);
        ASSERT_EQ(expected == reference.end() ? nullptr : &expected->second, table.find(&object));
    }
    EXPECT_EQ(nullptr, table.find(nullptr));
    table.clear();
    EXPECT_EQ(nullptr, table.find(&objects[0]));
}

// A prefix expression is answered by a range over the ordered index. In 200 random rounds per
// mode it must find exactly what a scan finds: in PREFIX_LINE mode the scan of the same
// pattern, in PREFIX_TEXT mode (any prefix without NUL is literal, the tail may cross lines) the
// non-empty texts that begin with the prefix, which the expression itself must match too.
TEST(PropertyIndex, PrefixRangesEqualScans) {
    std::mt19937 random(20261123);
    IndexGenericValueQuery query;
    for (const auto mode :
         {PrefixRegularExpression::PREFIX_LINE, PrefixRegularExpression::PREFIX_TEXT}) {
        const bool line = mode == PrefixRegularExpression::PREFIX_LINE;
        const std::string alphabet = line ? "ab\n" : "ab\n.*(|\\[$";
        auto randomText = [&](std::size_t maxLength) {
            std::string text;
            const std::size_t length = random() % (maxLength + 1);
            for (std::size_t i = 0; i < length; ++i) text += alphabet[random() % alphabet.size()];
            return text;
        };
        for (int round = 0; round < 200; ++round) {
            StringIndex index("key");
            std::vector<std::unique_ptr<Owned>> objects;
            for (int i = 0; i < 30; ++i) {
                const std::string text = randomText(4) + (i % 3 == 0 ? "." : "");
                objects.emplace_back(new Owned(std::to_string(i), text));
                ASSERT_TRUE(index.insert(&objects.back()->property));
            }
            const std::string prefix = randomText(2);
            const PrefixRegularExpression range(prefix, mode);
            ASSERT_EQ(&range, PrefixRegularExpression::of(range));
            std::vector<Object*> expected;
            if (line) {
                const Poco::RegularExpression scan(query.createRegEx(prefix + "%"), 0, true);
                ASSERT_EQ(nullptr, PrefixRegularExpression::of(scan));
                expected = index.find(scan);
            } else {
                for (Object* object : index.get()) {
                    const std::string& text = index.get(object)->getValue();
                    const bool begins = !text.empty() && text.rfind(prefix, 0) == 0;
                    if (begins) expected.push_back(object);
                    ASSERT_EQ(begins, range.match(text, 0)) << "text '" << text << "'";
                }
            }
            EXPECT_EQ(names(expected), names(index.find(range)))
                << "round " << round << " prefix '" << prefix << "'";
        }
    }
    EXPECT_THROW(PrefixRegularExpression("a.b"), Poco::InvalidArgumentException);
    EXPECT_THROW(
        PrefixRegularExpression(std::string("a\0b", 3), PrefixRegularExpression::PREFIX_TEXT),
        Poco::InvalidArgumentException);
}

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
        return names(user.find(query));
    }
    std::vector<std::string> freeText(std::set<std::string> values) {
        IndexFreeTextQuery query;
        query.values = std::move(values);
        return names(user.find(query));
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

// Generic queries by key, then free text over every index.
TEST_F(PropertyIndexQueryTest, GenericValueAndFreeTextQueries) {
    struct Row {
        std::set<std::string> values;
        std::vector<std::string> found;
    };
    const Row rows[] = {
        {{}, {}},
        {{"a%"}, {"i5", "i1", "i6"}},  // case-sensitive, anchored, in value order
        {{"%b"}, {"i2", "i1", "i3"}},
        {{"a.c"}, {"i5"}},                   // no wildcard: the dot is a plain character
        {{"a.c%"}, {"i5", "i6"}},            // a wildcard text keeps pattern syntax
        {{"xab", "ab"}, {"i1", "i3"}},       // grouped by ascending text
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

    // Found with the query fuzz target. The expression library compiles "^ab\0.*$" only up to
    // the NUL, as "^ab", which matches the whole text "ab" alone; a search for the texts that
    // start with "ab\0" answered "ab\0x" instead.
    Item withNul("i7", std::string("ab\0x", 4), 2);
    ASSERT_TRUE(user.registerPropertyAtIndex(&withNul.nameProperty));
    const std::string text("ab\0%", 4);
    EXPECT_EQ((std::vector<std::string>{"i1"}), byName({text}));
    EXPECT_EQ((std::vector<std::string>{"i1"}), freeText({text}));
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
    EXPECT_EQ(byName(query.values), names(query(indexes)));
    EXPECT_EQ(2, counting->calls);
    IndexFreeTextQuery freeQuery;
    freeQuery.values = {"x%"};
    EXPECT_EQ((std::vector<std::string>{"i3"}), names(freeQuery(indexes)));
    EXPECT_EQ(3, counting->calls);
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
