#include "Web/JsonReply.h"

#include <sstream>

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Stringifier.h>

namespace Kivo::Web {

using Data::OperationResult;

int JsonReply::statusOf(OperationResult::Value code) {
    switch (code) {
        case OperationResult::OK:
        case OperationResult::NO_UPDATE:
            return 200;
        case OperationResult::INVALID_VALUE:
        case OperationResult::WRONG_PROPERTY_TYPE:
        case OperationResult::UNKNOWN_PROPERTY:
        case OperationResult::INVALID_OBJECT:
            return 400;
        case OperationResult::FORBIDDEN:
            return 403;
        case OperationResult::NOT_FOUND:
        case OperationResult::UNKNOWN_OBJECT:
            return 404;
        case OperationResult::DUPLICATE:
            return 409;
        case OperationResult::INVALID_OPERATION:
            return 405;
        case OperationResult::PROCESSING_ERROR:
            break;
    }
    return 500;
}

WebResponse JsonReply::of(const OperationResult& result) {
    return failure(statusOf(result.value()), result.value(),
                   result.isSuccess() ? std::string() : result.toString());
}

WebResponse JsonReply::failure(int status, OperationResult::Value code,
                               const std::string& message) {
    Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    body->set("result", OperationResult::valueToString(code));
    body->set("message", message);
    return json(status, body);
}

WebResponse JsonReply::json(int status, const Poco::Dynamic::Var& json) {
    WebResponse response;
    response.status = status;
    response.body = stringify(json);
    return response;
}

std::string JsonReply::stringify(const Poco::Dynamic::Var& json) {
    std::ostringstream out;
    Poco::JSON::Stringifier::condense(json, out);
    return out.str();
}

}  // namespace Kivo::Web
