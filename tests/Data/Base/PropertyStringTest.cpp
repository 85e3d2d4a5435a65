#include "Data/Base/PropertyString.h"

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"

namespace Kivo::Data::Base {
namespace {

typedef PropertyValueString S;

struct FormatRow {
    S::FormatType format;
    std::string text;
    bool accepted;
};

TEST(PropertyValueString, ChecksEachFormatOnTheWholeText) {
    const std::vector<FormatRow> rows = {
        {S::STRING_FORMAT_TEXT, "", true},
        {S::STRING_FORMAT_TEXT, "any text", true},
        {S::STRING_FORMAT_DATE, "2018-02-30", true},
        {S::STRING_FORMAT_DATE, "2018-13-01", false},
        {S::STRING_FORMAT_DATE, "2018-01-32", false},
        {S::STRING_FORMAT_DATE, "", false},
        {S::STRING_FORMAT_DATE, "2018-01-01x", false},
        {S::STRING_FORMAT_TIME, "12:00:00", false},
        {S::STRING_FORMAT_TIME, "12:00:00Z", true},
        {S::STRING_FORMAT_TIME, "12:00:00.12Z", false},
        {S::STRING_FORMAT_TIME, "12:00:00.123+01:00", true},
        {S::STRING_FORMAT_DATETIME, "2018-02-01T12:00:00-05:00", true},
        {S::STRING_FORMAT_DATETIME, "2018-02-01 12:00:00Z", false},
        {S::STRING_FORMAT_LANGUAGE, "de", true},
        {S::STRING_FORMAT_LANGUAGE, "de-at", true},
        {S::STRING_FORMAT_LANGUAGE, "DE", false},
        {S::STRING_FORMAT_LANGUAGE, "deu", false},
        {S::STRING_FORMAT_SERVICECATEGORY, "media", true},
        {S::STRING_FORMAT_SERVICECATEGORY, "medialibrary", true},
        {S::STRING_FORMAT_SERVICECATEGORY, "map", true},
        {S::STRING_FORMAT_SERVICECATEGORY, "swdl", true},
        {S::STRING_FORMAT_SERVICECATEGORY, "Media", false},
        {S::STRING_FORMAT_SERVICECATEGORY, "addressesx", false},
        {S::STRING_FORMAT_SERVICECATEGORY, "xswdl", false},
        {S::STRING_FORMAT_VERSION, "v1", true},
        {S::STRING_FORMAT_VERSION, "1.2", true},
        {S::STRING_FORMAT_VERSION, "1.2.3", true},
        {S::STRING_FORMAT_VERSION, "1.2.3.4", false},
        {S::STRING_FORMAT_VERSION, "V1", false},
        {S::STRING_FORMAT_CUSTOM, "", false},
        {S::STRING_FORMAT_CUSTOM, "x", true},
        {S::STRING_POINT_2D, "123456;654321", true},
        {S::STRING_POINT_2D, "12345;654321", false},
        {S::STRING_RECTANGLE_2D, "000001;000002;000003;000004", true},
        {S::STRING_RECTANGLE_2D, "000001;000002;000003", false},
        {static_cast<S::FormatType>(42), "", true},
    };
    for (const FormatRow& row : rows) {
        const std::string name = std::to_string(row.format) + " '" + row.text + "'";
        S value(row.format);
        EXPECT_EQ(row.accepted, value.isValidStringValue(row.text)) << name;
        EXPECT_EQ(row.accepted, value.setValue(row.text)) << name;
        EXPECT_EQ(row.accepted ? row.text : "<undefined>", value.getValue()) << name;
        S fromText(row.format);
        EXPECT_EQ(row.accepted, fromText.setValueFromString(row.text)) << name;
        EXPECT_EQ(value.getValue(), fromText.getValue()) << name;
    }
}

TEST(PropertyValueString, SetCustomFormatKeepsTheEarlierCheckOnRefusal) {
    S date(S::STRING_FORMAT_DATE);
    EXPECT_FALSE(date.setCustomFormat(""));
    EXPECT_FALSE(date.setValue("x")) << "a non-custom string keeps its format check";

    PropertyValueCustomString custom("abc");
    ASSERT_TRUE(custom.setCustomFormat("[a-z]+"));
    EXPECT_FALSE(custom.setValue("123"));
    EXPECT_FALSE(custom.setCustomFormat("[0-9]+")) << "the current text fails the new pattern";
    EXPECT_THROW(custom.setCustomFormat("("), Poco::RegularExpressionException);
    EXPECT_FALSE(custom.setValue("123")) << "the earlier pattern stays in force";
    EXPECT_TRUE(custom.setValue("xyz"));

    EXPECT_TRUE(custom.setCustomFormat(""));
    EXPECT_TRUE(custom.setValue("")) << "an empty pattern lifts every restriction";
}

TEST(PropertyValueCustomString, ConstructorInstallsThePatternWhateverTheValue) {
    PropertyValueCustomString placeholder(S::UNDEFINED_VALUE, "[0-9]+");
    EXPECT_EQ("<undefined>", placeholder.getValue());
    EXPECT_FALSE(placeholder.setValue("abc"));
    EXPECT_TRUE(placeholder.setValue("12"));

    PropertyValueCustomString unconstrained("a", "");
    EXPECT_TRUE(unconstrained.setValue(""));
    EXPECT_THROW(PropertyValueCustomString("a", "[0-9"), Poco::RegularExpressionException);
}

TEST(PropertyValueCustomString, CopiesKeepTheirCheckWhenTheOriginalChangesIt) {
    PropertyValueCustomString original("1", "[0-9]+");
    const PropertyValueCustomString copy(original);
    ASSERT_TRUE(original.setCustomFormat(""));
    EXPECT_TRUE(original.isValidValue("abc"));
    EXPECT_FALSE(copy.isValidValue("abc"));
}

struct ComparisonRow {
    const char* name;
    const PropertyValueBase& lhs;
    const PropertyValueBase& rhs;
    bool like;
    bool equal;
    int order;  // compare(); only for like values
};

TEST(PropertyValueString, ComparesWithinLikeKindsOnly) {
    const S on("on");
    const S later("2019-01-01");
    const S date("2018-01-01", S::STRING_FORMAT_DATE);
    const PropertyValueEnum enumOn(PropertyValueEnum::EnumValues{"on"});
    const PropertyValueCustomString custom("1");
    const PropertyValueFormatedString<S::STRING_FORMAT_VERSION> version("2");
    const PropertyValueBoolean boolean(true);
    const PropertyValueUri uri("/a");
    const PropertyValueUuid uuid;
    PropertyValueArray<S> ab;
    PropertyValueArray<S> abb;
    ASSERT_TRUE(ab.setValueFromString(R"(["b", "a"])") &&
                abb.setValueFromString(R"(["b", "a", "b"])"));
    const PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_VERSION>> versions;
    const std::vector<ComparisonRow> rows = {
        {"string and enum, same text", on, enumOn, true, true, 0},
        {"plain text after a date, format ignored", later, date, true, false, 1},
        {"custom before version", custom, version, true, false, -1},
        {"string and boolean", on, boolean, false, false, 0},
        {"string and URI", on, uri, false, false, 0},
        {"UUID and string", uuid, on, false, false, 0},
        {"arrays, lexicographic", ab, abb, true, false, -1},
        {"arrays of two element kinds", abb, versions, false, false, 0},
    };
    for (const ComparisonRow& row : rows) {
        EXPECT_EQ(row.equal, row.lhs == row.rhs) << row.name;
        EXPECT_EQ(row.equal, row.lhs != row.rhs) << row.name << ": untyped != answers as == does";
        if (!row.like) {
            EXPECT_THROW(row.lhs.compare(row.rhs), std::runtime_error) << row.name;
            EXPECT_THROW((void)(row.lhs < row.rhs), std::runtime_error) << row.name;
            continue;
        }
        EXPECT_EQ(row.order, row.lhs.compare(row.rhs)) << row.name;
        EXPECT_EQ(-row.order, row.rhs.compare(row.lhs)) << row.name;
        EXPECT_EQ(row.order < 0, row.lhs < row.rhs) << row.name;
        EXPECT_EQ(row.order > 0, row.lhs > row.rhs) << row.name;
    }
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
