#ifndef QESSERVICEDATALIB_DATA_OPERATIONRESULT_H
#define QESSERVICEDATALIB_DATA_OPERATIONRESULT_H

#include <string>

namespace Kivo::Data {

/// The outcome of a client-facing operation: a code and a message. The code's string is what
/// remote clients see, so it is fixed letter for letter; note that NO_UPDATE reports "ok" like
/// OK (a request that changed nothing succeeded) and WRONG_PROPERTY_TYPE reports "wrong_type".
/// The message is never empty: an empty one falls back to the code's string.
class OperationResult {
public:
    /// The result codes, each with its client-facing string (valueToString).
    enum Value : int {
        /// Done: "ok".
        OK = 0,
        /// Accepted, but nothing differed, so nothing changed: "ok".
        NO_UPDATE = 1,
        /// The operation could not be carried out, as for a null argument or a property that
        /// cannot be cleared: "processing_error".
        PROCESSING_ERROR = 2,
        /// The object does not offer the operation (a resource without elements of its own):
        /// "invalid_operation".
        INVALID_OPERATION = 3,
        /// A value, offset or count was refused: "invalid_value".
        INVALID_VALUE = 4,
        /// A JSON object lacks a required member: "invalid_object".
        INVALID_OBJECT = 5,
        /// A value of the wrong type; the library itself does not return it: "wrong_type".
        WRONG_PROPERTY_TYPE = 6,
        /// A key the object does not know, or a required member that is missing:
        /// "unknown_property".
        UNKNOWN_PROPERTY = 7,
        /// An unknown object; the library itself does not return it: "unknown_object".
        UNKNOWN_OBJECT = 8,
        /// No element with that id, a known key without property, or a key an update names
        /// that the element does not know: "not_found".
        NOT_FOUND = 9,
        /// An element with that id is present already: "duplicate".
        DUPLICATE = 10,
        /// An access gate refuses the client: "forbidden".
        FORBIDDEN = 11,
    };

    /// A result with the code `value` and `message`, or the code's string when `message` is
    /// empty.
    explicit OperationResult(Value value, const std::string& message = std::string());

    /// Sets the code and the message (or, when `message` is empty, the code's string).
    void set(Value value, const std::string& message = std::string());

    /// The code.
    Value value() const { return m_value; }
    /// The code, so that a result compares with the enumerators directly.
    operator Value() const { return m_value; }
    /// The code's number.
    explicit operator int() const { return m_value; }
    /// True for OK and NO_UPDATE.
    bool isSuccess() const { return m_value == OK || m_value == NO_UPDATE; }
    /// The message (the code's string only where the message fell back to it).
    const std::string& toString() const { return m_errorMsg; }
    /// The message, as toString().
    operator std::string() const { return m_errorMsg; }

    /// The code's client-facing string; "<invalid result value>" outside the enumeration.
    static std::string valueToString(const Value& value);

private:
    Value m_value;
    std::string m_errorMsg;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_OPERATIONRESULT_H
