#include "Web/JsonBody.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/UTF8Encoding.h>

namespace Kivo::Web {

using Data::OperationResult;

OperationResult JsonBody::parseObject(const std::string& text, Poco::JSON::Object::Ptr& object) {
    if (!isValidUtf8(text)) return OperationResult(OperationResult::INVALID_VALUE,
                                                   "body is not valid UTF-8");
    if (!nestsWithin(text, MAX_DEPTH)) {
        return OperationResult(OperationResult::INVALID_VALUE,
                               "body nests deeper than " + std::to_string(MAX_DEPTH) + " levels");
    }
    Poco::Dynamic::Var parsed;
    try {
        parsed = Poco::JSON::Parser().parse(text);
    } catch (const Poco::Exception& error) {
        return OperationResult(OperationResult::INVALID_VALUE,
                               "malformed JSON: " + error.message());
    }
    if (parsed.type() != typeid(Poco::JSON::Object::Ptr)) {
        return OperationResult(OperationResult::INVALID_VALUE, "body is not a JSON object");
    }
    object = parsed.extract<Poco::JSON::Object::Ptr>();
    return OperationResult(OperationResult::OK);
}

bool JsonBody::isValidUtf8(const std::string& text) {
    // The encoding's queryConvert answers a code point for a complete legal sequence and a
    // negative number (more bytes needed) or -1 (illegal) otherwise.
    Poco::UTF8Encoding encoding;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t position = 0;
    while (position < text.size()) {
        if (bytes[position] < 0x80) {
            ++position;
            continue;
        }
        const int length = encoding.sequenceLength(bytes + position,
                                                   static_cast<int>(text.size() - position));
        if (length <= 0 || position + static_cast<std::size_t>(length) > text.size()) return false;
        const int codePoint = encoding.queryConvert(bytes + position, length);
        if (codePoint < 0x80 || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF) ||
            length != Poco::UTF8Encoding().convert(codePoint, nullptr, 0)) {
            return false;
        }
        position += static_cast<std::size_t>(length);
    }
    return true;
}

bool JsonBody::nestsWithin(const std::string& text, int limit) {
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (const char byte : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (byte == '\\') escaped = true;
            else if (byte == '"') inString = false;
        } else if (byte == '"') {
            inString = true;
        } else if (byte == '[' || byte == '{') {
            if (++depth > limit) return false;
        } else if ((byte == ']' || byte == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}

}  // namespace Kivo::Web
