#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include <Poco/File.h>

#include "MediaData.h"

// Writes media data of the example's shape into a directory:
//   qes-media-generate <directory> [albums] [tracks-per-album] [playlists] [seed]
// The shipped data under examples/data is `qes-media-generate examples/data 40 8 12 1`.
int main(int argc, char** argv) {
    const bool help = argc == 2 && std::string(argv[1]) == "--help";
    if (help || argc < 2 || argc > 6) {
        (help ? std::cout : std::cerr)
            << "usage: qes-media-generate <directory> [albums=40] [tracks-per-album=8] "
               "[playlists=12] [seed=1]\n";
        return help ? 0 : 2;
    }
    const auto number = [argc, argv](int index, unsigned long fallback) {
        return index < argc ? std::stoul(argv[index]) : fallback;
    };
    try {
        Poco::File(argv[1]).createDirectories();
        Media::generateMediaData(number(2, 40), number(3, 8), number(4, 12),
                                 static_cast<unsigned>(number(5, 1)))
            .write(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << "qes-media-generate: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
