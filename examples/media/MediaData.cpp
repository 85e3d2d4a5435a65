#include "MediaData.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Path.h>

namespace Media {

const char* const MediaData::SERVICE_FILE = "service.json";
const char* const MediaData::RESOURCES_FILE = "resources.json";
const char* const MediaData::ELEMENTS_FILE = "elements.json";

namespace {

const char* const ADJECTIVES[] = {"Silent", "Electric", "Golden", "Broken", "Distant", "Velvet",
                                  "Northern", "Hidden", "Crimson", "Endless", "Quiet", "Wild"};
const char* const NOUNS[] = {"River", "Skyline", "Harbour", "Garden", "Signal", "Mirror",
                             "Engine", "Meadow", "Lantern", "Highway", "Season", "Winter"};
const char* const ARTISTS[] = {"The Foxes", "Mara Lind", "Northbound", "Ada & the Tides",
                               "Kilo Echo", "Juniper", "Saltwater Choir", "Tomas Grey"};
const char* const LANGUAGES[] = {"en", "de", "fr", "es", "it", "sv"};
const char* const TAGS[] = {"live", "remastered", "acoustic", "favourite", "road trip", "night"};

class Generator {
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    std::size_t below(std::size_t n) { return static_cast<std::size_t>(m_random() % n); }

    template <std::size_t N>
    const char* pick(const char* const (&words)[N]) {
        return words[below(N)];
    }

    std::string title() { return std::string(pick(ADJECTIVES)) + " " + pick(NOUNS); }

    // A version-4 UUID text drawn from the generator, so the data is reproducible.
    std::string uuid() {
        char text[37];
        std::snprintf(text, sizeof text, "%08x-%04x-4%03x-%04x-%04x%08x",
                      static_cast<unsigned>(m_random()), static_cast<unsigned>(m_random() & 0xffff),
                      static_cast<unsigned>(m_random() & 0xfff),
                      static_cast<unsigned>(0x8000 | (m_random() & 0x3fff)),
                      static_cast<unsigned>(m_random() & 0xffff), static_cast<unsigned>(m_random()));
        return text;
    }

    std::string date() {
        char text[11];
        std::snprintf(text, sizeof text, "%04zu-%02zu-%02zu", 1960 + below(65), 1 + below(12),
                      1 + below(28));
        return text;
    }

private:
    std::mt19937 m_random;
};

Poco::JSON::Object::Ptr resourceDescription(const std::string& name, const std::string& id,
                                            const std::string& description) {
    Poco::JSON::Object::Ptr resource = new Poco::JSON::Object;
    resource->set("id", id);
    resource->set("name", name);
    resource->set("uri", "/" + MediaService::NAME + "/" + name);
    resource->set("description", description);
    return resource;
}

Poco::JSON::Object::Ptr resourceData(const std::string& name, const Poco::JSON::Array::Ptr& elements) {
    Poco::JSON::Object::Ptr entry = new Poco::JSON::Object;
    entry->set("name", name);
    entry->set("elements", elements);
    return entry;
}

Poco::Dynamic::Var parseFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw Poco::FileException("Cannot read " + path);
    return Poco::JSON::Parser().parse(in);
}

template <class T>
T extract(const Poco::Dynamic::Var& json, const std::string& path, const char* what) {
    if (json.type() != typeid(T)) throw Poco::DataException(path + " does not hold " + what);
    return json.extract<T>();
}

}  // namespace

