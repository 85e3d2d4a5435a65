#include "Data/DataChangedDelivery.h"

#include "DataChangedDispatcher.h"

namespace Kivo::Data {

bool DataChangedDelivery::drain() { return DataChangedDispatcher::instance().drain(); }

bool DataChangedDelivery::shutdown() { return DataChangedDispatcher::instance().shutdown(); }

bool DataChangedDelivery::isShutDown() { return DataChangedDispatcher::instance().isSynchronous(); }

}  // namespace Kivo::Data
