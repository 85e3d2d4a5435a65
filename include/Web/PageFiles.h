#ifndef QESSERVICEDATALIB_WEB_PAGEFILES_H
#define QESSERVICEDATALIB_WEB_PAGEFILES_H

#include <string>

#include "Web/WebExchange.h"

namespace Kivo::Web {

/// The static files of the browser page: a request path names a file under one directory
/// ("/" and any path ending in "/" name its index.html). A path that would leave the directory
/// (a ".." segment, an encoded "/" or NUL, a hidden name), a directory, a missing file or a
/// file of a type not served answers 404 not_found. Content types: .html, .css, .js
/// (text/javascript), .svg, .png, .json, .ico, .txt, .map. Files are read at each request, so a page
/// edited on disk is served at once. Stateless; any thread may use it.
class PageFiles {
public:
    /// The files under `directory`; with an empty one every request answers 404.
    explicit PageFiles(std::string directory);
    /// The file the percent-encoded `path` names, or a 404 failure body.
    WebResponse get(const std::string& path) const;
    /// The content type of a file name's extension, or empty when the type is not served.
    static std::string contentTypeOf(const std::string& fileName);
    /// The directory served.
    const std::string& directory() const { return m_directory; }

private:
    std::string m_directory;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_PAGEFILES_H
