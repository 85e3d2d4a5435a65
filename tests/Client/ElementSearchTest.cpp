#include "Client/ElementSearch.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/RegularExpression.h>
#include <gtest/gtest.h>

#include "Client/TextPattern.h"
#include "Data/ElementFixture.h"
#include "Data/XObjectReference.h"

namespace Kivo::Client {
namespace {

using Data::AbstractResource;
using Data::OperationResult;
using Data::Base::PropertyValueBoolean;
using Data::Base::PropertyValueNumberBase;
using Data::Base::PropertyValueString;
using Data::Base::PropertyValueUuid;
using Kivo::Test::TestContainer;
using Kivo::Test::TestElement;
using Kivo::Test::uuidOf;
typedef std::vector<std::string> Texts;
typedef ElementSearch::Criteria Criteria;

// A spot in a car: "name", "zone" (a reference to a TestElement of "Zones"), "flag" (boolean),
// "tags" (string array), "count" (integer) and the optional text "note".
class Spot : public Data::Element {
public:
    explicit Spot(AbstractResource& resource)
        : Element("Spot", resource),
          zone("zone", this),
          flag("flag", this, PropertyValueBoolean(false)),
          tags("tags", this,
               Data::Base::PropertyValueArray<PropertyValueString>(PropertyValueString(""))),
          count("count", this, PropertyValueNumberBase<long>(0, 0, 1000, {})),
          note("note", *this) {
        zone.setReferenceResolver(resource.getService());
        Kivo::Test::registerAtOwner(zone, flag, tags, count);
    }

    Data::PropertyXObjectReference zone;
    Data::Base::PropertyBoolean flag;
    Data::Base::PropertyStringArray tags;
    Data::Base::PropertyInteger count;
    Data::OptionalProperty<PropertyValueString> note;
};

class ClosedSpots : public TestContainer<Spot> {
public:
    explicit ClosedSpots(Data::Service& service) : TestContainer(service, "Closed") {}
    ~ClosedSpots() override { clear(); }
    bool isGetAllowed() const override { return false; }
};

struct Tree {
    Data::Service service{"Car", "", 1, PropertyValueUuid()};
    TestContainer<TestElement> zones{service, "Zones"};
    TestContainer<Spot> spots{service, "Spots"};

