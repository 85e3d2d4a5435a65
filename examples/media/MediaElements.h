#ifndef QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIAELEMENTS_H
#define QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIAELEMENTS_H

#include <string>

#include <Data/AbstractResource.h>
#include <Data/Base/Property.h>
#include <Data/Base/PropertyEnum.h>
#include <Data/Element.h>
#include <Data/OptionalProperty.h>
#include <Data/XObjectReference.h>

// The elements of the example media service. Their type names follow the placeholder rule of
// element URIs (resource "Albums" -> "AlbumObject"), so a reference made from an album's URI
// carries the album type before it is resolved.
namespace Media {

using Kivo::Data::AbstractResource;
using Kivo::Data::Element;
using Kivo::Data::OptionalProperty;
using Kivo::Data::PropertyXObjectReference;
using Kivo::Data::Base::Property;
using Kivo::Data::Base::PropertyInteger;
using Kivo::Data::Base::PropertyKey;
using Kivo::Data::Base::PropertyString;
using Kivo::Data::Base::PropertyStringArray;
using Kivo::Data::Base::PropertyValueEnum;
using Kivo::Data::Base::PropertyValueFormatedString;
using Kivo::Data::Base::PropertyValueNumberBase;
using Kivo::Data::Base::PropertyValueString;
using Kivo::Data::Base::PropertyValueUuid;

typedef Property<PropertyValueEnum> PropertyGenre;
typedef Property<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_DATE>>
    PropertyDate;
typedef Property<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_LANGUAGE>>
    PropertyLanguage;

// An album: "name" (its title), "artist", "released" (date), "language", "genre" (one of
// GENRES) and "tags". Clients may change only the genre and the tags.
class Album : public Element {
public:
    static const PropertyValueEnum::EnumValues GENRES;
    static const std::string TYPE_NAME;

    explicit Album(AbstractResource& resource);
    bool isPostAllowed(const PropertyKey& key) const override;

    PropertyString artist;
    PropertyDate released;
    PropertyLanguage language;
    PropertyGenre genre;
    PropertyStringArray tags;
};

// A track: "name" (its title), "number" (1..99), "duration" (seconds, 1..7200), "language",
// "album" (a reference to an Album by URI, resolved through the service) and the optional
// "rating" (1..5). Clients may change the name, the rating and the album.
class Track : public Element {
public:
    static const std::string TYPE_NAME;

    explicit Track(AbstractResource& resource);
    bool isPostAllowed(const PropertyKey& key) const override;

    PropertyInteger number;
    PropertyInteger duration;
    PropertyLanguage language;
    PropertyXObjectReference album;
    OptionalProperty<PropertyValueNumberBase<long>> rating;
};

// A playlist: "name", "description", "created" (date) and "tracks" (track URIs, in play
// order). Clients may change everything but "created".
class Playlist : public Element {
public:
    static const std::string TYPE_NAME;

    explicit Playlist(AbstractResource& resource);
    bool isPostAllowed(const PropertyKey& key) const override;

    PropertyString description;
    PropertyDate created;
    PropertyStringArray tracks;
};

}  // namespace Media

#endif  // QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIAELEMENTS_H
