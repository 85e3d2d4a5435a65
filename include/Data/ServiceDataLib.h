#ifndef QESSERVICEDATALIB_DATA_SERVICEDATALIB_H
#define QESSERVICEDATALIB_DATA_SERVICEDATALIB_H

// Every public header of the library.

#include "Client/ElementSearch.h"
#include "Client/ElementWriter.h"
#include "Client/ResourceDescription.h"
#include "Client/ServiceData.h"
#include "Client/TextPattern.h"
#include "Data/AbstractResource.h"
#include "Data/Base/Object.h"
#include "Data/Base/Property.h"
#include "Data/Base/PropertyBase.h"
#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyIndex.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/Base/PropertyIndexUser.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/Base/PropertyObjectReference.h"
#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"
#include "Data/Base/PropertyValue.h"
#include "Data/Base/PropertyValueArray.h"
#include "Data/DataChangedDelivery.h"
#include "Data/Element.h"
#include "Data/ElementContainer.h"
#include "Data/OperationResult.h"
#include "Data/OptionalProperty.h"
#include "Data/ReferenceResolver.h"
#include "Data/Service.h"
#include "Data/XObject.h"
#include "Data/XObjectReference.h"
#include "Logging/Log.h"
#include "Util/AbstractQuery.h"
#include "Util/RecursiveRWLock.h"

#endif  // QESSERVICEDATALIB_DATA_SERVICEDATALIB_H
