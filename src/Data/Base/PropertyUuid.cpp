#include "Data/Base/PropertyUuid.h"

#include <Poco/UUIDGenerator.h>

namespace Kivo::Data::Base {

template class PropertyValue<Poco::UUID>;

PropertyValueUuid::PropertyValueUuid()
    : PropertyValue<Poco::UUID>(Poco::UUIDGenerator().createRandom()) {}

}  // namespace Kivo::Data::Base
