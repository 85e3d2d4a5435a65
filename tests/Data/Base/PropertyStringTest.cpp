#include "Data/Base/PropertyString.h"

#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyEnum.h"

namespace Kivo::Data::Base {
namespace {

typedef PropertyValueString S;
typedef PropertyValueEnum::EnumValues Words;

// A refused pattern, or one the current text fails, leaves the earlier check in force.
TEST(PropertyValueCustomString, PatternChangesKeepTheEarlierCheckOnRefusal) {
    S date(S::STRING_FORMAT_DATE);
    EXPECT_FALSE(date.setCustomFormat(""));
    EXPECT_FALSE(date.setValue("x")) << "a non-custom string keeps its format check";

    PropertyValueCustomString custom("abc");
    ASSERT_TRUE(custom.setCustomFormat("[a-z]+"));
    EXPECT_FALSE(custom.setValue("123"));
    EXPECT_FALSE(custom.setCustomFormat("[0-9]+")) << "the current text fails the new pattern";
    EXPECT_THROW(custom.setCustomFormat("("), Poco::RegularExpressionException);
    EXPECT_FALSE(custom.setValue("123")) << "the earlier pattern stays in force";
    const PropertyValueCustomString copy(custom);
    EXPECT_TRUE(custom.setCustomFormat(""));
    EXPECT_TRUE(custom.setValue("")) << "an empty pattern lifts every restriction";
    EXPECT_FALSE(copy.isValidValue("123")) << "a copy keeps its own check";

    PropertyValueCustomString placeholder(S::UNDEFINED_VALUE, "[0-9]+");
    EXPECT_EQ("<undefined>", placeholder.getValue()) << "installed whatever the value";
    EXPECT_FALSE(placeholder.setValue("abc"));
    EXPECT_TRUE(placeholder.setValue("12"));
    EXPECT_THROW(PropertyValueCustomString("a", "[0-9"), Poco::RegularExpressionException);
}

TEST(PropertyValueEnum, StartsWithTheFirstGivenWordAndRefusesOthers) {
    EXPECT_EQ("off", PropertyValueEnum(Words{"off", "auto", "on"}).getValue())
        << "first in the given order, not the smallest";
    EXPECT_EQ("", PropertyValueEnum(Words{}).getValue());
    EXPECT_EQ("free", PropertyValueEnum("free", Words{}).getValue());
    try {
        PropertyValueEnum("dim", Words{"off", "on"});
        FAIL() << "a value outside the allowed words was accepted";
    } catch (const Poco::AssertionViolationException& error) {
        EXPECT_EQ("Initialising Enum property with invalid value!", error.message());
    }
    PropertyValueEnum value(Words{"off", "on"});
    value.addEnumValue("dim");
    EXPECT_TRUE(value.setValueFromString("dim"));
    EXPECT_FALSE(PropertyValueEnum(Words{}).setCustomFormat("x")) << "an enum is not custom";
}

// The declared order is kept beside the byte-wise set, each word once, at its first place.
TEST(PropertyValueEnum, KeepsTheDeclaredOrderOfItsWords) {
    PropertyValueEnum value(Words{"off", "auto", "on", "auto"});
    EXPECT_EQ((Words{"off", "auto", "on"}), value.getDeclaredEnumValues());
    EXPECT_EQ((PropertyValueEnum::EnumValueSet{"auto", "off", "on"}), value.getEnumValues());
    value.addEnumValue("dim");
    value.addEnumValue("auto");
    EXPECT_EQ((Words{"off", "auto", "on", "dim"}), value.getDeclaredEnumValues());
    const PropertyValueEnum copy(value);
    value.setEnumValues({"z", "a"});
    EXPECT_EQ((Words{"z", "a"}), value.getDeclaredEnumValues());
    EXPECT_EQ((Words{"off", "auto", "on", "dim"}), copy.getDeclaredEnumValues());
    EXPECT_EQ((Words{"b", "a"}), PropertyValueEnum("a", Words{"b", "a"}).getDeclaredEnumValues());
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

    // A kind that refuses the empty text falls back to the undefined text instead.
    class NonEmptyEnum : public PropertyValueEnum {
    public:
        NonEmptyEnum() : PropertyValueEnum(Words{}) {}
        bool isValidValue(const std::string& text) const override {
            return !text.empty() && PropertyValueEnum::isValidValue(text);
        }
    } strict;
    strict.setEnumValues({});
    EXPECT_EQ("<undefined>", strict.getValue());
}

// Values of one format share one compiled expression; run per test process, this also races
// its first compilation.
TEST(PropertyValueString, ValidatesFromManyThreadsAtOnce) {
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int& count : mismatches) {
        threads.emplace_back([&count] {
            for (int round = 0; round < 500; ++round) {
                const PropertyValueFormatedString<S::STRING_FORMAT_VERSION> value;
                count += !value.isValidValue("1.2.3") + value.isValidValue("1.2.3.4");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}

}  // namespace
}  // namespace Kivo::Data::Base
