#include "Data/Base/PropertyEnum.h"

#include <string>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

namespace Kivo::Data::Base {
namespace {

typedef PropertyValueEnum::EnumValues Words;

TEST(PropertyValueEnum, StartsWithTheFirstGivenWord) {
    EXPECT_EQ("off", PropertyValueEnum(Words{"off", "auto", "on"}).getValue())
        << "first in the given order, not the smallest";
    EXPECT_EQ("", PropertyValueEnum(Words{}).getValue()) << "an empty list gives the empty text";
    EXPECT_EQ("auto", PropertyValueEnum("auto", Words{"off", "auto"}).getValue());
    EXPECT_EQ("free", PropertyValueEnum("free", Words{}).getValue());
    try {
        PropertyValueEnum("dim", Words{"off", "on"});
        FAIL() << "a value outside the allowed words was accepted";
    } catch (const Poco::AssertionViolationException& error) {
        EXPECT_EQ("Initialising Enum property with invalid value!", error.message());
    }
}

TEST(PropertyValueEnum, AcceptsOnlyAllowedWordsUnlessThereAreNone) {
    PropertyValueEnum value(Words{"off", "on"});
    EXPECT_TRUE(value.setValue("on"));
    EXPECT_FALSE(value.setValue("ON")) << "case-sensitive";
    EXPECT_FALSE(value.setValueFromString("dim"));
    EXPECT_FALSE(value.isValidStringValue(""));
    EXPECT_EQ("on", value.getValue());

    value.addEnumValue("dim");
    EXPECT_TRUE(value.setValueFromString("dim"));

    PropertyValueEnum open(Words{});
    EXPECT_TRUE(open.setValue("anything"));
    EXPECT_TRUE(open.setValue(""));
    EXPECT_FALSE(open.setCustomFormat("x")) << "an enum is plain text, not custom";
}

TEST(PropertyValueEnum, SetEnumValuesReplacesAValueThatLostItsWord) {
    PropertyValueEnum value("on", Words{"off", "on"});
    value.setEnumValues({"on", "dim"});
    EXPECT_EQ("on", value.getValue()) << "still allowed";
    EXPECT_EQ((PropertyValueEnum::EnumValueSet{"dim", "on"}), value.getEnumValues());

    value.setEnumValues({"low", "high"});
    EXPECT_EQ("low", value.getValue()) << "first in the given order";

    value.setEnumValues({});
    EXPECT_EQ("low", value.getValue()) << "an empty list allows the current value";
    EXPECT_TRUE(value.getEnumValues().empty());
}

// A kind that refuses the empty text, so an empty list cannot keep it.
class NonEmptyEnum : public PropertyValueEnum {
public:
    NonEmptyEnum() : PropertyValueEnum(Words{}) {}
    bool isValidValue(const std::string& value) const override {
        return !value.empty() && PropertyValueEnum::isValidValue(value);
    }
};

TEST(PropertyValueEnum, SetEnumValuesFallsBackToUndefinedForAStricterKind) {
    NonEmptyEnum value;
    value.setEnumValues({});
    EXPECT_EQ("<undefined>", value.getValue());
}

}  // namespace
}  // namespace Kivo::Data::Base
