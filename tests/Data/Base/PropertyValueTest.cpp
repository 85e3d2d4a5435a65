#include "Data/Base/PropertyValue.h"

#include <climits>
#include <stdexcept>
#include <string>

#include <Poco/Nullable.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyNumber.h"

namespace Kivo::Data::Base {
namespace {

typedef PropertyValueNumberBase<long> Number;

Number limited(long value, Poco::Nullable<long> minValue, Poco::Nullable<long> maxValue) {
    return Number(value, minValue, maxValue, Poco::Nullable<long>());
}

Number withResolution(long resolution) {
    return Number(0, Poco::Nullable<long>(), Poco::Nullable<long>(), resolution);
}

// Another kind storing long, to compare like types of different classes.
class PlainLong : public PropertyValue<long> {
public:
    explicit PlainLong(long value) : PropertyValue<long>(value) {}
    Poco::Dynamic::Var getGenericValue() const override { return m_value; }
    bool parseString(const std::string&, long&) const override { return false; }
};

TEST(PropertyValueBoolean, AcceptsOnlyExactWords) {
    struct Row {
        const char* text;
        bool accepted;
        bool value;
    };
    const Row rows[] = {{"true", true, true},  {"false", true, false}, {"True", false, true},
                        {"TRUE", false, true}, {" true", false, true}, {"true ", false, true},
                        {"1", false, true},    {"0", false, true},     {"", false, true}};
    for (const Row& row : rows) {
        PropertyValueBoolean value(true);
        EXPECT_EQ(row.accepted, value.isValidStringValue(row.text)) << row.text;
        EXPECT_TRUE(value.getValue()) << "isValidStringValue stored something for " << row.text;
        EXPECT_EQ(row.accepted, value.setValueFromString(row.text)) << row.text;
        EXPECT_EQ(row.value, value.getValue()) << row.text;
    }
}

TEST(PropertyValueBoolean, GenericValueAndOrdering) {
    PropertyValueBoolean yes(true);
    PropertyValueBoolean no(false);
    EXPECT_TRUE(yes.getGenericValue().type() == typeid(bool));
    EXPECT_EQ("true", yes.toString());
    EXPECT_EQ("false", std::string(no));
    EXPECT_TRUE(no < yes);
    EXPECT_EQ(-1, no.compare(yes));
    EXPECT_EQ(1, yes.compare(no));
    EXPECT_EQ(0, yes.compare(PropertyValueBoolean(true)));
    EXPECT_EQ("unspecified type", yes.getValueType());
}

TEST(PropertyValueNumber, ParsesDecimalsWithThousandsSeparator) {
    struct Row {
        const char* text;
        bool accepted;
        long value;
    };
    const Row rows[] = {{"1,000", true, 1000},
                        {"-42", true, -42},
                        {"9223372036854775807", true, LONG_MAX},
                        {"9223372036854775808", false, 7},
                        {"1.5", false, 7},
                        {"abc", false, 7},
                        {"", false, 7},
                        {"12abc", false, 7}};
    for (const Row& row : rows) {
        Number value(7, {}, {}, {});
        EXPECT_EQ(row.accepted, value.setValueFromString(row.text)) << row.text;
        EXPECT_EQ(row.value, value.getValue()) << row.text;
    }
    EXPECT_EQ("1000", Number(1000, {}, {}, {}).toString());
    EXPECT_TRUE(Number(5, {}, {}, {}).getGenericValue().type() == typeid(long));
}

TEST(PropertyValueNumber, LimitsAreInclusiveAndRefusalsKeepTheValue) {
    Number value = limited(5, 0, 10);
    EXPECT_TRUE(value.setValue(0));
    EXPECT_TRUE(value.setValue(10));
    EXPECT_FALSE(value.setValue(11));
    EXPECT_FALSE(value.setValue(-1));
    EXPECT_EQ(10, value.getValue());
    EXPECT_FALSE(value.setValueFromString("-1"));
    EXPECT_FALSE(value.isValidStringValue("11"));
    EXPECT_TRUE(value.isValidStringValue("1,0"));
    EXPECT_EQ(10, value.getValue());

    Number onlyMin = limited(5, 3, {});
    EXPECT_TRUE(onlyMin.setValue(LONG_MAX));
    EXPECT_FALSE(onlyMin.setValue(2));
    Number onlyMax = limited(5, {}, 3);
    EXPECT_TRUE(onlyMax.setValue(LONG_MIN));
    EXPECT_FALSE(onlyMax.setValue(4));
}

TEST(PropertyValueNumber, RoundsHalfAwayFromZero) {
    struct Row {
        long resolution;
        long given;
        long stored;
    };
    const Row rows[] = {
        {10, 14, 10},   {10, 15, 20},   {10, -15, -20}, {10, -14, -10}, {10, 0, 0},
        {10, 20, 20},   {3, 5, 6},
        // Integer halving: with 3 the half is 1, so 4 already rounds away.
        {3, 4, 6},      {1, 17, 17},    {-1, 17, 17},
        {-1, LONG_MIN, LONG_MIN},       {0, 123, 0},    {0, -123, 0},
        // Found by fuzzing: |LONG_MIN - 0| overflowed (a sanitizer build reports it).
        {0, LONG_MIN, 0},
        // Rounding away from zero would leave the range: the value rounds toward zero.
        {10, LONG_MAX, LONG_MAX - 7},   {10, LONG_MIN, LONG_MIN + 8},
        {LONG_MIN, -5, 0},
    };
    for (const Row& row : rows) {
        Number value = withResolution(row.resolution);
        EXPECT_TRUE(value.setValue(row.given)) << row.resolution << " / " << row.given;
        EXPECT_EQ(row.stored, value.getValue()) << row.resolution << " / " << row.given;
    }
}

TEST(PropertyValueNumber, TextIsNotRoundedAndLimitsApplyAfterRounding) {
    Number value = withResolution(10);
    EXPECT_TRUE(value.setValueFromString("14"));
    EXPECT_EQ(14, value.getValue());
    EXPECT_TRUE(value.setValue(14));
    EXPECT_EQ(10, value.getValue());

    Number bounded(0, {}, 19, 10);
    EXPECT_FALSE(bounded.setValue(15)) << "15 rounds to 20, above the limit";
    EXPECT_EQ(0, bounded.getValue());
    EXPECT_TRUE(bounded.setValue(24 - 10));
    EXPECT_EQ(10, bounded.getValue());
}

TEST(PropertyValueNumber, OtherInstantiationsRoundToo) {
    PropertyValueNumberBase<double> real(0.0, {}, {}, 0.5);
    EXPECT_TRUE(real.setValue(1.26));
    EXPECT_DOUBLE_EQ(1.5, real.getValue());
    EXPECT_TRUE(real.setValueFromString("1,000.25"));
    EXPECT_DOUBLE_EQ(1000.25, real.getValue());

    PropertyValueNumberBase<unsigned long> natural(0, {}, {}, 10);
    EXPECT_TRUE(natural.setValue(15));
    EXPECT_EQ(20u, natural.getValue());
    EXPECT_TRUE(natural.setValue(ULONG_MAX));
    EXPECT_EQ(ULONG_MAX - 5, natural.getValue());
    EXPECT_FALSE(natural.setValueFromString("-1"));
}

TEST(PropertyValue, CrossKindComparisons) {
    const Number number(5, {}, {}, {});
    const PlainLong sameLong(5);
    const PlainLong bigger(6);
    const PropertyValueBoolean boolean(true);
    const PropertyValueBase& numberBase = number;

    // Like types: same stored type, different classes.
    EXPECT_TRUE(numberBase == sameLong);
    EXPECT_TRUE(numberBase != sameLong) << "the untyped != answers like ==";
    EXPECT_FALSE(numberBase != bigger);
    EXPECT_FALSE(number != static_cast<const PropertyValue<long>&>(sameLong));
    EXPECT_EQ(0, numberBase.compare(sameLong));
    EXPECT_EQ(-1, numberBase.compare(bigger));
    EXPECT_EQ(1, static_cast<const PropertyValueBase&>(bigger).compare(number));
    EXPECT_TRUE(numberBase < bigger);
    EXPECT_TRUE(static_cast<const PropertyValueBase&>(bigger) > number);

    // Unlike types: equality is quietly false, ordering throws.
    EXPECT_FALSE(numberBase == boolean);
    EXPECT_FALSE(numberBase != boolean);
    for (auto order : {+[](const PropertyValueBase& a, const PropertyValueBase& b) { return a < b; },
                       +[](const PropertyValueBase& a, const PropertyValueBase& b) { return a > b; },
                       +[](const PropertyValueBase& a, const PropertyValueBase& b) {
                           return a.compare(b) == 0;
                       }}) {
        try {
            order(numberBase, boolean);
            ADD_FAILURE() << "ordering unlike values did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ("Invalid property value conversion", error.what());
        }
    }
    EXPECT_THROW(PropertyValue<bool>::convert(numberBase), std::runtime_error);
    EXPECT_EQ(&number, PropertyValue<long>::convert(numberBase));
}

TEST(PropertyValue, MatchesTheWholeText) {
    const Number number(12345, {}, {}, {});
    const PropertyValueBoolean boolean(true);
    EXPECT_TRUE(number.matches(Poco::RegularExpression("12.*")));
    EXPECT_FALSE(number.matches(Poco::RegularExpression("234")));
    EXPECT_FALSE(number.matches(Poco::RegularExpression("123")));
    EXPECT_TRUE(boolean.matches(Poco::RegularExpression("t.ue")));
    EXPECT_FALSE(boolean.matches(Poco::RegularExpression("ru")));
    EXPECT_FALSE(boolean.matches(Poco::RegularExpression("x*"))) << "empty match never counts";
}

}  // namespace
}  // namespace Kivo::Data::Base
