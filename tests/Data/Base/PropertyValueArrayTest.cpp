#include <string>
#include <vector>

#include <Poco/RegularExpression.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {
namespace {

typedef PropertyValueString S;
typedef PropertyValueArray<S> StringArray;
typedef PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_SERVICECATEGORY>>
    CategoryArray;
typedef PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_VERSION>> VersionArray;
typedef std::vector<std::string> Texts;

TEST(PropertyValueArray, TakesAWholeJsonArrayOrKeepsTheOldOne) {
    const Texts kept = {"keep"};
    // clang-format off
    const std::pair<std::string, Texts> rows[] = {
        {R"(["b", "a", "b"])", {"a", "b", "b"}}, {"[]", {}}, {"[5, true]", {"5", "true"}},
        {"word", kept}, {R"({"a": "b"})", kept}, {"", kept}, {R"(["a", null])", kept},
        {R"(["a",)", kept},
    };
    // clang-format on
    for (const auto& [text, stored] : rows) {
        StringArray array;
        ASSERT_TRUE(array.addElement("keep"));
        EXPECT_EQ(stored != kept, array.isValidStringValue(text)) << text;
        EXPECT_EQ(stored != kept, array.setValueFromString(text)) << text;
        EXPECT_EQ(stored, Texts(array)) << text;
    }

    // One element a kind refuses refuses the whole array.
    CategoryArray categories;
    ASSERT_TRUE(categories.setValueFromString(R"(["map"])"));
    EXPECT_FALSE(categories.setValueFromString(R"(["media", "Foo"])"));
    EXPECT_FALSE(categories.addElement("Foo"));
    EXPECT_EQ(Texts{"map"}, Texts(categories));
    CategoryArray::value_type out{CategoryArray::element_type("map")};
    EXPECT_FALSE(categories.parseString("word", out));
    EXPECT_EQ(1u, out.size()) << "no JSON array: the output is untouched";
    EXPECT_FALSE(categories.parseString(R"(["media", "Foo"])", out));
    EXPECT_TRUE(out.empty()) << "a refused element empties the output";

    VersionArray versions;
    EXPECT_FALSE(
        versions.setValue({VersionArray::element_type("1.0"), VersionArray::element_type("one")}));
    EXPECT_EQ(0u, versions.size());
}

TEST(PropertyValueArray, EditsMatchesAndDefaultElement) {
    StringArray array;
    EXPECT_FALSE(array.matches(Poco::RegularExpression(".*"))) << "empty";
    EXPECT_TRUE(array.addElement("bc"));
    EXPECT_TRUE(array.addElement(S("bc")));
    EXPECT_TRUE(array.addElement(S("2018-01-01", S::STRING_FORMAT_DATE)));
    EXPECT_EQ(S::STRING_FORMAT_DATE, std::vector<S>(array)[0].getFormatType())
        << "an added element is stored as given, not remade from the prototype";
    EXPECT_TRUE(array.matches(Poco::RegularExpression("b.")));
    EXPECT_FALSE(array.matches(Poco::RegularExpression("b"))) << "one element matches whole";
    EXPECT_TRUE(array.removeElement(S("bc")));
    EXPECT_EQ((Texts{"2018-01-01", "bc"}), Texts(array)) << "one of two equal texts is removed";
    EXPECT_FALSE(array.removeElement(S("c")));
    EXPECT_FALSE(array.hasElement(S("c")));

    // A prototype that a present element fails is refused; the earlier one stays.
    const PropertyValueCustomString digits(S::UNDEFINED_VALUE, "[0-9]+");
    EXPECT_FALSE(array.setDefaultElement(digits));
    EXPECT_TRUE(array.addElement("xyz"));
    array.clear();
    EXPECT_TRUE(array.setDefaultElement(digits));
    EXPECT_FALSE(array.addElement("xyz"));
    EXPECT_FALSE(array.setValueFromString(R"(["1", "x"])"));
    EXPECT_TRUE(array.setValueFromString(R"(["2", "1"])"));
    EXPECT_EQ((Texts{"1", "2"}), Texts(array));
}

}  // namespace
}  // namespace Kivo::Data::Base
