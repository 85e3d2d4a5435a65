#ifndef QESSERVICEDATALIB_WEB_PATHSEGMENTS_H
#define QESSERVICEDATALIB_WEB_PATHSEGMENTS_H

#include <string>
#include <vector>

namespace Kivo::Web {

// The segments of a percent-encoded request path after its leading "/", each decoded, empty
// ones included ("/a//b/" gives "a", "", "b", ""). Throws Poco::SyntaxException for a bad
// percent-encoding.
std::vector<std::string> decodedSegments(const std::string& path);

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_PATHSEGMENTS_H
