#include "Data/Base/PropertyValue.h"

#include <climits>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/RegularExpression.h>
#include <Poco/URI.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"
#include "TestChannel.h"

namespace Kivo::Data::Base {
namespace {

typedef PropertyValueNumberBase<long> Number;
typedef PropertyValueString S;
typedef PropertyValueEnum::EnumValues Words;
typedef PropertyValueArray<S> StringArray;
typedef PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_SERVICECATEGORY>>
    CategoryArray;
typedef PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_VERSION>> VersionArray;
typedef std::vector<std::string> Texts;
typedef std::function<std::pair<bool, std::string>(const std::string&)> Writer;

// Writes a text into a fresh copy of `value`: whether it was accepted, and the text it holds
// afterwards. Also checks that the validity check agrees and stores nothing, and, for text
// kinds, that the typed setter decides as the text one does.
template <class V>
Writer into(const V& value) {
    return [value](const std::string& text) {
        V fresh(value);
        const std::string before = fresh.toString();
        const bool valid = fresh.isValidStringValue(text);
        EXPECT_EQ(before, fresh.toString()) << "the validity check stored '" << text << "'";
        const bool accepted = fresh.setValueFromString(text);
        EXPECT_EQ(valid, accepted) << "validity check and setter disagree on '" << text << "'";
        if constexpr (std::is_same_v<typename V::value_type, std::string>) {
            V typed(value);
            EXPECT_EQ(accepted, typed.setValue(text)) << "typed setter on '" << text << "'";
        }
        return std::make_pair(accepted, fresh.toString());
    };
}

struct TextRow {
    Writer write;
    std::string text;
    bool accepted;
    std::string stored;  // the text held afterwards: the new one, or the kept one
};

TEST(PropertyValue, EachKindTakesAWholeValidTextOrKeepsItsValue) {
    const Writer boolean = into(PropertyValueBoolean(true));
    const Writer number = into(Number(7, {}, {}, {}));
    const Writer limited = into(Number(5, 0, 10, {}));
    const Writer real = into(PropertyValueNumberBase<double>(0.0, {}, {}, {}));
    const Writer natural = into(PropertyValueNumberBase<unsigned long>(3, {}, {}, {}));
    const auto format = [](S::FormatType type) { return into(S(type)); };
    const Writer text = format(S::STRING_FORMAT_TEXT), date = format(S::STRING_FORMAT_DATE);
    const Writer time = format(S::STRING_FORMAT_TIME), stamp = format(S::STRING_FORMAT_DATETIME);
    const Writer language = format(S::STRING_FORMAT_LANGUAGE);
    const Writer category = format(S::STRING_FORMAT_SERVICECATEGORY);
    const Writer version = format(S::STRING_FORMAT_VERSION);
    const Writer custom = format(S::STRING_FORMAT_CUSTOM);
    const Writer point = format(S::STRING_POINT_2D), rectangle = format(S::STRING_RECTANGLE_2D);
    const Writer unknownFormat = format(static_cast<S::FormatType>(42));
    const Writer onOff = into(PropertyValueEnum("on", Words{"off", "on"}));
    const Writer anyWord = into(PropertyValueEnum(Words{}));
    const Writer uri = into(PropertyValueUri("/svc/a"));
    const std::string knownUuid = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
    const Writer uuid = into(PropertyValueUuid(knownUuid));
    const std::string undefined = S::UNDEFINED_VALUE;
    // clang-format off
    const std::vector<TextRow> rows = {
        {boolean, "false", true, "false"}, {boolean, "True", false, "true"},
        {boolean, " true", false, "true"}, {boolean, "1", false, "true"},
        {boolean, "", false, "true"}, {number, "1,000", true, "1000"},
        {number, "-42", true, "-42"}, {number, "9223372036854775807", true, "9223372036854775807"},
        {number, "9223372036854775808", false, "7"}, {number, "1.5", false, "7"},
        {number, "12abc", false, "7"}, {number, "", false, "7"},
        {limited, "10", true, "10"}, {limited, "0", true, "0"}, {limited, "11", false, "5"},
        {limited, "-1", false, "5"}, {limited, "1,0", true, "10"},
        {real, "1,000.25", true, "1000.25"}, {natural, "-1", false, "3"},
        {text, "", true, ""}, {text, "any text", true, "any text"},
        {date, "2018-02-30", true, "2018-02-30"}, {date, "2018-13-01", false, undefined},
        {date, "2018-01-32", false, undefined}, {date, "", false, undefined},
        {date, "2018-01-01x", false, undefined}, {time, "12:00:00", false, undefined},
        {time, "12:00:00Z", true, "12:00:00Z"}, {time, "12:00:00.12Z", false, undefined},
        {time, "12:00:00.123+01:00", true, "12:00:00.123+01:00"},
        {stamp, "2018-02-01T12:00:00-05:00", true, "2018-02-01T12:00:00-05:00"},
        {stamp, "2018-02-01 12:00:00Z", false, undefined}, {language, "de", true, "de"},
        {language, "de-at", true, "de-at"}, {language, "DE", false, undefined},
        {language, "deu", false, undefined}, {category, "media", true, "media"},
        {category, "medialibrary", true, "medialibrary"}, {category, "swdl", true, "swdl"},
        {category, "Media", false, undefined}, {category, "addressesx", false, undefined},
        {category, "xswdl", false, undefined}, {version, "v1", true, "v1"},
        {version, "1.2.3", true, "1.2.3"}, {version, "1.2.3.4", false, undefined},
        {version, "V1", false, undefined}, {custom, "", false, undefined},
        {custom, "x", true, "x"}, {point, "123456;654321", true, "123456;654321"},
        {point, "12345;654321", false, undefined},
        {rectangle, "000001;000002;000003;000004", true, "000001;000002;000003;000004"},
        {rectangle, "000001;000002;000003", false, undefined}, {unknownFormat, "", true, ""},
        {onOff, "off", true, "off"}, {onOff, "ON", false, "on"}, {onOff, "dim", false, "on"},
        {onOff, "", false, "on"}, {anyWord, "anything", true, "anything"},
        {uuid, "00000000-0000-0000-0000-000000000000", false, knownUuid},
        {uuid, "6ba7b810-9dad-11d1-80b4", false, knownUuid}, {uuid, "", false, knownUuid},
        {uuid, "6BA7B811-9DAD-11D1-80B4-00C04FD430C8", true,
         "6ba7b811-9dad-11d1-80b4-00c04fd430c8"},
        {uri, "", false, "/svc/a"},
        {uri, "http://host:8080/svc/res/42?q=1", true, "http://host:8080/svc/res/42?q=1"},
    };
    // clang-format on
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto [accepted, stored] = rows[i].write(rows[i].text);
        EXPECT_EQ(rows[i].accepted, accepted) << "row " << i << " '" << rows[i].text << "'";
        EXPECT_EQ(rows[i].stored, stored) << "row " << i << " '" << rows[i].text << "'";
    }
    // Null values are refused through the typed setters as well.
    PropertyValueUuid id{Poco::UUID(knownUuid)};
    EXPECT_FALSE(id.setValue(Poco::UUID::null()));
    PropertyValueUri address("/svc/a");
    EXPECT_FALSE(address.setValue(Poco::URI()));
    EXPECT_EQ("/svc/a", address.toString());
}

// Number kinds round to their resolution half away from zero, except where that would leave
// the type's range; limits apply to the rounded value; texts are never rounded.
TEST(PropertyValueNumber, RoundsHalfAwayFromZeroWithinRange) {
    struct Row {
        long resolution, given, stored;
    };
    // clang-format off
    const Row rows[] = {
        {10, 14, 10}, {10, 15, 20}, {10, -15, -20}, {10, -14, -10}, {10, 0, 0}, {3, 5, 6},
        // Integer halving: with 3 the half is 1, so 4 already rounds away.
        {3, 4, 6}, {1, 17, 17}, {-1, 17, 17}, {-1, LONG_MIN, LONG_MIN}, {0, -123, 0},
        // Found by fuzzing: |LONG_MIN - 0| overflowed (a sanitizer build reports it).
        {0, LONG_MIN, 0}, {10, LONG_MAX, LONG_MAX - 7}, {10, LONG_MIN, LONG_MIN + 8},
        {LONG_MIN, -5, 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        Number value(0, {}, {}, row.resolution);
        EXPECT_TRUE(value.setValue(row.given)) << row.resolution << " / " << row.given;
        EXPECT_EQ(row.stored, value.getValue()) << row.resolution << " / " << row.given;
    }
    Number bounded(0, {}, 19, 10);
    EXPECT_FALSE(bounded.setValue(15)) << "15 rounds to 20, above the limit";
    EXPECT_TRUE(bounded.setValueFromString("14"));
    EXPECT_EQ(14, bounded.getValue()) << "a text is taken as written";
    EXPECT_TRUE(bounded.setValue(14));
    EXPECT_EQ(10, bounded.getValue());
    Number onlyMin(5, 3, {}, {});
    EXPECT_TRUE(onlyMin.setValue(LONG_MAX));
    EXPECT_FALSE(onlyMin.setValue(2));

    PropertyValueNumberBase<double> real(0.0, {}, {}, 0.5);
    EXPECT_TRUE(real.setValue(1.26));
    EXPECT_DOUBLE_EQ(1.5, real.getValue());
    PropertyValueNumberBase<unsigned long> natural(0, {}, {}, 10);
    EXPECT_TRUE(natural.setValue(ULONG_MAX));
    EXPECT_EQ(ULONG_MAX - 5, natural.getValue());
}

// Each value keeps its own limits and resolution, through copies, assignment and changes of
// either, though values with equal ones share them.
TEST(PropertyValueNumber, KeepsItsOwnLimitsThroughCopiesAndChanges) {
    Number small(0, 0, 10, {}), stepped(0, 0, 1000, 5), assigned;
    const Number copy(small);
    small.setConstraints({}, 5);
    EXPECT_TRUE(small.setValue(-100));
    EXPECT_FALSE(small.setValue(6));
    EXPECT_TRUE(copy.isValidValue(10)) << "a copy keeps the limits it was made with";
    EXPECT_FALSE(copy.isValidValue(-1));
    EXPECT_TRUE(stepped.setValue(998));
    EXPECT_EQ(1000, stepped.getValue());

    stepped.setConstraints(-5, 5);
    EXPECT_EQ(5, stepped.getResolution().value()) << "new limits keep the resolution";
    stepped.setResolution({});
    EXPECT_EQ(-5, stepped.getMinValue().value()) << "a new resolution keeps the limits";
    EXPECT_TRUE(stepped.setValue(3));
    EXPECT_EQ(3, stepped.getValue());
    assigned = stepped;
    stepped.setConstraints({}, {});
    EXPECT_TRUE(stepped.getMinValue().isNull() && stepped.getMaxValue().isNull() &&
                stepped.getResolution().isNull());
    EXPECT_TRUE(stepped.setValue(LONG_MIN));
    EXPECT_FALSE(assigned.setValue(6)) << "an assigned value keeps the limits it took";
    EXPECT_EQ(5, assigned.getMaxValue().value());
}

struct ComparisonRow {
    const char* name;
    const PropertyValueBase& lhs;
    const PropertyValueBase& rhs;
    bool like;
    bool equal;
    int order;  // compare(); only for like values
};

TEST(PropertyValue, ComparesWithinLikeKindsOnly) {
    const Number five(5, {}, {}, {}), six(6, {}, {}, {});
    const PropertyValueBoolean yes(true), no(false);
    const S on("on"), later("2019-01-01"), date("2018-01-01", S::STRING_FORMAT_DATE);
    const PropertyValueEnum enumOn(Words{"on"});
    const PropertyValueCustomString custom("1");
    const PropertyValueFormatedString<S::STRING_FORMAT_VERSION> version("2");
    const PropertyValueUri one("http://one/a"), oneAgain("http://one/a"), two("http://two/a");
    const PropertyValueUri oneB("http://one/b");
    const PropertyValueUri query("/a?x=1"), path("/a");
    const PropertyValueUuid low(std::string("00000000-0000-1000-8000-000000000001"));
    const PropertyValueUuid high(std::string("ffffffff-0000-1000-8000-000000000001"));
    PropertyValueArray<S> ab, abb;
    ASSERT_TRUE(ab.setValueFromString(R"(["b", "a"])"));
    ASSERT_TRUE(abb.setValueFromString(R"(["b", "a", "b"])"));
    const PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_VERSION>> versions;
    const std::vector<ComparisonRow> rows = {
        {"numbers", five, six, true, false, -1},
        {"false before true", no, yes, true, false, -1},
        {"number and boolean", five, yes, false, false, 0},
        {"string and enum, same text", on, enumOn, true, true, 0},
        {"plain text after a date, format ignored", later, date, true, false, 1},
        {"custom before version", custom, version, true, false, -1},
        {"string and boolean", on, yes, false, false, 0},
        {"string and URI", on, path, false, false, 0},
        {"UUID and string", low, on, false, false, 0},
        {"UUIDs", low, high, true, false, -1},
        {"URIs order by path alone", one, two, true, false, 0},
        {"URIs, path decides before host", two, oneB, true, false, -1},
        {"URIs equal only whole", query, path, true, false, 0},
        {"same URI", one, oneAgain, true, true, 0},
        {"arrays, lexicographic", ab, abb, true, false, -1},
        {"arrays of two element kinds", abb, versions, false, false, 0},
    };
    for (const ComparisonRow& row : rows) {
        EXPECT_EQ(row.equal, row.lhs == row.rhs) << row.name;
        EXPECT_EQ(row.equal, row.lhs != row.rhs) << row.name << ": untyped != answers as == does";
        if (!row.like) {
            try {
                row.lhs.compare(row.rhs);
                ADD_FAILURE() << row.name << ": ordering unlike values did not throw";
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ("Invalid property value conversion", error.what()) << row.name;
            }
            EXPECT_THROW((void)(row.lhs < row.rhs), std::runtime_error) << row.name;
            EXPECT_THROW((void)(row.lhs > row.rhs), std::runtime_error) << row.name;
            continue;
        }
        EXPECT_EQ(row.order, row.lhs.compare(row.rhs)) << row.name;
        EXPECT_EQ(-row.order, row.rhs.compare(row.lhs)) << row.name;
        EXPECT_EQ(row.order < 0, row.lhs < row.rhs) << row.name;
        EXPECT_EQ(row.order > 0, row.lhs > row.rhs) << row.name;
    }
    EXPECT_TRUE(five != six) << "the typed != is a true inequality";
    EXPECT_FALSE(two != PropertyValueUri("http://two/a"));
    EXPECT_THROW(PropertyValue<bool>::convert(static_cast<const PropertyValueBase&>(five)),
                 std::runtime_error);
}

TEST(UuidKey, OrdersAndComparesAsTheUuidLibrary) {
    // Pairs differing in one field each, with the top bit of the deciding byte set on one side:
    // a signed comparison, or a word assembled in the wrong byte order, gets one of them wrong.
    const std::vector<std::pair<std::string, std::string>> pairs = {
        {"00000001-ffff-ffff-ffff-ffffffffffff", "80000000-0000-0000-0000-000000000000"},
        {"12345678-0001-ffff-ffff-ffffffffffff", "12345678-8000-0000-0000-000000000000"},
        {"12345678-9abc-00ff-ffff-ffffffffffff", "12345678-9abc-8000-0000-000000000000"},
        {"12345678-9abc-def0-00ff-ffffffffffff", "12345678-9abc-def0-8000-000000000000"},
        {"12345678-9abc-def0-1234-7fffffffffff", "12345678-9abc-def0-1234-800000000000"},
        {"12345678-9abc-def0-1234-56789abcde7f", "12345678-9abc-def0-1234-56789abcde80"},
        {"6ba7b810-9dad-11d1-80b4-00c04fd430c8", "6ba7b810-9dad-11d1-80b4-00c04fd430c8"},
    };
    std::vector<std::pair<Poco::UUID, Poco::UUID>> cases;
    for (const auto& pair : pairs) cases.emplace_back(Poco::UUID(pair.first), Poco::UUID(pair.second));
    std::mt19937 random(19);
    const auto draw = [&random] {
        char bytes[16];
        for (char& byte : bytes) byte = static_cast<char>(random() & 0xFF);
        Poco::UUID uuid;
        uuid.copyFrom(bytes);
        return uuid;
    };
    for (int i = 0; i < 200; ++i) cases.emplace_back(draw(), draw());
    for (const auto& [a, b] : cases) {
        const std::string both = a.toString() + " / " + b.toString();
        EXPECT_EQ(a < b, UuidKey(a) < UuidKey(b)) << both;
        EXPECT_EQ(b < a, UuidKey(b) < UuidKey(a)) << both;
        EXPECT_EQ(a == b, UuidKey(a) == UuidKey(b)) << both;
        EXPECT_EQ(a != b, UuidKey(a) != UuidKey(b)) << both;
        EXPECT_EQ(a, UuidKey(a).toUuid()) << both;
    }
    EXPECT_TRUE(UuidKey() == UuidKey(Poco::UUID::null()));
}

TEST(PropertyValue, MatchesTheWholeTextOnly) {
    const Number number(12345, {}, {}, {});
    const PropertyValueBoolean boolean(true);
    EXPECT_TRUE(number.matches(Poco::RegularExpression("12.*")));
    EXPECT_FALSE(number.matches(Poco::RegularExpression("234")));
    EXPECT_FALSE(number.matches(Poco::RegularExpression("123")));
    EXPECT_TRUE(boolean.matches(Poco::RegularExpression("t.ue")));
    EXPECT_FALSE(boolean.matches(Poco::RegularExpression("x*"))) << "empty match never counts";
}

// A URI value keeps only a text, yet answers every question as the URI it was given would:
// texts, equality of whole URIs, ordering by path, path segments and the URI itself, also for
// URIs whose text does not read back as them (a relative URI with a host, a well-known port
// given explicitly, one built part by part).
TEST(PropertyValueUri, AnswersAsTheUriLibrary) {
    Poco::URI built;
    built.setHost("host");
    built.setPath("/a");
    std::vector<Poco::URI> uris = {built};
    for (const char* text :
         {"/svc/a", "/a", "/a?x=1", "http://one/a", "HTTP://Host:80/a%20b?x=%41#f%20g",
          "http://host/a%20b?x=%41#f%20g", "//host/a", "http://u@h:8080/p/q/", "/a%2Fb", "/a/b",
          "mailto:someone@example.org", "urn:x:y", "file:///tmp/x", "http://[::1]:8080/x",
          "http://h:80/a", "http://h/a", "/a//b/", "?q", "#frag", ""}) {
        uris.emplace_back(text);
    }
    std::vector<PropertyValueUri> values;
    for (const Poco::URI& uri : uris) values.emplace_back(uri);
    for (std::size_t i = 0; i < uris.size(); ++i) {
        const Poco::URI& uri = uris[i];
        const std::string name = "row " + std::to_string(i) + " " + uri.toString();
        PropertyValueUri copy(values[i]), assigned;
        assigned = copy;
        for (const PropertyValueUri* value : {&values[i], &copy, &assigned}) {
            EXPECT_EQ(uri.toString(), value->toString()) << name;
            EXPECT_TRUE(uri == value->getValue()) << name;
            EXPECT_EQ(uri.getSpecifiedPort(), value->getValue().getSpecifiedPort()) << name;
        }
        std::vector<std::string> segments;
        uri.getPathSegments(segments);
        EXPECT_EQ(segments, values[i].getPathSegments()) << name;
        if (i > 0 && !uri.empty()) {
            PropertyValueUri read;
            ASSERT_TRUE(read.setValueFromString(uri.toString())) << name;
            const Poco::URI reread(uri.toString());
            EXPECT_EQ(reread.toString(), read.toString()) << name;
            EXPECT_TRUE(reread == read.getValue()) << name;
        }
        for (std::size_t j = 0; j < uris.size(); ++j) {
            const std::string pair = name + " / " + uris[j].toString();
            const int byPath = uri.getPath().compare(uris[j].getPath());
            EXPECT_EQ(uri == uris[j], values[i] == values[j]) << pair;
            EXPECT_EQ(uri != uris[j], values[i] != values[j]) << pair;
            EXPECT_EQ(uri == uris[j], values[i] == static_cast<const PropertyValueBase&>(values[j]))
                << pair;
            EXPECT_EQ(byPath < 0 ? -1 : byPath > 0 ? 1 : 0, values[i].compare(values[j])) << pair;
        }
    }
    // Readers asking for the URI at once all get the same one.
    const PropertyValueUri shared("http://host/a?x=1");
    std::vector<const Poco::URI*> seen(4);
    std::vector<std::thread> readers;
    for (auto& answer : seen) {
        readers.emplace_back([&shared, &answer] { answer = &shared.getValue(); });
    }
    for (std::thread& reader : readers) reader.join();
    for (const Poco::URI* answer : seen) EXPECT_EQ(&shared.getValue(), answer);
}

// A value read from a text holds what the URI library reads from it, whether the text is a
// plain path (read without the library) or anything else.
TEST(PropertyValueUri, ReadsTextAsTheUriLibrary) {
    const std::vector<std::string> texts = {
        "/svc/items/6ba7b810-9dad-11d1-80b4-00c04fd430c8", "/", "/a", "/a/", "/A-Z_0.9~x/y",
        "/a//b", "/a/./b/../c", "//host/a", "/a b", "/a%2Fb", "/a%41", "/a?x", "/a#f", "/a:b",
        "/a;b", "/a+b", "/a@b", "/ä", "a/b", "http://h/a", ""};
    for (const std::string& text : texts) {
        const Poco::URI uri(text);
        const PropertyValueUri read(text), parsed(uri);
        EXPECT_EQ(uri.toString(), read.toString()) << text;
        EXPECT_TRUE(uri == read.getValue()) << text;
        EXPECT_TRUE(read == parsed) << text;
        std::vector<std::string> segments;
        uri.getPathSegments(segments);
        EXPECT_EQ(segments, read.getPathSegments()) << text;
        for (const std::string& other : texts) {
            const PropertyValueUri otherParsed{Poco::URI(other)};
            EXPECT_EQ(parsed.compare(otherParsed), read.compare(PropertyValueUri(other)))
                << text << " / " << other;
            EXPECT_EQ(parsed == otherParsed, read == PropertyValueUri(other))
                << text << " / " << other;
        }
    }
}

TEST(PropertyValueUri, LogsAndRefusesTextTheUriLibraryRejects) {
    const std::string bad = "http://host:abc/x";
    std::string reason;
    try {
        Poco::URI rejected(bad);
    } catch (const Poco::SyntaxException& error) {
        reason = error.displayText();
    }
    ASSERT_FALSE(reason.empty()) << "the URI library accepted " << bad;
    PropertyValueUri value("/svc/a");
    Kivo::Test::ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
    EXPECT_FALSE(value.setValueFromString(bad));
    EXPECT_EQ("/svc/a", value.toString());
    const std::vector<Kivo::Test::LoggedMessage> lines = capture.messages();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Error: Failed to parse value for PropertyValueUri: " + reason, lines[0].text);
    EXPECT_EQ(Poco::Message::PRIO_ERROR, lines[0].priority);
}

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

// An enum starts with its first given word, refuses others, and falls back to the first new word
// when its own is taken away.
TEST(PropertyValueEnum, HoldsTheFirstGivenWordAndRefusesOthers) {
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

    PropertyValueEnum lost("on", Words{"off", "on"});
    lost.setEnumValues({"on", "dim"});
    EXPECT_EQ("on", lost.getValue()) << "still allowed";
    EXPECT_EQ((PropertyValueEnum::EnumValueSet{"dim", "on"}), lost.getEnumValues());
    lost.setEnumValues({"low", "high"});
    EXPECT_EQ("low", lost.getValue()) << "first in the given order";
    lost.setEnumValues({});
    EXPECT_EQ("low", lost.getValue()) << "an empty list allows the current value";

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

    // Values declaring the same words share one copy of them; another order is other words.
    const PropertyValueEnum same("z", Words{"z", "a"}), reordered(Words{"a", "z"});
    EXPECT_EQ(&value.getEnumValues(), &same.getEnumValues());
    EXPECT_NE(&value.getEnumValues(), &reordered.getEnumValues());
    EXPECT_EQ((Words{"a", "z"}), reordered.getDeclaredEnumValues());
}

// Values of one format share one compiled expression, and values with equal patterns or
// limits share those; run per test process, this also races their first making.
TEST(PropertyValueString, ValidatesFromManyThreadsAtOnce) {
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int& count : mismatches) {
        threads.emplace_back([&count] {
            for (int round = 0; round < 500; ++round) {
                const PropertyValueFormatedString<S::STRING_FORMAT_VERSION> value;
                count += !value.isValidValue("1.2.3") + value.isValidValue("1.2.3.4");
                const int k = round % 9;
                const PropertyValueCustomString custom("0", "[0-" + std::to_string(k) + "]");
                count += !custom.isValidValue(std::to_string(k)) +
                         custom.isValidValue(std::to_string(k + 1));
                const Number limited(0, -k, k, {});
                count += !limited.isValidValue(-k) + limited.isValidValue(k + 1);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::vector<int>(4, 0), mismatches);
}

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
