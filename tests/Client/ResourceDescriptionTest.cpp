#include "Client/ResourceDescription.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Client/ElementSearch.h"
#include "Data/Base/PropertyEnum.h"
#include "Data/ElementFixture.h"
#include "Data/XObjectReference.h"

namespace Kivo::Test {
namespace {

using Client::ResourceDescription;
using Data::OperationResult;
using namespace Data::Base;

const std::string VENUE_TYPE = "Media.Venues.VenueObject";

// A gig: a boolean, an enum whose words are not in byte-wise order, a reference restricted to
// venues and an optional integer.
class Gig : public Data::Element {
public:
    explicit Gig(Data::AbstractResource& resource)
        : Element("GigObject", resource),
          soldOut("soldOut", this, PropertyValueBoolean(false)),
          mood("mood", this,
               PropertyValueEnum(PropertyValueEnum::EnumValues{"calm", "angry", "bright"})),
          venue("venue", this),
          rating("rating", *this, PropertyValueNumberBase<long>(1, 1, 5, {})) {
        venue.addAllowedType(VENUE_TYPE);
        registerAtOwner(soldOut, mood, venue);
    }

    PropertyBoolean soldOut;
    Property<PropertyValueEnum> mood;
    Data::PropertyXObjectReference venue;
    Data::OptionalProperty<PropertyValueNumberBase<long>> rating;
};

std::string text(const Poco::Dynamic::Var& json) { return jsonText(json); }

struct Gigs : ::testing::Test {
    Poco::JSON::Object::Ptr properties() const {
        return ResourceDescription::of(gigs)->getObject("properties");
    }

    ElementTree tree;
    TestContainer<Gig> gigs{tree.service, "Gigs"};
};

// Unlike the resource's own description, two calls agree (no random id or URI is shown), enum
// words come in declared order, and a reference names the types it may point at.
TEST_F(Gigs, DescriptionIsStableInDeclaredOrderAndNamesTargets) {
    const Poco::JSON::Object::Ptr own = gigs.getSpecificationAsJSON()->getObject("properties");
    EXPECT_NE(text(gigs.getSpecificationAsJSON()), text(gigs.getSpecificationAsJSON()));
    EXPECT_EQ(text(ResourceDescription::of(gigs)), text(ResourceDescription::of(gigs)));
    const Poco::JSON::Object::Ptr described = properties();
    for (const std::string key : {"id", "uri"}) {
        EXPECT_FALSE(described->getObject(key)->has("default")) << key;
        EXPECT_EQ(own->getObject(key)->getValue<std::string>("kind"),
                  described->getObject(key)->getValue<std::string>("kind"));
    }
    EXPECT_EQ("calm", described->getObject("mood")->getValue<std::string>("default"));
    EXPECT_EQ(R"(["calm","angry","bright"])", text(described->getObject("mood")->get("values")));
    EXPECT_EQ(R"(["angry","bright","calm"])", text(own->getObject("mood")->get("values")))
        << "the resource's own description keeps its order";
    EXPECT_EQ("[\"" + VENUE_TYPE + "\"]", text(described->getObject("venue")->get("targets")));
    EXPECT_FALSE(described->getObject("mood")->has("targets"));
}

// "searchable" says exactly which keys ElementSearch accepts, optional ones included.
TEST_F(Gigs, SearchableKeysAreTheOnesTheSearchAccepts) {
    ASSERT_TRUE(gigs.addElement(parseObject(R"({"name": "Gig", "rating": 3})").get()).isSuccess());
    const Poco::JSON::Object::Ptr described = properties();
    const Client::ElementSearch search(gigs);
    std::size_t unsearchable = 0;
    for (const std::string& key : described->getNames()) {
        const bool searchable = described->getObject(key)->getValue<bool>("searchable");
        Data::AbstractResource::ElementQueryResult found;
        const OperationResult result = search.find({{key, "%"}}, found);
        EXPECT_EQ(searchable, result.isSuccess()) << key << ": " << result.toString();
        if (!searchable) ++unsearchable;
    }
    EXPECT_EQ(1u, unsearchable) << "only the boolean";
    EXPECT_TRUE(described->getObject("rating")->getValue<bool>("searchable"));
}

}  // namespace
}  // namespace Kivo::Test
