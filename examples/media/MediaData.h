#ifndef QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIADATA_H
#define QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIADATA_H

#include <cstddef>
#include <string>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "MediaService.h"

namespace Media {

// The JSON a media service is loaded from, as three files of one directory:
//   service.json    the service description (Service::initFromJSON);
//   resources.json  the resource descriptions (Service::initResourcesFromJSON);
//   elements.json   [{"name": <resource>, "elements": [<element>, ...]}, ...]
//                   (Service::initServiceResourcesfromJSON), albums before the tracks that
//                   reference them.
struct MediaData {
    static const char* const SERVICE_FILE;
    static const char* const RESOURCES_FILE;
    static const char* const ELEMENTS_FILE;

    Poco::JSON::Object::Ptr service;
    Poco::JSON::Array::Ptr resources;
    Poco::JSON::Array::Ptr elements;

    // Reads the three files of `directory`. Throws Poco::FileException for a missing file,
    // Poco::JSON::JSONException for malformed JSON and Poco::DataException for JSON of the
    // wrong shape.
    static MediaData read(const std::string& directory);
    // Writes the three files into `directory` (which must exist), pretty-printed.
    void write(const std::string& directory) const;
    // Loads the description, the resource descriptions and the elements into `service`;
    // false (after the library's error line) at the first refusal.
    bool loadInto(MediaService& service) const;
};

// Data of the same shape as the shipped example, at any size: `albums` albums with
// `tracksPerAlbum` tracks each and `playlists` playlists of up to 20 tracks. The same
// arguments give the same data, ids included.
MediaData generateMediaData(std::size_t albums, std::size_t tracksPerAlbum,
                            std::size_t playlists, unsigned seed);

}  // namespace Media

#endif  // QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIADATA_H
