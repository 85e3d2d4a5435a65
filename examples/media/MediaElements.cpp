#include "MediaElements.h"

#include <Data/Service.h>

namespace Media {

using Kivo::Data::Base::PropertyBase;
using Kivo::Data::Base::PropertyValueArray;
using Kivo::Data::XObjectReference;

namespace {

void registerAll(std::initializer_list<PropertyBase*> properties) {
    for (PropertyBase* property : properties) property->registerAtOwner();
}

// Whether `key` is one of `keys`; the lists are short and fixed, so no set is built per call.
bool isOneOf(const PropertyKey& key, std::initializer_list<const char*> keys) {
    for (const char* candidate : keys) {
        if (key == candidate) return true;
    }
    return false;
}

// A reference to an album of `resource`'s service, resolved through the service, which knows
// every resource. Built whole, so that the track's property takes its settings in one copy.
XObjectReference albumReference(AbstractResource& resource) {
    Kivo::Data::Service* service = resource.getService();
    return XObjectReference(service,
                            {service->getName().getValue() + ".Albums." + Album::TYPE_NAME});
}

// The numbers tracks start from, each built once: building a number value looks its limits up
// in a shared table, copying one does not.
const PropertyValueNumberBase<long>& trackNumber() {
    static const PropertyValueNumberBase<long> value(1, 1, 99, {});
    return value;
}
const PropertyValueNumberBase<long>& trackDuration() {
    static const PropertyValueNumberBase<long> value(1, 1, 7200, {});
    return value;
}
const PropertyValueNumberBase<long>& trackRating() {
    static const PropertyValueNumberBase<long> value(1, 1, 5, {});
    return value;
}

PropertyValueArray<PropertyValueString> textArray() {
    return PropertyValueArray<PropertyValueString>(PropertyValueString(""));
}

}  // namespace

const PropertyValueEnum::EnumValues Album::GENRES = {
    "unknown", "rock", "pop", "jazz", "classical", "electronic", "folk", "soundtrack"};
const std::string Album::TYPE_NAME = "AlbumObject";
const std::string Track::TYPE_NAME = "TrackObject";
const std::string Playlist::TYPE_NAME = "PlaylistObject";

Album::Album(AbstractResource& resource)
    : Element(TYPE_NAME, resource),
      artist("artist", this, PropertyValueString("")),
      released("released", this, PropertyDate::property_value("1970-01-01")),
      language("language", this, PropertyLanguage::property_value("en")),
      genre("genre", this, PropertyValueEnum(GENRES)),
      tags("tags", this, textArray()) {
    registerAll({&artist, &released, &language, &genre, &tags});
}

bool Album::isPostAllowed(const PropertyKey& key) const {
    return isOneOf(key, {"genre", "tags"});
}

Track::Track(AbstractResource& resource)
    : Element(TYPE_NAME, resource),
      number("number", this, trackNumber()),
      duration("duration", this, trackDuration()),
      language("language", this, PropertyLanguage::property_value("en")),
      album("album", this, albumReference(resource)),
      rating("rating", *this, trackRating()) {
    registerAll({&number, &duration, &language, &album});
}

bool Track::isPostAllowed(const PropertyKey& key) const {
    return isOneOf(key, {"name", "rating", "album"});
}

Playlist::Playlist(AbstractResource& resource)
    : Element(TYPE_NAME, resource),
      description("description", this, PropertyValueString("")),
      created("created", this, PropertyDate::property_value("1970-01-01")),
      tracks("tracks", this, textArray()) {
    registerAll({&description, &created, &tracks});
}

bool Playlist::isPostAllowed(const PropertyKey& key) const {
    return isOneOf(key, {"name", "description", "tracks"});
}

}  // namespace Media
