#include "PathSegments.h"

#include <Poco/URI.h>

namespace Kivo::Web {

std::vector<std::string> decodedSegments(const std::string& path) {
    std::vector<std::string> segments;
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        std::string segment;
        Poco::URI::decode(path.substr(start, end - start), segment);
        segments.push_back(segment);
        start = end + 1;
    }
    return segments;
}

}  // namespace Kivo::Web
