#ifndef QESSERVICEDATALIB_CLIENT_MEMBERCHECK_H
#define QESSERVICEDATALIB_CLIENT_MEMBERCHECK_H

#include <string>

#include <Poco/Dynamic/Var.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyValue.h"
#include "Data/OperationResult.h"

namespace Kivo::Data {
class OptionalPropertyBase;
}  // namespace Kivo::Data

namespace Kivo::Client {

/// Judges one non-null member of a client's JSON against the value of the property it names,
/// in two steps: whether its JSON type suits the value's kind (checkType), and, once the
/// property has refused it, why (explain). A refusal names the key and the reason.
///
/// The value is the property's current value, or the prototype of an unset optional property;
/// it is only read, so the caller holds the element's read lock while checking.
class MemberCheck {
public:
    /// Checks against the current value of a present property: a text equal to it is accepted
    /// without asking the value, as the element's own update does.
    MemberCheck(const Data::Base::PropertyKey& key, const Data::Base::PropertyValueBase& value);
    /// Checks against the prototype of the unset optional property `optional`; where it gives
    /// none, takes a string that the optional property accepts.
    MemberCheck(const Data::Base::PropertyKey& key, const Data::OptionalPropertyBase& optional);

    /// OK when the member's JSON type suits the kind; WRONG_PROPERTY_TYPE, or INVALID_VALUE
    /// for an integer beyond 64 bits, with the reason.
    Data::OperationResult checkType(const Poco::Dynamic::Var& member) const;
    /// OK when the property accepts the member (of a suitable type), else INVALID_VALUE with
    /// the reason.
    Data::OperationResult explain(const Poco::Dynamic::Var& member) const;

private:
    enum Kind { KIND_BOOLEAN, KIND_INTEGER, KIND_STRING, KIND_ARRAY, KIND_OTHER };

    static Kind kindOf(const Data::Base::PropertyValueBase* value);
    bool accepts(const std::string& text) const;
    // What is wrong with the member's JSON type for the kind; empty when it suits.
    std::string typeMismatch(const Poco::Dynamic::Var& member) const;
    // Whether an integer-kind member (a JSON integer or integral number) fits 64 bits.
    static bool fitsInteger(const Poco::Dynamic::Var& member);
    // The member as the text the property parses, an integral number as an integer.
    std::string textOf(const Poco::Dynamic::Var& member) const;
    // Why the value refuses `text`, which it does.
    std::string refusal(const std::string& text) const;
    Data::OperationResult refused(Data::OperationResult::Value code,
                                  const std::string& reason) const;

    const Data::Base::PropertyKey& m_key;
    const Data::Base::PropertyValueBase* m_value;  // not owned; null for an unknown kind
    const Data::OptionalPropertyBase* m_optional;  // not owned; null for a present property
    const Kind m_kind;
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_MEMBERCHECK_H
