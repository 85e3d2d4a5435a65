#ifndef QESSERVICEDATALIB_WEB_JSONBODY_H
#define QESSERVICEDATALIB_WEB_JSONBODY_H

#include <string>

#include <Poco/JSON/Object.h>

#include "Data/OperationResult.h"

namespace Kivo::Web {

/// Client JSON read safely: the text must be valid UTF-8 and nest no deeper than MAX_DEPTH
/// before the parser sees it (the parser recurses once per level, so a hostile body of a
/// million "[" would exhaust the stack), and it must be one JSON object.
class JsonBody {
public:
    /// The deepest nesting of arrays and objects accepted.
    static constexpr int MAX_DEPTH = 64;

    JsonBody() = delete;
    /// OK with `object` set to the parsed object, or INVALID_VALUE with the reason ("body is
    /// not valid UTF-8", "body nests deeper than 64 levels", "body is not a JSON object",
    /// "malformed JSON: ...") and `object` unchanged.
    static Data::OperationResult parseObject(const std::string& text,
                                             Poco::JSON::Object::Ptr& object);
    /// Whether `text` is well-formed UTF-8 (no overlong forms, surrogates or code points above
    /// U+10FFFF).
    static bool isValidUtf8(const std::string& text);
    /// Whether the arrays and objects of `text`, read as JSON, nest at most `limit` deep.
    /// Brackets inside strings do not count.
    static bool nestsWithin(const std::string& text, int limit);
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_JSONBODY_H
