// Builds one data object with boolean and integer properties, subscribes to their events,
// writes valid and invalid values, and prints what happened and the object's JSON.

#include <iostream>
#include <string>

#include <Poco/AutoPtr.h>
#include <Poco/ConsoleChannel.h>
#include <Poco/Delegate.h>
#include <Poco/FormattingChannel.h>
#include <Poco/PatternFormatter.h>

#include "Data/ServiceDataLib.h"

namespace {

using namespace Kivo::Data::Base;
typedef PropertyValueNumberBase<long> Number;

// A climate zone of a car: its properties are members, registered under one lock. Clients may
// write everything except the serial number.
class ClimateZone : public Object {
public:
    explicit ClimateZone(const Kivo::RecursiveRWLockPtr& lock)
        : Object(Type("ClimateZone"), lock),
          m_enabled("enabled", this, PropertyValueBoolean(false)),
          m_temperature("temperature", this, Number(21, 16, 28, Poco::Nullable<long>())),
          m_fanSpeed("fanSpeed", this, Number(0, 0, 100, 10)),
          m_serial("serial", this, Number(4711, {}, {}, {})) {
        for (PropertyBase* property : {static_cast<PropertyBase*>(&m_enabled),
                                       static_cast<PropertyBase*>(&m_temperature),
                                       static_cast<PropertyBase*>(&m_fanSpeed),
                                       static_cast<PropertyBase*>(&m_serial)}) {
            property->registerAtOwner();
        }
    }
    ~ClimateZone() override { unregisterAllProperties(); }

    Poco::UUID getIdentification() const override { return Poco::UUID::null(); }

    PropertyBoolean m_enabled;
    PropertyInteger m_temperature;
    PropertyInteger m_fanSpeed;
    PropertyInteger m_serial;

protected:
    bool checkWriteAccess(const PropertyKey& key) const override { return key != "serial"; }
};

// Prints every change of the properties it watches, typed and generic.
struct ChangePrinter {
    void onTemperature(const void*, PropertyInteger::ValueChangedEventPayload& payload) {
        std::cout << "  ValueChanged: temperature " << payload.oldValue.getValue() << " -> "
                  << payload.concreteSource->getValue() << "\n";
    }
    void onUpdated(const void*, PropertyEventPayload& payload) {
        std::cout << "  Updated: " << payload.getSourceProperty()->getKey() << " was "
                  << payload.getPreviousValue().toString() << ", is "
                  << payload.getSourceProperty()->getPropertyValueBase().toString() << "\n";
    }
};

void write(const std::string& what, bool accepted) {
    std::cout << what << ": " << (accepted ? "accepted" : "refused") << "\n";
}

void printJSON(const Object& object) {
    object.toJSON(0)->stringify(std::cout);
    std::cout << "\n";
}

}  // namespace

int main() {
    Poco::AutoPtr<Poco::PatternFormatter> formatter(new Poco::PatternFormatter("  log %U:%u %t"));
    Poco::AutoPtr<Poco::FormattingChannel> channel(
        new Poco::FormattingChannel(formatter, new Poco::ConsoleChannel(std::cout)));
    Logging::Log::Logger().setChannel(channel);
    Logging::Log::Logger().setLevel(Poco::Message::PRIO_WARNING);

    // Both zones of the car share one lock, as the objects of one tree do.
    Kivo::RecursiveRWLockPtr lock(new Kivo::Util::RecursiveRWLock);
    ClimateZone driver(lock);
    ClimateZone passenger(lock);
    std::cout << "zones share one lock: " << std::boolalpha
              << (driver.getLock().get() == passenger.getLock().get()) << "\n";

    ChangePrinter printer;
    driver.m_temperature.ValueChanged += Poco::delegate(&printer, &ChangePrinter::onTemperature);
    for (PropertyBase* property : driver.getProperties()) {
        property->Updated += Poco::delegate(&printer, &ChangePrinter::onUpdated);
    }

    std::cout << "initial: ";
    printJSON(driver);

    write("enabled = \"true\"", driver.m_enabled.setValueFromString("true"));
    write("enabled = \"yes\"", driver.m_enabled.setValueFromString("yes"));
    write("temperature = 23", driver.m_temperature.setValue(23));
    write("temperature = 35 (limit 28)", driver.m_temperature.setValue(35));
    write("temperature = \"19\"", driver.m_temperature.setValueFromString("19"));
    write("temperature = \"warm\"", driver.m_temperature.setValueFromString("warm"));
    write("fanSpeed = 46 (resolution 10)", driver.m_fanSpeed.setValue(46));
    write("serial = 1 (owner denies)", driver.m_serial.setValue(1));
    driver.getProperty("humidity");

    std::cout << "final: ";
    printJSON(driver);

    driver.m_temperature.ValueChanged -= Poco::delegate(&printer, &ChangePrinter::onTemperature);
    for (PropertyBase* property : driver.getProperties()) {
        property->Updated -= Poco::delegate(&printer, &ChangePrinter::onUpdated);
    }
    return 0;
}
