#include "Data/OperationResult.h"

namespace Kivo::Data {

OperationResult::OperationResult(Value value, const std::string& message) : m_value(OK) {
    set(value, message);
}

void OperationResult::set(Value value, const std::string& message) {
    m_value = value;
    m_errorMsg = message.empty() ? valueToString(value) : message;
}

std::string OperationResult::valueToString(const Value& value) {
    switch (value) {
        case OK:
        case NO_UPDATE:
            return "ok";
        case PROCESSING_ERROR:
            return "processing_error";
        case INVALID_OPERATION:
            return "invalid_operation";
        case INVALID_VALUE:
            return "invalid_value";
        case INVALID_OBJECT:
            return "invalid_object";
        case WRONG_PROPERTY_TYPE:
            return "wrong_type";
        case UNKNOWN_PROPERTY:
            return "unknown_property";
        case UNKNOWN_OBJECT:
            return "unknown_object";
        case NOT_FOUND:
            return "not_found";
        case DUPLICATE:
            return "duplicate";
        case FORBIDDEN:
            return "forbidden";
    }
    return "<invalid result value>";
}

}  // namespace Kivo::Data
