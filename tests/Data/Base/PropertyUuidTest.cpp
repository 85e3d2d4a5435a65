#include "Data/Base/PropertyUuid.h"

#include <string>
#include <vector>

#include <Poco/UUID.h>
#include <gtest/gtest.h>

namespace Kivo::Data::Base {
namespace {

const std::string KNOWN = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

TEST(PropertyValueUuid, RefusesNullAndMalformedUuidsAndDefaultsToRandom) {
    const std::vector<std::string> refused = {"00000000-0000-0000-0000-000000000000",
                                              "6ba7b810-9dad-11d1-80b4", "not a uuid", ""};
    PropertyValueUuid value{Poco::UUID(KNOWN)};
    for (const std::string& text : refused) {
        EXPECT_FALSE(value.setValueFromString(text)) << "'" << text << "'";
        EXPECT_FALSE(value.isValidStringValue(text)) << "'" << text << "'";
    }
    EXPECT_FALSE(value.setValue(Poco::UUID::null()));
    EXPECT_EQ(KNOWN, value.toString());

    EXPECT_TRUE(value.setValueFromString("6BA7B811-9DAD-11D1-80B4-00C04FD430C8"));
    EXPECT_EQ("6ba7b811-9dad-11d1-80b4-00c04fd430c8",
              value.getGenericValue().extract<std::string>());
    EXPECT_EQ(1, value.compare(PropertyValueUuid(KNOWN)));

    const PropertyValueUuid fresh;
    EXPECT_TRUE(fresh.isValidValue(fresh.getValue()));
    EXPECT_EQ(Poco::UUID::UUID_RANDOM, fresh.getValue().version());
    EXPECT_FALSE(fresh == PropertyValueUuid()) << "every default value is a new random UUID";
}

}  // namespace
}  // namespace Kivo::Data::Base
