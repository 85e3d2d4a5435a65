#include "MediaService.h"

namespace Media {

const std::string MediaService::NAME = "Media";

MediaService::MediaService()
    : Service(NAME, "Albums, tracks and playlists", 8080, PropertyValueUuid()),
      albums(*this, "Albums", false),
      tracks(*this, "Tracks", true),
      playlists(*this, "Playlists", true) {}

}  // namespace Media