    std::string addZone(int n, const std::string& name) {
        Poco::JSON::Object json;
        json.set("id", uuidOf(n));
        json.set("name", name);
        EXPECT_EQ(OperationResult::OK, zones.addElement(&json).value()) << name;
        return "/Car/Zones/" + uuidOf(n);
    }
    void addSpot(int n, const std::string& name, const Texts& tags = {}, long count = 0,
                 const std::string& zone = "", bool flag = false) {
        Poco::JSON::Object json;
        json.set("id", uuidOf(n));
        json.set("name", name);
        Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
        for (const std::string& tag : tags) array->add(tag);
        json.set("tags", array);
        json.set("count", count);
        json.set("flag", flag);
        if (!zone.empty()) json.set("zone", zone);
        ASSERT_EQ(OperationResult::OK, spots.addElement(&json).value()) << name;
    }
};

Texts names(const AbstractResource::ElementQueryResult& elements) {
    Texts result;
    for (const auto& element : elements) result.push_back(element->getName().getValue());
    return result;
}

std::string show(const std::string& text) {
    std::string shown;
    for (const char c : text) shown += c == '\0' ? std::string("\\0") : std::string(1, c);
    return shown.size() > 60 ? shown.substr(0, 60) + "..." : shown;
}

// Expression characters, case and '%' in general are checked against a plain scan in
// RangeAndScanAgreeWithPlainScan; these rows hold what its random texts do not draw.
TEST(TextPattern, PercentIsTheOnlySpecialCharacter) {
    const std::string nul("a\0b", 3);
    const struct {
        std::string text;
        Case sensitivity;
        std::string value;
        bool matches;
    } rows[] = {
        {"[ab]", CASE_SENSITIVE, "a", false},
        {"%25", CASE_SENSITIVE, "125", true},
        {"%25", CASE_SENSITIVE, "%", false},
        {nul, CASE_SENSITIVE, nul, true},
        {nul, CASE_SENSITIVE, "a", false},
        {"a%", CASE_SENSITIVE, nul, true},
        {"%", CASE_SENSITIVE, "", true},
        {"%%", CASE_SENSITIVE, "x\ny", true},
        {"", CASE_SENSITIVE, "", true},
        {"", CASE_SENSITIVE, "x", false},
        {"a%\n%b", CASE_SENSITIVE, "a\nb", true},
        {"a%a", CASE_SENSITIVE, "a", false},
        {"a%a", CASE_SENSITIVE, "aa", true},
        {"ab%bc", CASE_SENSITIVE, "abc", false},
        {"%ab%ab%", CASE_SENSITIVE, "xabyab", true},
        {"%ab%ab%", CASE_SENSITIVE, "xaba", false},
        {"%ana%", CASE_SENSITIVE, "bananas", true},
        {"\xC3\x84%", CASE_INSENSITIVE, "\xC3\xA4x", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.matches, TextPattern(row.text, row.sensitivity).matches(row.value))
            << "'" << show(row.text) << "' on '" << show(row.value) << "'";
    }
    EXPECT_TRUE(TextPattern::containing("a.c").matches("xxa.cxx"));
    EXPECT_FALSE(TextPattern::containing("a.c").matches("abc"));
}

// Names holding expression characters are RangeAndScanAgreeWithPlainScan's to draw.
TEST(ElementSearch, FindsByKeyWithLiteralText) {
    Tree tree;
    const std::string nul("nul\0byte", 8);
    tree.addSpot(1, "R..r", {"night", "rear"}, 7);
    tree.addSpot(2, "Rear (left)", {"Night light"}, 70);
    tree.addSpot(3, "Driver|Passenger", {}, 7);
    tree.addSpot(4, "Driver", {"day"}, 3);
    tree.addSpot(5, "back\\slash", {"a.b"}, 1);
    tree.addSpot(6, nul, {"nul"}, 2);
    tree.addSpot(7, "Middle\nline", {}, 4);
    tree.addSpot(8, "Mid", {"night"}, 5);
    tree.addSpot(9, "mid", {}, 6);
    const ElementSearch search(tree.spots);
    const struct {
        Criteria criteria;
        Case sensitivity;
        Texts expected;
    } rows[] = {
        {{{"name", "Driver%"}}, CASE_SENSITIVE, {"Driver", "Driver|Passenger"}},
        {{{"name", nul}}, CASE_SENSITIVE, {nul}},
        {{{"name", std::string("nul\0%", 5)}}, CASE_SENSITIVE, {nul}},
        {{{"name", "Mid%"}}, CASE_SENSITIVE, {"Mid", "Middle\nline"}},
        {{{"name", "Mid%line"}}, CASE_SENSITIVE, {"Middle\nline"}},
        {{{"name", "mid%"}}, CASE_INSENSITIVE, {"Mid", "Middle\nline", "mid"}},
        {{{"name", "mid%"}}, CASE_SENSITIVE, {"mid"}},
        {{{"name", "%)"}}, CASE_SENSITIVE, {"Rear (left)"}},  // ')' is not drawn there
        // Arrays order as their sorted texts: ["Night light"] < ["night"] < ["night","rear"].
        {{{"tags", "%night%"}}, CASE_SENSITIVE, {"Mid", "R..r"}},
        {{{"tags", "%night%"}}, CASE_INSENSITIVE, {"Rear (left)", "Mid", "R..r"}},
        {{{"tags", "night"}}, CASE_SENSITIVE, {"Mid", "R..r"}},
        {{{"tags", "a.b"}}, CASE_SENSITIVE, {"back\\slash"}},
        {{{"tags", "a%"}}, CASE_SENSITIVE, {"back\\slash"}},
        {{{"tags", "[\"night\",\"rear\"]"}}, CASE_SENSITIVE, {}},
        {{{"count", "7"}}, CASE_SENSITIVE, {"R..r", "Driver|Passenger"}},
        {{{"count", "07"}}, CASE_SENSITIVE, {"R..r", "Driver|Passenger"}},
        {{{"count", "07"}}, CASE_INSENSITIVE, {"R..r", "Driver|Passenger"}},
        {{{"count", "7%"}}, CASE_SENSITIVE, {"R..r", "Driver|Passenger", "Rear (left)"}},
        {{{"count", "seven"}}, CASE_SENSITIVE, {}},
        {{{"count", "7"}, {"name", "Driver%"}}, CASE_SENSITIVE, {"Driver|Passenger"}},
        {{{"name", "%r%"}, {"tags", "%night%"}}, CASE_SENSITIVE, {"R..r"}},
        {{{"name", "%r%"}, {"name", "%.%"}}, CASE_SENSITIVE, {"R..r"}},
        {{{"count", "1000"}, {"tags", "%"}}, CASE_SENSITIVE, {}},
    };
    for (const auto& row : rows) {
        std::string label;
        for (const auto& criterion : row.criteria) {
            label += criterion.key + "=" + show(criterion.text) + " ";
        }
        AbstractResource::ElementQueryResult result;
        const OperationResult outcome = search.find(row.criteria, result, row.sensitivity);
        EXPECT_EQ(OperationResult::OK, outcome.value()) << label << outcome.toString();
        EXPECT_EQ(row.expected, names(result)) << label << (row.sensitivity ? "(any case)" : "");
    }
}

TEST(ElementSearch, RefusesWhatCannotBeSearchedWithAReason) {
    Tree tree;
    tree.addSpot(1, "Rear", {"night"});
    Kivo::Test::TestResource bare(tree.service, "Bare");
    ClosedSpots closed(tree.service);
    TestContainer<Spot> empty(tree.service, "Empty");
    const OperationResult::Value UNKNOWN = OperationResult::UNKNOWN_PROPERTY;
    const OperationResult::Value INVALID = OperationResult::INVALID_VALUE;
    const std::string noColour = "colour: no such property", noFlag = "flag: cannot be searched";
    const struct {
        const AbstractResource& resource;
        Criteria criteria;
        OperationResult::Value code;
        std::string message;
    } rows[] = {
        {tree.spots, {{"colour", "red"}}, UNKNOWN, noColour},
        {tree.spots, {{"Name", "Rear"}}, UNKNOWN, "Name: no such property"},
        {tree.spots, {{"name", "Rear"}, {"colour", "%"}}, UNKNOWN, noColour},
        {tree.spots, {{"flag", "false"}}, INVALID, noFlag},
        {tree.spots, {{"flag", "%"}, {"colour", "x"}}, INVALID, noFlag},
        {tree.spots, {}, INVALID, "no search criteria"},
        {closed,
         {{"name", "Rear"}},
         OperationResult::FORBIDDEN,
         "search is not allowed on this resource"},
        {bare, {{"name", "Rear"}}, OperationResult::INVALID_OPERATION, "invalid_operation"},
        {empty, {{"colour", "red"}}, UNKNOWN, noColour},
        {empty, {{"flag", "true"}}, INVALID, noFlag},
    };
    for (const auto& row : rows) {
        const std::string label = row.criteria.empty() ? "(none)" : row.criteria.back().key;
        AbstractResource::ElementQueryResult result(1);
        const OperationResult outcome = ElementSearch(row.resource).find(row.criteria, result);
        EXPECT_EQ(row.code, outcome.value()) << label;
        EXPECT_EQ(row.message, outcome.toString()) << label;
        EXPECT_EQ(1u, result.size()) << label << ": a refusal leaves the result as it was";
    }
    AbstractResource::ElementQueryResult result(1);
    EXPECT_EQ(OperationResult::FORBIDDEN, ElementSearch(closed).search("Rear", result).value());
    EXPECT_EQ(OperationResult::INVALID_OPERATION, ElementSearch(bare).search("R", result).value());
    EXPECT_EQ(1u, result.size());
    // Known keys that no element holds a value for are no error: they find nothing.
    for (const Criteria& criteria :
         {Criteria{{"note", "%"}}, Criteria{{"name", "%"}, {"note", "x"}}}) {
        EXPECT_EQ(OperationResult::OK, ElementSearch(tree.spots).find(criteria, result).value());
        EXPECT_TRUE(result.empty()) << criteria.back().key;
        result.resize(1);
    }
    EXPECT_EQ(OperationResult::OK, ElementSearch(empty).find({{"name", "Rear"}}, result).value());
    EXPECT_TRUE(result.empty());
}

TEST(ElementSearch, ReferencesFollowTheirTargetByUriAndName) {
    Tree tree;
    const std::string front = tree.addZone(1, "Front");
    const std::string back = tree.addZone(2, "Back");
    tree.addSpot(11, "driver", {}, 0, front);
    tree.addSpot(12, "rear left", {}, 0, back);
    tree.addSpot(13, "rear right", {}, 0, back);
    tree.addSpot(14, "loose");
    const ElementSearch search(tree.spots);
    auto find = [&](const std::string& text, Case sensitivity = CASE_SENSITIVE) {
        AbstractResource::ElementQueryResult result;
        const OperationResult outcome = search.find({{"zone", text}}, result, sensitivity);
        EXPECT_EQ(OperationResult::OK, outcome.value()) << text << ": " << outcome.toString();
        Texts found = names(result);
        std::sort(found.begin(), found.end());
        return found;
    };
    auto rename = [&](int n, const std::string& name) {
        Kivo::Test::elementOf<TestElement>(tree.zones, uuidOf(n)).writable.insert("name");
        Poco::JSON::Object json;
        json.set("name", name);
        ASSERT_TRUE(tree.zones.updateElementFromJSON(Poco::UUID(uuidOf(n)), &json).isSuccess());
    };
    const Texts rear{"rear left", "rear right"};
    EXPECT_EQ(rear, find(back));
    EXPECT_EQ(rear, find("Back"));
    EXPECT_EQ(rear, find("back", CASE_INSENSITIVE));
    EXPECT_EQ((Texts{"driver", "rear left", "rear right"}), find("/Car/Zones/%"));
    EXPECT_EQ(Texts{"driver"}, find("Fr%"));

    rename(2, "Rear bench");
    EXPECT_EQ(rear, find(back)) << "after the rename";
    EXPECT_EQ(rear, find("Rear bench"));
    EXPECT_EQ(Texts{}, find("Back"));
    rename(1, "Back");
    EXPECT_EQ(Texts{"driver"}, find("Back")) << "the name moved to the other zone";
    EXPECT_EQ(rear, find(back));

    ASSERT_EQ(OperationResult::OK, tree.zones.removeElement(Poco::UUID(uuidOf(2))).value());
    EXPECT_EQ(rear, find(back)) << "a removed target is still pointed at by URI";
    EXPECT_EQ(Texts{}, find("Rear bench")) << "but its old name is gone";
    EXPECT_EQ(Texts{}, find("unidentified element"));

    tree.addZone(2, "Boot");
    EXPECT_EQ(rear, find(back)) << "after adding the target again";
    EXPECT_EQ(rear, find("Boot"));
    EXPECT_EQ(Texts{"driver"}, find(front));
}

TEST(ElementSearch, FreeTextFindsHoldersOnceInKeyOrder) {
    Tree tree;
    const std::string zone = tree.addZone(1, "Cabin");
    tree.addSpot(1, "Night seat", {"night"}, 12);
    tree.addSpot(2, "Day seat", {"Night light", "day"}, 3, zone, true);
    tree.addSpot(3, "Boot", {}, 120);
    const ElementSearch search(tree.spots);
    const struct {
        std::string text;
        Case sensitivity;
        Texts expected;
    } rows[] = {
        // Keys ascending ("count" < "name" < "tags" < "zone"), each element at its first place.
        {"night", CASE_SENSITIVE, {"Night seat"}},
        {"Night", CASE_SENSITIVE, {"Night seat", "Day seat"}},
        {"NIGHT", CASE_INSENSITIVE, {"Night seat", "Day seat"}},
        {"day", CASE_SENSITIVE, {"Day seat"}},
        {"seat", CASE_SENSITIVE, {"Day seat", "Night seat"}},
        {"12", CASE_SENSITIVE, {"Night seat", "Boot"}},
        {"cabin", CASE_INSENSITIVE, {"Day seat"}},
        {"/Car/Zones/", CASE_SENSITIVE, {"Day seat"}},
        {"t%t", CASE_SENSITIVE, {"Night seat", "Day seat"}},
        {"true", CASE_SENSITIVE, {}},
        {".", CASE_SENSITIVE, {}},
        {"", CASE_SENSITIVE, {"Day seat", "Night seat", "Boot"}},
    };
    for (const auto& row : rows) {
        AbstractResource::ElementQueryResult result;
        EXPECT_EQ(OperationResult::OK, search.search(row.text, result, row.sensitivity).value());
        EXPECT_EQ(row.expected, names(result)) << "'" << row.text << "'";
    }
}

TEST(ElementSearch, HostileTextsAnswerWithoutBlowingUp) {
    Tree tree;
    const std::string as(40, 'a');
    tree.addSpot(1, as, {as + "!"});
    tree.addSpot(2, "(a+)+$");
    const std::string huge(1 << 20, 'a');
    std::string manyWildcards;
    for (int i = 0; i < (1 << 19); ++i) manyWildcards += "a%";
    const ElementSearch search(tree.spots);
    const struct {
        std::string text;
        Texts byName;
    } rows[] = {
        {"(a+)+$", {"(a+)+$"}},
        {"(a+)+$%", {"(a+)+$"}},
        {"%(a+)+$%", {"(a+)+$"}},
        {"((a*)*)*b", {}},
        {"%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%b", {}},
        {"%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a%a", {as}},
        {"[", {}},
        {"\\", {}},
        {"(?", {}},
        {std::string(3, '\0'), {}},
        {huge, {}},
        {huge + "%", {}},
        {"%" + huge, {}},
        {manyWildcards, {}},
    };
    for (const auto& row : rows) {
        for (const Case sensitivity : {CASE_SENSITIVE, CASE_INSENSITIVE}) {
            AbstractResource::ElementQueryResult result;
            EXPECT_EQ(OperationResult::OK,
                      search.find({{"name", row.text}}, result, sensitivity).value())
                << show(row.text);
            EXPECT_EQ(row.byName, names(result)) << show(row.text);
            EXPECT_EQ(OperationResult::OK,
                      search.find({{"tags", row.text}}, result, sensitivity).value())
                << show(row.text);
            EXPECT_EQ(OperationResult::OK, search.search(row.text, result, sensitivity).value())
                << show(row.text);
        }
    }
}

// The range over the ordered index and the scans must find exactly what a plain scan of every
// element with an independent matcher finds, in ascending name order (equal names in filing
// order).
TEST(ElementSearch, RangeAndScanAgreeWithPlainScan) {
    std::mt19937 random(20261124);
    const std::string alphabet = "aAb.%(\n\\|*";
    auto randomText = [&](std::size_t maxLength) {
        std::string text;
        const std::size_t length = random() % (maxLength + 1);
        for (std::size_t i = 0; i < length; ++i) text += alphabet[random() % alphabet.size()];
        return text;
    };
    for (int round = 0; round < 40; ++round) {
        Tree tree;
        std::vector<std::string> filed;
        for (int n = 1; n <= 40; ++n) {
            std::string name = randomText(5);
            name.erase(std::remove(name.begin(), name.end(), '%'), name.end());
            filed.push_back(name);
            tree.addSpot(n, name);
        }
        Texts ordered = filed;
        std::stable_sort(ordered.begin(), ordered.end());
        const ElementSearch search(tree.spots);
        for (int query = 0; query < 20; ++query) {
            std::string text = randomText(3);
            if (query % 2 == 0) {
                text.erase(std::remove(text.begin(), text.end(), '%'), text.end());
                text += "%";
            }
            const Case sensitivity = query % 4 < 2 ? CASE_SENSITIVE : CASE_INSENSITIVE;
            std::string pattern = "^";
            for (const char c : text) {
                pattern += c == '%' ? std::string("[\\s\\S]*") : "\\Q" + std::string(1, c) + "\\E";
            }
            const int options =
                sensitivity == CASE_INSENSITIVE ? Poco::RegularExpression::RE_CASELESS : 0;
            const Poco::RegularExpression oracle(pattern + "\\z", options);
            Texts expected;
            for (const std::string& name : ordered) {
                Poco::RegularExpression::Match match;
                if (oracle.match(name, 0, match) > 0 && match.offset == 0) expected.push_back(name);
            }
            AbstractResource::ElementQueryResult result;
            ASSERT_EQ(OperationResult::OK,
                      search.find({{"name", text}}, result, sensitivity).value());
            EXPECT_EQ(expected, names(result))
                << "round " << round << " text '" << show(text) << "' " << sensitivity;
        }
    }
}

}  // namespace
}  // namespace Kivo::Client
