// Service JSON: Service::initFromJSON, resource initialisation and resource data loading, on
// the example media service (fresh for every input), followed by everything that reads the
// loaded tree back: the service's JSON with its resources and elements (references followed),
// and each resource's indexes.
//
// Whatever the JSON: the loaders answer true or false, and afterwards every object filed in a
// resource's indexes is an element that resource holds. initFromJSON may pass on what the JSON
// and value libraries throw, but every JSON member has a text, so nothing should reach it
// that throws: the target lets any exception end the run, to be looked at.
//
// Input: a byte choosing the operation, then the JSON text.
//   s  initFromJSON(object)                 the service description
//   r  initResourcesFromJSON(array)         resource descriptions
//   e  initServiceResourcesfromJSON(array)  [{"name": <resource>, "elements": [...]}, ...]
//   d  initResourceDataFromJSON(<name>, array), the name chosen by the next byte
//   l  all three in turn from {"service": ..., "resources": [...], "elements": [...]}
//   c  the elements array as a client's load (Kivo::Client::ServiceData::load): refused, it
//      leaves the service as it was and says why; accepted, what the service saves then
//      loads into another empty service as well, with as many elements
// Any other first byte picks one of these by its value. Text that is no JSON of the needed
// shape is ignored: the parser's refusals are not the library's.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "Client/ServiceData.h"
#include "Data/AbstractResource.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "FuzzSupport.h"
#include "MediaService.h"

namespace {

using Kivo::Client::ServiceData;
using Kivo::Data::AbstractResource;
using Kivo::Data::OperationResult;
using Kivo::Data::Base::Object;
using Kivo::Data::Base::PropertyIndexReferenceMap;
using Kivo::Fuzz::IndexInspection;
using Kivo::Fuzz::InputReader;
using Media::MediaService;

template <class T>
Poco::SharedPtr<T> as(const Poco::Dynamic::Var& json) {
    if (json.type() != typeid(Poco::SharedPtr<T>)) return Poco::SharedPtr<T>();
    return json.extract<Poco::SharedPtr<T>>();
}

void initService(MediaService& service, const Poco::JSON::Object::Ptr& json) {
    service.initFromJSON(json.get());
}

void load(MediaService& service, const Poco::JSON::Object::Ptr& json) {
    initService(service, json->getObject("service"));
    service.initResourcesFromJSON(json->getArray("resources").get());
    service.initServiceResourcesfromJSON(json->getArray("elements").get());
}

std::string saved(const MediaService& service) {
    std::ostringstream out;
    ServiceData::save(service)->stringify(out);
    return out.str();
}

std::size_t held(const MediaService& service) {
    return service.albums.size() + service.tracks.size() + service.playlists.size();
}

void clientLoad(MediaService& service, const Poco::JSON::Array& elements) {
    const std::string before = saved(service);
    const OperationResult result = ServiceData::load(service, elements);
    if (!result.isSuccess()) {
        QES_FUZZ_CHECK(saved(service) == before, "a refused load changed the service");
        QES_FUZZ_CHECK(result.toString() != OperationResult::valueToString(result.value()),
                       "a load was refused without a reason");
        return;
    }
    MediaService again;
    QES_FUZZ_CHECK(ServiceData::load(again, *ServiceData::save(service)).isSuccess(),
                   "what a service saves does not load back");
    QES_FUZZ_CHECK(held(again) == held(service), "a saved service loads back other elements");
}

// Reading the tree back, as a client would: the whole service with every element at depth 2
// (each reference as its target's compact form), and the tracks' album references.
void readBack(MediaService& service) {
    std::ostringstream out;
    service.getDataAsJSON(true, 2)->stringify(out);
    AbstractResource::ElementQueryResult tracks;
    service.tracks.getElements(tracks, 0, static_cast<int>(service.tracks.size()));
    for (const AbstractResource::Ptr& element : tracks) {
        const auto& track = dynamic_cast<const Media::Track&>(*element);
        if (!track.album.isNull()) track.album.getValue();
    }
}

void checkIndexes(AbstractResource& resource) {
    resource.find(IndexInspection([&resource](const PropertyIndexReferenceMap& indexes) {
        for (const auto& entry : indexes) {
            for (Object* object : entry.second->get()) {
                AbstractResource::Ptr element;
                resource.getElement(object->getIdentification(), element);
                QES_FUZZ_CHECK(element.get() == object,
                               "the index of " + entry.first + " files an element not held");
            }
        }
    }));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Kivo::Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const char OPERATIONS[] = "sredlc";
    static const char* const RESOURCES[] = {"Albums", "Tracks", "Playlists", "tracks", "Nothing"};
    InputReader input(data, size);
    const char operation = input.choice(OPERATIONS);
    const char* resourceName = RESOURCES[operation == 'd' ? input.byte() % 5 : 0];
    const Poco::Dynamic::Var json = Kivo::Fuzz::parseJson(input.rest());
    MediaService service;
    switch (operation) {
        case 's':
            if (auto object = as<Poco::JSON::Object>(json)) initService(service, object);
            break;
        case 'r':
            if (auto array = as<Poco::JSON::Array>(json))
                service.initResourcesFromJSON(array.get());
            break;
        case 'e':
            if (auto array = as<Poco::JSON::Array>(json)) {
                service.initServiceResourcesfromJSON(array.get());
            }
            break;
        case 'd':
            if (auto array = as<Poco::JSON::Array>(json)) {
                service.initResourceDataFromJSON(resourceName, array.get());
            }
            break;
        case 'c':
            if (auto array = as<Poco::JSON::Array>(json)) clientLoad(service, *array);
            break;
        default:
            if (auto object = as<Poco::JSON::Object>(json)) load(service, object);
            break;
    }
    readBack(service);
    checkIndexes(service.albums);
    checkIndexes(service.tracks);
    checkIndexes(service.playlists);
    return 0;
}
