#include "Client/ChangeFeed.h"

#include <utility>

#include <Poco/Exception.h>

#include "Data/AbstractResource.h"
#include "Data/Service.h"
#include "FeedCore.h"
#include "Util/RecursiveRWLock.h"

namespace Kivo::Client {

ChangeFeed::Subscription::Subscription(std::shared_ptr<FeedCore> core, std::uint64_t id)
    : m_core(std::move(core)), m_id(id) {}

ChangeFeed::Subscription::Subscription(Subscription&& other) noexcept
    : m_core(std::move(other.m_core)), m_id(other.m_id) {
    other.m_core.reset();
}

ChangeFeed::Subscription& ChangeFeed::Subscription::operator=(Subscription&& other) noexcept {
    if (this != &other) {
        reset();
        m_core = std::move(other.m_core);
        m_id = other.m_id;
        other.m_core.reset();
    }
    return *this;
}

ChangeFeed::Subscription::~Subscription() { reset(); }

void ChangeFeed::Subscription::reset() {
    if (m_core == nullptr) return;
    m_core->unsubscribe(m_id);
    m_core.reset();
}

ChangeFeed::ChangeFeed(Data::Service& service, std::size_t historySize)
    : m_service(service), m_core(std::make_shared<FeedCore>(historySize)), m_thread("ChangeFeed") {
    {
        Util::ScopedRecursiveWriteLock lock(*service.getLock());
        if (service.getElementObserver() != nullptr) {
            throw Poco::ExistsException("the service has an element observer already");
        }
        service.setElementObserver(this);
    }
    m_thread.start(*m_core);
}

ChangeFeed::~ChangeFeed() {
    m_service.setElementObserver(nullptr);
    m_core->stop();
    m_thread.join();
}

ChangeFeed::Subscription ChangeFeed::subscribe(Callback callback, Filter filter, Revision since) {
    return Subscription(m_core, m_core->subscribe(std::move(callback), std::move(filter), since));
}

ChangeFeed::Revision ChangeFeed::currentRevision() const { return m_core->currentRevision(); }

ChangeFeed::Revision ChangeFeed::revisionOf(const Poco::UUID& id) const {
    return m_core->revisionOf(id);
}

Poco::JSON::Object::Ptr ChangeFeed::toJSONWithRevision(const Data::Element& element,
                                                       int depth) const {
    // Events are recorded under the write lock: none can come between the two reads.
    Util::ScopedRecursiveReadLock lock(*element.getLock());
    Poco::JSON::Object::Ptr json = element.toJSON(depth);
    json->set("revision", static_cast<Poco::UInt64>(revisionOf(element.getIdentification())));
    return json;
}

void ChangeFeed::elementAdded(const Data::AbstractResource& resource,
                              const Data::Element& element) {
    m_core->record(ChangeEvent::ADDED, resource.getName().getValue(), element.getIdentification(),
                   nullptr, element.toJSON(0));
}

void ChangeFeed::elementChanged(const Data::Element& element, const Data::KeyCollection& keys) {
    Poco::JSON::Object::Ptr values = new Poco::JSON::Object();
    for (const std::string& key : keys) {
        const Data::Base::PropertyBase* property = element.getProperty(key);
        values->set(key, property != nullptr ? property->toJSON(0) : Poco::Dynamic::Var());
    }
    m_core->record(ChangeEvent::CHANGED, element.getResource()->getName().getValue(),
                   element.getIdentification(), values, nullptr);
}

void ChangeFeed::elementRemoved(const Data::AbstractResource& resource,
                                const Data::Element& element) {
    m_core->record(ChangeEvent::REMOVED, resource.getName().getValue(), element.getIdentification(),
                   nullptr, nullptr);
}

}  // namespace Kivo::Client
