#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

Poco::Dynamic::Var PropertyValueBase::toJSON(int) const { return getGenericValue(); }

std::string PropertyValueBase::toString() const { return getGenericValue().convert<std::string>(); }

std::string PropertyValueBase::getValueType() const { return "unspecified type"; }

bool PropertyValueBoolean::parseString(const std::string& text, bool& out) const {
    if (text == "true") {
        out = true;
        return true;
    }
    if (text == "false") {
        out = false;
        return true;
    }
    return false;
}

}  // namespace Kivo::Data::Base
