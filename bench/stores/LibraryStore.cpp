#include <map>

#include <Poco/Delegate.h>
#include <Poco/JSON/Object.h>

#include "../DeliveryCounter.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/DataChangedDelivery.h"
#include "Data/ElementContainer.h"
#include "Data/Service.h"
#include "Store.h"

namespace Kivo::Bench {

namespace {

using namespace Kivo::Data;

// id, name and uri come with every element; a text category and an integer join them.
class Item : public Element {
public:
    explicit Item(AbstractResource& resource)
        : Element("Item", resource),
          category("category", this, Base::PropertyValueString("")),
          number("number", this, Base::PropertyValueNumberBase<long>()) {
        category.registerAtOwner();
        number.registerAtOwner();
    }
    bool isPostAllowed(const Base::PropertyKey&) const override { return true; }

    Base::PropertyString category;
    Base::PropertyInteger number;
};

class Items : public ElementContainer<Item> {
public:
    explicit Items(Service& service)
        : ElementContainer(service, "Items", "Items", Base::PropertyValueUuid()) {
        init();
    }
    ~Items() override { clear(); }
};

// Records as elements of one resource, added from JSON and written through setProperty, with
// one DataChanged subscriber on every element written.
class LibraryStore : public Store {
public:
    ~LibraryStore() override {
        settle();
        for (auto& observed : m_observed) {
            observed.second->DataChanged -=
                Poco::delegate(&m_counter, &DeliveryCounter::onDataChanged);
        }
    }

    void add(const Record& record) override {
        Poco::JSON::Object json;
        json.set("id", record.id);
        json.set("name", record.name);
        json.set("category", record.category);
        json.set("number", record.number);
        m_items.addElement(&json);
    }

    void remove(const Record& record) override { m_items.removeElement(Poco::UUID(record.id)); }

    void writeCategory(const Record& record, const std::string& category) override {
        AbstractResource::Ptr element;
        m_items.getElement(Poco::UUID(record.id), element);
        if (!element.isNull()) element->setProperty("category", category);
    }

    void observe(const Record& record) override {
        AbstractResource::Ptr element;
        m_items.getElement(Poco::UUID(record.id), element);
        if (!element.isNull() && m_observed.emplace(element.get(), element).second) {
            element->DataChanged += Poco::delegate(&m_counter, &DeliveryCounter::onDataChanged);
        }
    }

    std::size_t findName(const std::string& name) override {
        Base::IndexGenericValueQuery query;
        query.key = "name";
        query.values = {name};
        return find(query);
    }

    std::size_t findNamePrefix(const std::string& prefix) override {
        return findName(prefix + "%");
    }

    std::size_t findAnyValue(const std::string& text) override {
        Base::IndexFreeTextQuery query;
        query.values = {text};
        return find(query);
    }

    // A write of the value an element holds already raises nothing, so waiting for a count of
    // deliveries could wait for ever: wait for what was raised instead.
    void settle() override { DataChangedDelivery::drain(); }

private:
    std::size_t find(const Base::PropertyIndexQuery& query) {
        AbstractResource::ElementQueryResult result;
        m_items.findElements(query, result);
        return result.size();
    }

    Service m_service{"Bench", "benchmark service", 1, Base::PropertyValueUuid()};
    Items m_items{m_service};
    DeliveryCounter m_counter;
    std::map<const Element*, AbstractResource::Ptr> m_observed;
};

}  // namespace

std::unique_ptr<Store> makeLibraryStore() { return std::make_unique<LibraryStore>(); }

}  // namespace Kivo::Bench
