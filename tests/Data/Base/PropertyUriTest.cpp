#include "Data/Base/PropertyUri.h"

#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/Message.h>
#include <Poco/URI.h>
#include <gtest/gtest.h>

#include "TestChannel.h"

namespace Kivo::Data::Base {
namespace {

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

TEST(PropertyValueUri, RefusesTheEmptyUri) {
    PropertyValueUri value("/svc/a");
    EXPECT_FALSE(value.setValue(Poco::URI()));
    EXPECT_FALSE(value.setValueFromString(""));
    EXPECT_TRUE(PropertyValueUri().getValue().empty());
    EXPECT_TRUE(value.setValueFromString("http://host:8080/svc/res/42?q=1"));
    EXPECT_EQ("http://host:8080/svc/res/42?q=1", value.getGenericValue().extract<std::string>());
    EXPECT_EQ((std::vector<std::string>{"svc", "res", "42"}), value.getPathSegments());
}

struct OrderRow {
    std::string lhs;
    std::string rhs;
    bool equal;
    int order;
};

TEST(PropertyValueUri, OrdersByPathAloneButEqualsWholeUris) {
    const std::vector<OrderRow> rows = {
        {"http://one/a", "http://two/a", false, 0},
        {"http://two/a", "http://one/b", false, -1},
        {"/a?x=1", "/a", false, 0},
        {"/b", "http://one/a#f", false, 1},
        {"http://one/a", "http://one/a", true, 0},
    };
    for (const OrderRow& row : rows) {
        const std::string name = row.lhs + " vs " + row.rhs;
        const PropertyValueUri lhs(row.lhs);
        const PropertyValueUri rhs(row.rhs);
        const PropertyValueBase& base = rhs;
        EXPECT_EQ(row.equal, lhs == rhs) << name;
        EXPECT_EQ(row.equal, lhs == base) << name;
        EXPECT_EQ(!row.equal, lhs != rhs) << name;
        EXPECT_EQ(row.order, lhs.compare(base)) << name;
        EXPECT_EQ(row.order < 0, lhs < base) << name;
        EXPECT_EQ(row.order > 0, lhs > rhs) << name;
    }
}

}  // namespace
}  // namespace Kivo::Data::Base
