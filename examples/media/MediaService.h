#ifndef QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIASERVICE_H
#define QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIASERVICE_H

#include <string>

#include <Poco/BasicEvent.h>

#include <Data/ElementContainer.h>
#include <Data/Service.h>

#include "MediaElements.h"

namespace Media {

// One change of an element, as a resource of the media service observed it.
struct ElementChange {
    std::string resource;
    Element::DataChangedEventPayload payload;
};

class MediaService;

// A resource of the media service: a ready element container that reports every element
// change to its service's ElementChanged event. Reading is open to everyone; what clients may
// write and delete is decided per resource.
template <class E>
class MediaResource : public Kivo::Data::ElementContainer<E> {
public:
    MediaResource(MediaService& service, const std::string& name, bool deletable);
    // Stops change deliveries before this part of the resource goes.
    ~MediaResource() override { this->clear(); }

    bool isDeleteAllowed() const override { return m_deletable; }
    // Every element must be given a name.
    std::set<PropertyKey> getRequiredProperties() const override { return {"name"}; }
    void onElementDataChanged(Element::DataChangedEventPayload& payload) override;

private:
    MediaService& m_mediaService;
    const std::string m_name;  // fixed: change reports name it without taking the lock
    const bool m_deletable;
};

// The example media service "Media" with three resources: "Albums" (not deletable by
// clients), "Tracks" (each referencing its album) and "Playlists". The service owns its
// resources; they are destroyed before it.
class MediaService : public Kivo::Data::Service {
public:
    static const std::string NAME;

    MediaService();

    // Raised on a pool thread for every DataChanged of every element of the service, in the
    // order of each element's changes.
    Poco::BasicEvent<const ElementChange> ElementChanged;

    MediaResource<Album> albums;
    MediaResource<Track> tracks;
    MediaResource<Playlist> playlists;
};

template <class E>
MediaResource<E>::MediaResource(MediaService& service, const std::string& name, bool deletable)
    : Kivo::Data::ElementContainer<E>(service, name, name, PropertyValueUuid()),
      m_mediaService(service),
      m_name(name),
      m_deletable(deletable) {
    this->init();
}

template <class E>
void MediaResource<E>::onElementDataChanged(Element::DataChangedEventPayload& payload) {
    m_mediaService.ElementChanged.notify(this, ElementChange{m_name, payload});
}

}  // namespace Media

#endif  // QESSERVICEDATALIB_EXAMPLES_MEDIA_MEDIASERVICE_H
