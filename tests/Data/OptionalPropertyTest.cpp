#include "Data/OptionalProperty.h"

#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueNumberBase;
using Base::PropertyValueString;
using Kivo::Test::ElementTree;
using Kivo::Test::ScopedLogCapture;
using Kivo::Test::TestElement;

TEST(OptionalProperty, RegistersItsKeyAsKnownButAbsent) {
    ElementTree tree;
    TestElement element(tree.resource);
    EXPECT_TRUE(element.knowsProperty("note"));
    EXPECT_FALSE(element.hasProperty("note"));
    EXPECT_TRUE(element.note.isNull());
    EXPECT_TRUE(element.note.isInitialValue());
    EXPECT_EQ(nullptr, element.note.getBase());
    EXPECT_EQ(typeid(PropertyValueString), element.note.valueType);
}

TEST(OptionalProperty, DuplicateKeysAreAProgrammingError) {
    ElementTree tree;
    TestElement element(tree.resource);
    ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    struct Row {
        const char* key;
        const char* why;
    };
    // "note" is another optional property, "title" a present member property.
    for (const Row& row : {Row{"note", "optional"}, Row{"title", "present"}}) {
        capture.channel().clear();
        EXPECT_THROW(OptionalProperty<PropertyValueString>(row.key, element), Poco::BugcheckException)
            << row.why;
        EXPECT_EQ(std::vector<std::string>{std::string("Warning: Self-registration of optional "
                                                       "property ") +
                                           row.key + " for element Media.Tracks.Item has failed"},
                  capture.texts())
            << row.why;
    }
    // The first declaration of "note" still answers for the key, and "title" is still present.
    EXPECT_EQ(OperationResult::OK, element.setProperty("note", "kept").value());
    EXPECT_EQ("kept", element.note.get()->getValue());
    EXPECT_EQ(&element.title, element.getProperty("title"));
}

TEST(OptionalProperty, ValueLifecycle) {
    ElementTree tree;
    TestElement element(tree.resource);

    EXPECT_FALSE(element.level.isValidValue("9")) << "the prototype's limits apply";
    EXPECT_TRUE(element.level.isValidValue("3"));
    EXPECT_EQ(OperationResult::INVALID_VALUE, element.setProperty("level", "9").value());
    EXPECT_TRUE(element.level.isNull()) << "a refused first value creates nothing";
    EXPECT_FALSE(element.hasProperty("level"));

    EXPECT_EQ(OperationResult::OK, element.setProperty("level", "4").value());
    ASSERT_FALSE(element.level.isNull());
    EXPECT_FALSE(element.level.isInitialValue());
    EXPECT_EQ(element.level.getBase(), element.getProperty("level"));
    EXPECT_EQ(4, element.level.get()->getValue());

    element.level.clear();
    EXPECT_TRUE(element.level.isNull());
    EXPECT_TRUE(element.level.isInitialValue());
    EXPECT_TRUE(element.knowsProperty("level"));
    EXPECT_FALSE(element.hasProperty("level"));

    element.level.initPropertyValue();
    ASSERT_FALSE(element.level.isNull());
    EXPECT_EQ(1, element.level.get()->getValue()) << "the prototype's value";
    EXPECT_TRUE(element.hasProperty("level"));
}

TEST(OptionalProperty, ClientWritesNeedPostAccess) {
    ElementTree tree;
    TestElement element(tree.resource);
    element.writable.erase("note");
    EXPECT_FALSE(element.note.setValueFromString("x"));
    EXPECT_TRUE(element.note.isNull());
    EXPECT_EQ(OperationResult::FORBIDDEN, element.setProperty("note", "x").value());
}

}  // namespace
}  // namespace Kivo::Data
