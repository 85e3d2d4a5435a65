#include "Data/XObjectReference.h"

#include <algorithm>
#include <climits>
#include <exception>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <optional>
#include <string_view>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include <Poco/Bugcheck.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/UUID.h>

#include "Data/ReferenceResolver.h"
#include "Logging/Log.h"

namespace Kivo::Data {

namespace {

const char* const UNIDENTIFIED_NAME = "unidentified element";
const char* const TYPE_NAME_SUFFIX = "Object";
// How often a reference's lock is tried before its waiter yields the processor.
constexpr unsigned SPINS_BEFORE_YIELD = 64;

const char* const FROM_URI_FAILED = "Failed to create XObject Reference from URI: ";
const char* const NO_JSON = "String representation of XObject reference is no valid JSON string";
const char* const PARSE_FAILED = "Failed to parse string representation for XObject refrence";

constexpr unsigned OWNER_SHIFT = 32;
constexpr std::uint64_t ONE_HOLD = 1;
constexpr std::uint64_t HOLDS = 0xffffffffu;  // the count's half of a lock's state

// The calling thread's number for reference locks: given on first use, never 0, and not given
// again while fewer than 2^32 threads have asked for one.
std::uint64_t threadNumber() {
    static std::atomic<std::uint32_t> last{0};
    // Constant-initialised, so that reading it needs no initialisation guard, and in the
    // initial-exec model, so that it is one load: every lock of a reference reads it.
    static thread_local std::uint64_t number __attribute__((tls_model("initial-exec"))) = 0;
    while (number == 0) number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return number;
}

// Splits `uri` into its three path segments where it is a path the URI library reads as it is
// (an absolute path of unreserved characters and slashes, not starting with "//", as
// PropertyValueUri keeps without parsing) and has three; false for anything else.
bool splitElementPath(const std::string& uri, std::string_view (&parts)[3]) {
    if (uri.size() < 2 || uri[0] != '/' || uri[1] == '/') return false;
    std::size_t count = 0;
    std::size_t begin = 0;
    for (std::size_t at = 0; at <= uri.size(); ++at) {
        const char c = at < uri.size() ? uri[at] : '/';
        if (c != '/') {
            const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                               (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                               c == '~';
            if (!plain) return false;
            continue;
        }
        // The URI library's split leaves out empty parts.
        if (at > begin) {
            if (count == 3) return false;
            parts[count++] = std::string_view(uri).substr(begin, at - begin);
        }
        begin = at + 1;
    }
    return count == 3;
}

// Runs `make`; an exception is logged at trace level after `failure` and gives an empty result.
template <typename Make>
auto createOrTrace(Make make, const char* failure) -> decltype(make()) {
    try {
        return make();
    } catch (const Poco::Exception& error) {
        QES_LOG_TRACE(failure << error.displayText());
    } catch (const std::exception& error) {
        QES_LOG_TRACE(failure << error.what());
    }
    return {};
}

// Runs `ask`, a question to a resolver; an exception is logged and answers false.
template <typename Ask>
bool askOrLog(Ask ask) {
    try {
        return ask();
    } catch (const std::exception& error) {
        QES_LOG_ERROR(
            "Caught Exception while trying to resolve XObject reference: " << error.what());
    } catch (...) {
        QES_LOG_ERROR("Caught Exception while trying to resolve XObject reference: "
                      << "unknown exception");
    }
    return false;
}

// False where the JSON parser is sure to refuse `text` for its first character: a slash, as an
// element URI's path begins, or a letter, as a scheme does, but for the "t", "f" and "n" of the
// literals. Refusing costs the parser an exception, and most texts of references are URIs.
bool mayBeJSON(const std::string& text) {
    if (text.empty()) return true;
    const char first = text[0];
    const bool letter = (first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z');
    return first != '/' && (!letter || first == 't' || first == 'f' || first == 'n');
}

// `value` as a reference, or null for a plain value. Indexes compare references with each other
// all the time: the exact type is checked before the general cast, which costs far more.
const XObjectReference* asReference(const Base::PropertyValue<XObject*>& value) {
    if (typeid(value) == typeid(XObjectReference)) {
        return static_cast<const XObjectReference*>(&value);
    }
    return dynamic_cast<const XObjectReference*>(&value);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// DummyObject

DummyObject::DummyObject(const XObject& source) : XObject(source) {}

DummyObject::DummyObject(const Type& type) : XObject(type) {}

DummyObject::DummyObject(const Type& type, const Poco::JSON::Object* json) : XObject(type, json) {}

std::vector<std::string> DummyObject::elementSegments(const Base::PropertyValueUri& uri) {
    const std::vector<std::string> segments = uri.getPathSegments();
    if (segments.size() != 3) {
        QES_LOG_ERROR(
            "Invalid XObject URI. Only Element URIs with 3 segments "
            "(service/resource/element-uuid) can be accepted");
        throw Poco::InvalidArgumentException("Invalid XObject URI");
    }
    return segments;
}

Base::Object::Type DummyObject::typeOf(const std::vector<std::string>& segments) {
    std::string typeName = segments[1];
    if (!typeName.empty() && typeName.back() == 's') typeName.pop_back();
    // Built under the resource's type so that the path is "/<service>/<resource>/", the key
    // under which a local resolver files that resource.
    return Type(typeName + TYPE_NAME_SUFFIX, Type(segments[1], Type(segments[0])));
}

std::unique_ptr<DummyObject> DummyObject::createFromJSON(
    const Poco::SharedPtr<Poco::JSON::Object>& json) {
    poco_check_ptr(json.get());
    const bool hasUri = json->has(KEY_URI) && !json->get(KEY_URI).isEmpty();
    const Type type = typeOf(
        elementSegments(Base::PropertyValueUri(hasUri ? memberText(json->get(KEY_URI)) : "")));
    return std::unique_ptr<DummyObject>(new DummyObject(type, json.get()));
}

std::unique_ptr<DummyObject> DummyObject::createFromUri(const std::string& uri) {
    // Read once, for the segments and as the placeholder's URI.
    const Base::PropertyValueUri value(uri);
    const std::vector<std::string> segments = elementSegments(value);
    const Poco::UUID id(segments[2]);
    if (id.isNull()) {
        // Refused by the id property: initialising from JSON logs and throws as documented.
        Poco::JSON::Object json;
        json.set(KEY_ID, id.toString());
        json.set(KEY_NAME, std::string(UNIDENTIFIED_NAME));
        json.set(KEY_URI, uri);
        return std::unique_ptr<DummyObject>(new DummyObject(typeOf(segments), &json));
    }
    // The writes initialising from {"id", "name", "uri"} makes, in its order and with its
    // events, of values that need no reading from text.
    std::unique_ptr<DummyObject> placeholder(new DummyObject(typeOf(segments)));
    placeholder->setId(Base::PropertyValueUuid(id));
    placeholder->setName(Base::PropertyValueString(UNIDENTIFIED_NAME));
    placeholder->setUri(value);
    return placeholder;
}

// ---------------------------------------------------------------------------------------------
// ElementLocation

ElementLocation::ElementLocation(const std::string& uri) : m_uri(&uri) {
    std::string_view parts[3];
    if (splitElementPath(uri, parts)) {
        locate(parts[0], parts[1], parts[2]);
        return;
    }
    // The steps of DummyObject::createFromUri up to its id, so that they throw and log alike.
    const std::vector<std::string> segments =
        DummyObject::elementSegments(Base::PropertyValueUri(uri));
    locate(segments[0], segments[1], segments[2]);
}

void ElementLocation::locate(std::string_view service, std::string_view resource,
                             std::string_view id) {
    // Poco::UUID::parse's answer and exception, read the quick way where the text allows.
    const std::string text(id);
    if (!Base::PropertyValueUuid::parseText(text, m_id)) throw Poco::SyntaxException(text);
    // DummyObject::typeOf's path, without building its type.
    m_typePath.reserve(service.size() + resource.size() + 3);
    m_typePath.append("/").append(service).append("/").append(resource).append("/");
}

ElementLocation::~ElementLocation() = default;

XObject* ElementLocation::placeholder() const {
    if (m_placeholder == nullptr) m_placeholder = DummyObject::createFromUri(*m_uri);
    return m_placeholder.get();
}

std::unique_ptr<XObject> ElementLocation::releasePlaceholder() {
    placeholder();
    return std::move(m_placeholder);
}

// ---------------------------------------------------------------------------------------------
// XObjectReference

// A resolver and an allowed set, shared by every reference set up with both: a property's
// settings are the same for every element that has the property. A record lives while
// references hold it and is never changed. Its count changes without the table's mutex except
// where it may reach zero, and a lookup adds to it only under that mutex, so no record is found
// once it is going.
class XObjectReference::Settings {
public:
    IReferenceResolver* const resolver;  // not owned
    const OneOf types;

    // The record of `resolver` and `types`, counted once more; null for no resolver and any type.
    static const Settings* share(IReferenceResolver* resolver, const OneOf& types) {
        if (resolver == nullptr && types.empty()) return nullptr;
        Table& table = Table::instance();
        std::lock_guard<std::mutex> lock(table.mutex);
        auto found = table.records.find(Probe{resolver, types});
        if (found == table.records.end()) {
            std::unique_ptr<Settings> record(new Settings(resolver, types));
            found = table.records.emplace(Key(resolver, types), record.get()).first;
            record.release();
        }
        found->second->m_count.fetch_add(1, std::memory_order_relaxed);
        return found->second;
    }

    // `record` (which may be null) counted once more. REQUIRES: the caller holds it already.
    static const Settings* hold(const Settings* record) {
        if (record != nullptr) record->m_count.fetch_add(1, std::memory_order_relaxed);
        return record;
    }

    // Counts `record` (which may be null) once less; the last one deletes it.
    static void drop(const Settings* record) {
        if (record == nullptr) return;
        std::size_t count = record->m_count.load(std::memory_order_relaxed);
        while (count > 1) {
            if (record->m_count.compare_exchange_weak(count, count - 1, std::memory_order_release,
                                                      std::memory_order_relaxed)) {
                return;
            }
        }
        Table& table = Table::instance();
        std::lock_guard<std::mutex> lock(table.mutex);
        if (record->m_count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        table.records.erase(table.records.find(Probe{record->resolver, record->types}));
        delete record;
    }

private:
    typedef std::pair<IReferenceResolver*, OneOf> Key;
    // A key to look up without copying its set.
    struct Probe {
        IReferenceResolver* first;
        const OneOf& second;
    };
    struct KeyLess {
        typedef void is_transparent;
        template <class Left, class Right>
        bool operator()(const Left& left, const Right& right) const {
            return std::tie(left.first, left.second) < std::tie(right.first, right.second);
        }
    };

    struct Table {
        std::mutex mutex;  // a leaf: nothing is locked under it
        std::map<Key, Settings*, KeyLess> records;  // owned

        // Never destroyed: references in static objects may drop their records while the
        // program ends.
        static Table& instance() {
            static Table* const table = new Table;
            return *table;
        }
    };

    Settings(IReferenceResolver* resolver, const OneOf& types) : resolver(resolver), types(types) {}

    mutable std::atomic<std::size_t> m_count{0};
};

void XObjectReference::ValueLock::lock() {
    const std::uint64_t self = threadNumber() << OWNER_SHIFT;
    // Only the holder stores its own number, so a relaxed read suffices to see that it holds.
    const std::uint64_t state = m_state.load(std::memory_order_relaxed);
    if ((state & ~HOLDS) == self) {
        m_state.store(state + ONE_HOLD, std::memory_order_relaxed);
        return;
    }
    for (unsigned spins = 0;; ++spins) {
        std::uint64_t none = 0;
        if (m_state.compare_exchange_weak(none, self | ONE_HOLD, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
            return;
        }
        if (spins >= SPINS_BEFORE_YIELD) std::this_thread::yield();
    }
}

void XObjectReference::ValueLock::unlock() {
    const std::uint64_t state = m_state.load(std::memory_order_relaxed);
    if ((state & HOLDS) == ONE_HOLD) {
        m_state.store(0, std::memory_order_release);
    } else {
        m_state.store(state - ONE_HOLD, std::memory_order_relaxed);
    }
}

// Holds the mutexes of two references (or of one, where the other side is a plain value or
// the same reference), always in address order so that two threads comparing or assigning
// the same pair in opposite directions cannot deadlock.
class XObjectReference::PairLock {
public:
    PairLock(const XObjectReference& self, const Base::PropertyValue<XObject*>& other)
        : m_first(&self.m_mutexValue), m_other(asReference(other)) {
        if (m_other != nullptr && m_other != &self) {
            m_second = &m_other->m_mutexValue;
            if (m_second < m_first) std::swap(m_first, m_second);
        }
        m_first->lock();
        if (m_second != nullptr) m_second->lock();
    }
    PairLock(const PairLock&) = delete;
    PairLock& operator=(const PairLock&) = delete;
    ~PairLock() {
        if (m_second != nullptr) m_second->unlock();
        m_first->unlock();
    }

    // The target `other` (the value the lock was made for) stands for: a reference's live
    // target, resolving its placeholder if need be, else the plain value.
    XObject* targetOf(const Base::PropertyValue<XObject*>& other) const {
        return m_other != nullptr ? m_other->getValuePriv() : other.getValue();
    }

private:
    ValueLock* m_first;
    ValueLock* m_second = nullptr;
    const XObjectReference* m_other;  // `other` as a reference, or null
};

XObjectReference::XObjectReference() : PropertyValueObjectReference<XObject>(nullptr) {}

XObjectReference::XObjectReference(IReferenceResolver* resolver, const OneOf& allowedTypes)
    : PropertyValueObjectReference<XObject>(nullptr),
      m_settings(Settings::share(resolver, allowedTypes)) {}

XObjectReference::XObjectReference(const XObjectReference& other)
    : PropertyValueObjectReference<XObject>(nullptr) {
    std::lock_guard<ValueLock> lock(other.m_mutexValue);
    copyFrom(other);
}

XObjectReference& XObjectReference::operator=(const XObjectReference& other) {
    if (&other == this) return *this;
    PairLock lock(*this, other);
    release();
    copyFrom(other);
    return *this;
}

XObjectReference::~XObjectReference() {
    try {
        std::lock_guard<ValueLock> lock(m_mutexValue);
        release();
        Settings::drop(m_settings);
    } catch (...) {
        poco_unexpected();
    }
}

IReferenceResolver* XObjectReference::resolver() const {
    return m_settings != nullptr ? m_settings->resolver : nullptr;
}

void XObjectReference::configure(IReferenceResolver* resolver, const OneOf& types) {
    const Settings* taken = Settings::share(resolver, types);
    Settings::drop(m_settings);
    m_settings = taken;
}

void XObjectReference::copyFrom(const XObjectReference& other) {
    const Settings* taken = Settings::hold(other.m_settings);
    Settings::drop(m_settings);
    m_settings = taken;
    if (other.m_valueDummy != nullptr) m_valueDummy = new DummyObject(*other.m_valueDummy);
    // The target is alive: `other` holds it and its mutex, so the target's destructor cannot
    // get past `other`'s handler meanwhile.
    m_value = other.m_value;
    if (m_value != nullptr) observe(*m_value);
}

void XObjectReference::release() {
    if (m_value != nullptr) forget(*m_value);
    m_value = nullptr;
    delete m_valueDummy;
    m_valueDummy = nullptr;
}

// The references watching one target, behind one hook at its Destroyed event: a hook per
// reference would make each new one walk the hooks of all the others. The groups are found by
// their target's address in a table whose mutex comes after the references' mutexes and before
// the events' locks; no reference mutex is taken under it.
class XObjectReference::Watchers final : public Util::EventHook<const XObject> {
public:
    static void join(XObjectReference& reference, XObject& target) {
        Table& table = Table::instance();
        std::lock_guard<std::mutex> lock(table.mutex);
        Watchers*& group = table.groups[&target];
        if (group == nullptr) {
            group = new Watchers;
            target.Destroyed.attach(*group);
        }
        group->m_members.push_back(&reference);
    }

    // Nothing when the reference is not listed: the target's end has taken the list already.
    static void leave(XObjectReference& reference, XObject& target) {
        Table& table = Table::instance();
        std::lock_guard<std::mutex> lock(table.mutex);
        const auto found = table.groups.find(&target);
        if (found == table.groups.end()) return;
        std::vector<XObjectReference*>& members = found->second->m_members;
        const auto member = std::find(members.begin(), members.end(), &reference);
        if (member == members.end()) return;
        *member = members.back();
        members.pop_back();
        if (members.empty()) {
            target.Destroyed.detach(*found->second);
            delete found->second;
            table.groups.erase(found);
        }
    }

    // The target's end: the group goes, then each member falls back, with no lock of the table
    // held, as a member takes its own mutex.
    void onEvent(const void* sender, const XObject& target) override {
        std::vector<XObjectReference*> members;
        {
            Table& table = Table::instance();
            std::lock_guard<std::mutex> lock(table.mutex);
            members.swap(m_members);
            table.groups.erase(&target);
            const_cast<XObject&>(target).Destroyed.detach(*this);
        }
        // The raise calls no hook it has called already, so the group may go now.
        delete this;
        for (XObjectReference* member : members) member->onReferenceDestroyed(sender, target);
    }

private:
    struct Table {
        std::mutex mutex;
        std::unordered_map<const XObject*, Watchers*> groups;  // owned

        // Never destroyed: references in static objects may leave while the program ends.
        static Table& instance() {
            static Table* const table = new Table;
            return *table;
        }
    };

    Watchers() = default;

    std::vector<XObjectReference*> m_members;  // guarded by the table's mutex
};

void XObjectReference::observe(XObject& target) const {
    // Watching changes no observable state of the reference: it only keeps m_value valid.
    Watchers::join(const_cast<XObjectReference&>(*this), target);
}

void XObjectReference::forget(XObject& target) const {
    Watchers::leave(const_cast<XObjectReference&>(*this), target);
}

const XObjectReference::value_type& XObjectReference::getValuePriv() const {
    if (m_value != nullptr || m_valueDummy == nullptr) return m_value;
    XObject* resolved = nullptr;
    if (resolveReference(m_valueDummy, resolved)) {
        // Resolution only caches what the placeholder stands for; the reference's value, as
        // readers see it, does not change.
        auto& self = const_cast<XObjectReference&>(*this);
        self.m_value = resolved;
        observe(*resolved);
        return m_value;
    }
    QES_LOG_TRACE("getValuePriv"
                  << " Could not resolve internal reference to an actual XObject. Going to use "
                     "placeholder value.");
    return m_valueDummy;
}

bool XObjectReference::resolveReference(XObject* const& placeholder, XObject*& result) const {
    IReferenceResolver* const asked = resolver();
    if (placeholder == nullptr || asked == nullptr) return false;
    return askOrLog([&] { return asked->resolve(placeholder, result); });
}

bool XObjectReference::resolveLocation(const ElementLocation& location, XObject*& result) const {
    IReferenceResolver* const asked = resolver();
    if (asked == nullptr) return false;
    return askOrLog([&] { return asked->resolveLocation(location, result); });
}

Poco::Dynamic::Var XObjectReference::getGenericValue() const { return toJSON(-1); }

Poco::Dynamic::Var XObjectReference::toJSON(int depth) const {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    const XObject* target = getValuePriv();
    if (target == nullptr) return std::string();
    return target->toJSON(depth == INT_MIN ? depth : depth - 1);
}

bool XObjectReference::isValidStringValue(const std::string& text) const {
    XObject* parsed = nullptr;
    if (!parseString(text, parsed)) return false;
    const std::unique_ptr<XObject> placeholder(parsed);
    return isValidValue(placeholder.get());
}

bool XObjectReference::matches(const Poco::RegularExpression& re) const {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    const XObject* target = getValuePriv();
    if (target == nullptr) return false;
    Kivo::RecursiveRWLockPtr targetLock = target->getLock();
    Util::ScopedRecursiveReadLock read(*targetLock);
    return target->getName().matches(re) || target->getId().matches(re) ||
           target->getUri().matches(re);
}

const XObjectReference::value_type& XObjectReference::getValue() const {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    const value_type& target = getValuePriv();
    if (target == nullptr) {
        throw Poco::NullPointerException("Invalid XObject Reference without any value");
    }
    return target;
}

bool XObjectReference::setValue(const value_type& target) {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    if (!isValidValue(target)) return false;
    if (dynamic_cast<const DummyObject*>(target) != nullptr) {
        // Copied before release(): `target` may be the placeholder held now.
        XObject* placeholder = new DummyObject(*target);
        release();
        m_valueDummy = placeholder;
    } else {
        release();
        m_value = target;
        observe(*target);
    }
    return true;
}

bool XObjectReference::setValueFromString(const std::string& text) {
    if (!mayBeJSON(text)) {
        // parseString's way for such a text, with its log lines, but the resolver is asked
        // before any placeholder is made: most references name an element that is there.
        QES_LOG_TRACE(NO_JSON);
        std::optional<ElementLocation> location = createOrTrace(
            [&text] { return std::optional<ElementLocation>(std::in_place, text); },
            FROM_URI_FAILED);
        if (!location.has_value()) {
            QES_LOG_WARNING(PARSE_FAILED);
            return false;
        }
        std::lock_guard<ValueLock> lock(m_mutexValue);
        return setValueFromLocation(*location);
    }
    XObject* parsed = nullptr;
    if (!parseString(text, parsed)) return false;
    const std::unique_ptr<XObject> placeholder(parsed);
    std::lock_guard<ValueLock> lock(m_mutexValue);
    XObject* resolved = nullptr;
    if (resolveReference(placeholder.get(), resolved)) return setValue(resolved);
    return setValue(placeholder.get());
}

bool XObjectReference::setValueFromLocation(ElementLocation& location) {
    XObject* resolved = nullptr;
    // A null id makes no placeholder, so it is never asked for.
    if (!location.id().isNull() && resolveLocation(location, resolved)) return setValue(resolved);
    const std::unique_ptr<XObject> placeholder =
        createOrTrace([&location] { return location.releasePlaceholder(); }, FROM_URI_FAILED);
    if (placeholder == nullptr) {
        QES_LOG_WARNING(PARSE_FAILED);
        return false;
    }
    return setValue(placeholder.get());
}

bool XObjectReference::isValidValue(const value_type& target) const {
    if (target == nullptr) return false;
    std::lock_guard<ValueLock> lock(m_mutexValue);
    return m_settings == nullptr || m_settings->types.empty() ||
           m_settings->types.count(target->getType().identifier) != 0;
}

bool XObjectReference::operator<(const Base::PropertyValue<XObject*>& other) const {
    PairLock lock(*this, other);
    const XObject* mine = getValuePriv();
    const XObject* theirs = lock.targetOf(other);
    if (mine == theirs) return false;
    if (theirs == nullptr) return true;
    if (mine == nullptr) return false;
    return *mine < *theirs;
}

bool XObjectReference::operator>(const Base::PropertyValue<XObject*>& other) const {
    PairLock lock(*this, other);
    const XObject* mine = getValuePriv();
    const XObject* theirs = lock.targetOf(other);
    if (theirs == nullptr || mine == theirs) return false;
    if (mine == nullptr) return true;
    return *mine > *theirs;
}

bool XObjectReference::operator==(const Base::PropertyValue<XObject*>& other) const {
    PairLock lock(*this, other);
    const XObject* mine = getValuePriv();
    const XObject* theirs = lock.targetOf(other);
    if (mine == theirs) return true;
    if (mine == nullptr || theirs == nullptr) return false;
    return *mine == *theirs;
}

bool XObjectReference::operator!=(const Base::PropertyValue<XObject*>& other) const {
    return !(*this == other);
}

bool XObjectReference::parseString(const std::string& text, value_type& out) const {
    out = nullptr;
    Poco::Dynamic::Var json;
    bool isJSON = mayBeJSON(text);
    try {
        if (isJSON) json = Poco::JSON::Parser().parse(text);
    } catch (const std::exception&) {
        isJSON = false;
    }
    std::unique_ptr<DummyObject> placeholder;
    if (!isJSON) {
        QES_LOG_TRACE(NO_JSON);
        placeholder = createOrTrace([&text] { return DummyObject::createFromUri(text); },
                                    FROM_URI_FAILED);
    } else if (json.type() == typeid(Poco::JSON::Object::Ptr)) {
        const Poco::JSON::Object::Ptr object = json.extract<Poco::JSON::Object::Ptr>();
        placeholder = createOrTrace([&object] { return DummyObject::createFromJSON(object); },
                                    "Failed to create XObject Reference from JSON: ");
    }
    if (placeholder == nullptr) {
        QES_LOG_WARNING(PARSE_FAILED);
        return false;
    }
    out = placeholder.release();
    return true;
}

void XObjectReference::setReferenceResolver(IReferenceResolver* resolver) {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    if (resolver == this->resolver()) return;
    configure(resolver, m_settings != nullptr ? m_settings->types : OneOf());
}

bool XObjectReference::isNull() const {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    return m_value == nullptr && m_valueDummy == nullptr;
}

bool XObjectReference::isResolvedReference() const {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    return m_value != nullptr;
}

void XObjectReference::addAllowedType(const std::string& identifier) {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    OneOf types = getAllowedTypesPriv();
    if (!types.insert(identifier).second) return;
    configure(resolver(), types);
}

XObjectReference::OneOf XObjectReference::getAllowedTypes() const {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    return getAllowedTypesPriv();
}

XObjectReference::OneOf XObjectReference::getAllowedTypesPriv() const {
    return m_settings != nullptr ? m_settings->types : OneOf();
}

void XObjectReference::setAllowedTypes(const OneOf& types) {
    std::lock_guard<ValueLock> lock(m_mutexValue);
    const XObject* target = getValuePriv();
    if (target != nullptr && types.count(target->getType().identifier) == 0) {
        throw Poco::BugcheckException(
            "New allowed type set would not allow current XObject reference");
    }
    configure(resolver(), types);
}

void XObjectReference::onReferenceDestroyed(const void*, const XObject& target) {
    // Read before m_mutexValue: it takes the target's lock, which comes first in the order.
    const Poco::UUID targetId = target.getIdentification();
    std::lock_guard<ValueLock> lock(m_mutexValue);
    if (m_value == nullptr) {
        poco_bugcheck_msg("invalid reference - received event but holds no resolved reference");
    }
    if (m_value != &target && m_value->getIdentification() != targetId) {
        poco_bugcheck_msg("invalid reference - received event from wrong xobject");
    }
    forget(*m_value);
    delete m_valueDummy;
    m_valueDummy = new DummyObject(target);
    m_value = nullptr;
}

// ---------------------------------------------------------------------------------------------
// PropertyXObjectReference

PropertyXObjectReference::PropertyXObjectReference(const Base::PropertyKey& key,
                                                   Base::Object* parent,
                                                   const XObjectReference& value)
    : Property<XObjectReference>(key, parent, value) {}

PropertyXObjectReference::PropertyXObjectReference(const PropertyXObjectReference& other,
                                                   Base::Object* parent)
    : Property<XObjectReference>(other, parent) {}

PropertyXObjectReference& PropertyXObjectReference::operator=(
    const PropertyXObjectReference& other) {
    Property<XObjectReference>::operator=(other);
    return *this;
}

}  // namespace Kivo::Data

namespace Kivo::Data::Base {

template class PropertyValue<XObject*>;
template class Property<XObjectReference>;
template class PropertyIndex<Property<XObjectReference>>;

}  // namespace Kivo::Data::Base
