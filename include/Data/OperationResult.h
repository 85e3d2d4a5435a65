#ifndef QESSERVICEDATALIB_DATA_OPERATIONRESULT_H
#define QESSERVICEDATALIB_DATA_OPERATIONRESULT_H

#include <string>

namespace Kivo::Data {

// The outcome of a client-facing operation: a code and a message. The code's string is what
// remote clients see, so it is fixed letter for letter; note that NO_UPDATE reports "ok" like
// OK (a request that changed nothing succeeded) and WRONG_PROPERTY_TYPE reports "wrong_type".
// The message is never empty: an empty one falls back to the code's string.
class OperationResult {
public:
    enum Value : int {
        OK = 0,
        NO_UPDATE = 1,
        PROCESSING_ERROR = 2,
        INVALID_OPERATION = 3,
        INVALID_VALUE = 4,
        INVALID_OBJECT = 5,
        WRONG_PROPERTY_TYPE = 6,
        UNKNOWN_PROPERTY = 7,
        UNKNOWN_OBJECT = 8,
        NOT_FOUND = 9,
        DUPLICATE = 10,
        FORBIDDEN = 11,
    };

    explicit OperationResult(Value value, const std::string& message = std::string());

    // Sets the code and the message (or, when `message` is empty, the code's string).
    void set(Value value, const std::string& message = std::string());

    Value value() const { return m_value; }
    operator Value() const { return m_value; }
    explicit operator int() const { return m_value; }
    // True for OK and NO_UPDATE.
    bool isSuccess() const { return m_value == OK || m_value == NO_UPDATE; }
    // The message (the code's string only where the message fell back to it).
    const std::string& toString() const { return m_errorMsg; }
    operator std::string() const { return m_errorMsg; }

    // The code's client-facing string; "<invalid result value>" outside the enumeration.
    static std::string valueToString(const Value& value);

private:
    Value m_value;
    std::string m_errorMsg;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_OPERATIONRESULT_H
