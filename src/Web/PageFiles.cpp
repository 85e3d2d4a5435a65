#include "Web/PageFiles.h"

#include <fstream>
#include <iterator>
#include <map>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/File.h>
#include <Poco/Path.h>
#include <Poco/String.h>

#include "PathSegments.h"
#include "Web/JsonReply.h"

namespace Kivo::Web {

namespace {

const std::map<std::string, std::string>& contentTypes() {
    static const std::map<std::string, std::string> TYPES = {
        {"html", "text/html; charset=utf-8"}, {"css", "text/css; charset=utf-8"},
        {"js", "text/javascript; charset=utf-8"}, {"svg", "image/svg+xml"},
        {"png", "image/png"}, {"json", "application/json; charset=utf-8"},
        {"ico", "image/x-icon"}, {"txt", "text/plain; charset=utf-8"},
        {"map", "application/json; charset=utf-8"}};
    return TYPES;
}

WebResponse notFound() {
    return JsonReply::failure(404, Data::OperationResult::NOT_FOUND, "no such file");
}

// The decoded segments of `path`, or false when one of them could leave the directory or
// hide a file.
bool safeSegments(const std::string& path, std::vector<std::string>& segments) {
    segments = decodedSegments(path);
    if (segments.back().empty()) segments.back() = "index.html";
    for (const std::string& segment : segments) {
        if (segment.empty() || segment[0] == '.' ||
            segment.find_first_of(std::string("/\\\0", 3)) != std::string::npos) {
            return false;
        }
    }
    return true;
}

}  // namespace

PageFiles::PageFiles(std::string directory) : m_directory(std::move(directory)) {}

WebResponse PageFiles::get(const std::string& path) const {
    std::vector<std::string> segments;
    if (m_directory.empty() || path.empty() || path[0] != '/') return notFound();
    try {
        if (!safeSegments(path, segments)) return notFound();
        Poco::Path file(Poco::Path::forDirectory(m_directory));
        for (std::size_t i = 0; i + 1 < segments.size(); ++i) file.pushDirectory(segments[i]);
        file.setFileName(segments.back());
        const std::string type = contentTypeOf(segments.back());
        const Poco::File entry(file);
        if (type.empty() || !entry.exists() || !entry.isFile()) return notFound();
        std::ifstream in(file.toString(), std::ios::binary);
        if (!in) return notFound();
        WebResponse response;
        response.contentType = type;
        response.body.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        return response;
    } catch (const Poco::Exception&) {
        return notFound();
    }
}

std::string PageFiles::contentTypeOf(const std::string& fileName) {
    const std::size_t dot = fileName.rfind('.');
    if (dot == std::string::npos) return std::string();
    const auto type = contentTypes().find(Poco::toLower(fileName.substr(dot + 1)));
    return type == contentTypes().end() ? std::string() : type->second;
}

}  // namespace Kivo::Web