MediaData generateMediaData(std::size_t albums, std::size_t tracksPerAlbum,
                            std::size_t playlists, unsigned seed) {
    Generator random(seed);
    MediaData data;
    data.service = new Poco::JSON::Object;
    data.service->set("id", random.uuid());
    data.service->set("name", MediaService::NAME);
    data.service->set("uri", "/" + MediaService::NAME);
    data.service->set("description", "Albums, tracks and playlists of the vehicle's media");
    data.service->set("port", 8080);
    data.service->set("serviceCategories", Poco::JSON::Array::Ptr(new Poco::JSON::Array));
    data.service->getArray("serviceCategories")->add("media");
    data.service->set("privileges", Poco::JSON::Array::Ptr(new Poco::JSON::Array));
    data.service->getArray("privileges")->add("media.read");
    data.service->getArray("privileges")->add("media.write");
    data.service->set("versions", Poco::JSON::Array::Ptr(new Poco::JSON::Array));
    data.service->getArray("versions")->add("1.0");

    data.resources = new Poco::JSON::Array;
    data.resources->add(resourceDescription("Albums", random.uuid(), "Albums on the device"));
    data.resources->add(resourceDescription("Tracks", random.uuid(), "Tracks of the albums"));
    data.resources->add(resourceDescription("Playlists", random.uuid(), "Playlists of tracks"));

    Poco::JSON::Array::Ptr albumElements = new Poco::JSON::Array;
    Poco::JSON::Array::Ptr trackElements = new Poco::JSON::Array;
    std::vector<std::string> trackUris;
    for (std::size_t a = 0; a < albums; ++a) {
        const std::string albumId = random.uuid();
        const std::string language = random.pick(LANGUAGES);
        Poco::JSON::Object::Ptr album = new Poco::JSON::Object;
        album->set("id", albumId);
        album->set("name", random.title());
        album->set("artist", random.pick(ARTISTS));
        album->set("released", random.date());
        album->set("language", language);
        album->set("genre", Album::GENRES[1 + random.below(Album::GENRES.size() - 1)]);
        Poco::JSON::Array::Ptr tags = new Poco::JSON::Array;
        for (std::size_t t = random.below(3); t > 0; --t) tags->add(random.pick(TAGS));
        album->set("tags", tags);
        albumElements->add(album);

        for (std::size_t t = 0; t < tracksPerAlbum; ++t) {
            const std::string trackId = random.uuid();
            Poco::JSON::Object::Ptr track = new Poco::JSON::Object;
            track->set("id", trackId);
            track->set("name", random.title());
            track->set("number", static_cast<int>(t % 99) + 1);
            track->set("duration", static_cast<int>(90 + random.below(400)));
            track->set("language", language);
            track->set("album", "/" + MediaService::NAME + "/Albums/" + albumId);
            if (random.below(4) == 0) track->set("rating", static_cast<int>(1 + random.below(5)));
            trackElements->add(track);
            trackUris.push_back("/" + MediaService::NAME + "/Tracks/" + trackId);
        }
    }

    Poco::JSON::Array::Ptr playlistElements = new Poco::JSON::Array;
    for (std::size_t p = 0; p < playlists; ++p) {
        Poco::JSON::Object::Ptr playlist = new Poco::JSON::Object;
        playlist->set("id", random.uuid());
        playlist->set("name", random.title() + " mix");
        playlist->set("description", std::string("Songs for a ") + random.pick(TAGS) + " drive");
        playlist->set("created", random.date());
        Poco::JSON::Array::Ptr tracks = new Poco::JSON::Array;
        for (std::size_t t = trackUris.empty() ? 0 : 1 + random.below(20); t > 0; --t) {
            tracks->add(trackUris[random.below(trackUris.size())]);
        }
        playlist->set("tracks", tracks);
        playlistElements->add(playlist);
    }

    data.elements = new Poco::JSON::Array;
    data.elements->add(resourceData("Albums", albumElements));
    data.elements->add(resourceData("Tracks", trackElements));
    data.elements->add(resourceData("Playlists", playlistElements));
    return data;
}

MediaData MediaData::read(const std::string& directory) {
    const auto path = [&directory](const char* file) {
        return Poco::Path(Poco::Path::forDirectory(directory), file).toString();
    };
    MediaData data;
    data.service = extract<Poco::JSON::Object::Ptr>(parseFile(path(SERVICE_FILE)),
                                                    path(SERVICE_FILE), "a JSON object");
    data.resources = extract<Poco::JSON::Array::Ptr>(parseFile(path(RESOURCES_FILE)),
                                                     path(RESOURCES_FILE), "a JSON array");
    data.elements = extract<Poco::JSON::Array::Ptr>(parseFile(path(ELEMENTS_FILE)),
                                                    path(ELEMENTS_FILE), "a JSON array");
    return data;
}

void MediaData::write(const std::string& directory) const {
    const auto write = [&directory](const char* file, const Poco::Dynamic::Var& json) {
        const std::string path = Poco::Path(Poco::Path::forDirectory(directory), file).toString();
        std::ofstream out(path);
        Poco::JSON::Stringifier::stringify(json, out, 2);
        out << '\n';
        if (!out) throw Poco::WriteFileException(path);
    };
    write(SERVICE_FILE, service);
    write(RESOURCES_FILE, resources);
    write(ELEMENTS_FILE, elements);
}

bool MediaData::loadInto(MediaService& service) const {
    return service.initFromJSON(this->service.get()) &&
           service.initResourcesFromJSON(resources.get()) &&
           service.initServiceResourcesfromJSON(elements.get());
}

}  // namespace Media
