// Random client writes against the example media service, valid and invalid mixed. A refused
// write leaves everything as it was: the element's JSON, what the indexes answer, and the change
// events (none arrives). An accepted write changes exactly the keys it names, to the values
// asked for, moves the element in the indexes, and is reported by one change event naming the
// keys the contract says changed.
//
// Values are made from each resource's description of its elements (kind, limits, enum values,
// writable), so the writes follow the element classes as they change. QES_REFUSAL_SEED and
// QES_REFUSAL_OPERATIONS select other or longer runs.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <Poco/Delegate.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementFixture.h"
#include "MediaData.h"
#include "TestChannel.h"

namespace Media {
namespace {

using Kivo::Data::AbstractResource;
using Kivo::Data::KeyCollection;
using Kivo::Data::OperationResult;
using Kivo::Data::Base::PropertyIndexQuery;
using Kivo::Test::ScopedLogCapture;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

constexpr unsigned DEFAULT_SEED = 20240611;
constexpr unsigned DEFAULT_OPERATIONS = 3000;
constexpr std::chrono::seconds DELIVERY_TIMEOUT(10);
const std::vector<std::string> WORDS = {"amber", "blue",  "cedar", "dune",
                                        "ember", "frost", "grove", "harbour"};
const std::string UNKNOWN_KEY = "colour";

unsigned fromEnvironment(const char* name, unsigned fallback) {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? static_cast<unsigned>(std::stoul(text)) : fallback;
}

Array::Ptr array(const std::vector<std::string>& items) {
    Array::Ptr result = new Array;
    for (const std::string& item : items) result->add(item);
    return result;
}

std::string compact(const Var& value) { return Kivo::Test::jsonText(value); }

// What the library reads from a JSON member: a string as it is, anything else converted.
std::string memberText(const Var& value) {
    return value.isString() ? value.extract<std::string>() : value.convert<std::string>();
}

// The text an index finds a value by: the string itself, anything else as compact JSON.
std::string queryText(const Var& value) {
    return value.isString() ? value.extract<std::string>() : compact(value);
}

// One change event: resource name, element id, keys.
typedef std::tuple<std::string, std::string, KeyCollection> Change;

// Every ElementChanged of the service, in arrival order.
class ChangeLog : public Kivo::Test::Collector<Change> {
public:
    explicit ChangeLog(MediaService& service) : m_service(service) {
        m_service.ElementChanged += Poco::delegate(this, &ChangeLog::onChanged);
    }
    ~ChangeLog() { m_service.ElementChanged -= Poco::delegate(this, &ChangeLog::onChanged); }

    void onChanged(const void*, const ElementChange& change) {
        add({change.resource, change.payload.getSourceElementId().toString(),
             change.payload.getSourcePropertyKeys()});
    }
    std::vector<Change> since(std::size_t first) const {
        const std::vector<Change> all = values();
        return std::vector<Change>(all.begin() + static_cast<long>(std::min(first, all.size())),
                                   all.end());
    }

private:
    MediaService& m_service;
};

// An element to write to, with its resource's description of its properties.
struct Subject {
    AbstractResource* resource;
    AbstractResource::Ptr element;
    Object::Ptr properties;  // key -> {"kind", "writable", "optional", limits...}
    std::vector<std::string> keys;
    std::vector<std::string> writable;
};

// One key of an operation: the member sent, whether the element must accept it, and the key's
// JSON after an accepted write (empty: the key is absent).
struct Part {
    std::string key;
    Var member;
    bool valid;
    Var expected;
};

enum class Kind { SET, REMOVE, UPDATE };

struct Operation {
    Kind kind;
    std::vector<Part> parts;
};

// Draws operations for a subject from its property descriptions; references point at the
// service's albums (valid) or tracks (of the wrong type).
class Generator {
public:
    Generator(unsigned seed, const MediaService& service) : m_random(seed) {
        AbstractResource::ElementQueryResult all;
        service.albums.getElements(all, 0, static_cast<int>(service.albums.size()));
        for (const auto& album : all) m_albums.push_back(album->toJSON(-1));
        service.tracks.getElements(all, 0, static_cast<int>(service.tracks.size()));
        for (const auto& track : all) m_trackUris.push_back(track->getUri().getValue().toString());
    }

    Operation next(const Subject& subject) {
        const unsigned roll = below(10);
        if (roll < 4) return {Kind::SET, {part(subject, anyKey(subject), below(5) < 3)}};
        if (roll < 6) return {Kind::REMOVE, {removal(subject, anyKey(subject))}};
        Operation update{Kind::UPDATE, {}};
        for (unsigned n = 1 + below(4); n > 0; --n) {
            const std::string key = anyKey(subject);
            const auto same = [&key](const Part& p) { return p.key == key; };
            if (std::none_of(update.parts.begin(), update.parts.end(), same)) {
                update.parts.push_back(part(subject, key, below(5) != 0));
            }
        }
        return update;
    }

private:
    unsigned below(std::size_t n) {
        return std::uniform_int_distribution<unsigned>(0, static_cast<unsigned>(n) - 1)(m_random);
    }
    template <class T>
    const T& pick(const std::vector<T>& items) {
        return items[below(items.size())];
    }
    Var pick(const Array& items) { return items.get(below(items.size())); }

    // Mostly a writable key, so that enough writes can succeed.
    std::string anyKey(const Subject& subject) {
        if (below(12) == 0) return UNKNOWN_KEY;
        return below(3) == 0 ? pick(subject.keys) : pick(subject.writable);
    }
    std::string words() {
        std::string text = pick(WORDS);
        for (unsigned n = below(3); n > 0; --n) text += " " + pick(WORDS);
        return text;
    }

    Part part(const Subject& subject, const std::string& key, bool wantValid) {
        if (!subject.properties->has(key)) return {key, words(), false, {}};
        const Object& property = *subject.properties->getObject(key);
        Part result{key, {}, property.getValue<bool>("writable"), {}};
        if (result.valid && !wantValid && invalidValue(property, result.member)) {
            result.valid = false;
        } else if (result.valid || below(2) == 0 || !invalidValue(property, result.member)) {
            // A key that is not writable refuses a valid value all the same.
            validValue(property, result.member, result.expected);
        }
        return result;
    }
    Part removal(const Subject& subject, const std::string& key) {
        if (!subject.properties->has(key)) return {key, {}, false, {}};
        const Object& property = *subject.properties->getObject(key);
        if (property.getValue<bool>("optional")) return {key, {}, true, {}};
        const bool clearable = property.getValue<std::string>("kind") == "array";
        return {key, {}, clearable, clearable ? Var(array({})) : Var()};
    }

    // A member the property accepts, and the key's JSON after it is written: drawn from the
    // limits and values the description gives, else its default.
    void validValue(const Object& property, Var& member, Var& expected) {
        const std::string kind = property.getValue<std::string>("kind");
        if (kind == "integer") {
            const long low = property.getValue<long>("minimum");
            const long count = property.getValue<long>("maximum") - low + 1;
            member = expected = low + static_cast<long>(below(static_cast<std::size_t>(count)));
        } else if (kind == "enum") {
            member = expected = pick(*property.getArray("values"));
        } else if (kind == "array") {
            std::vector<std::string> items(below(4));
            for (std::string& item : items) item = pick(WORDS);
            member = array(items);
            std::sort(items.begin(), items.end());
            expected = array(items);
        } else if (kind == "reference") {
            reference(member, expected);
        } else if (kind == "string" && property.getValue<std::string>("format") == "text") {
            member = expected = words();
        } else {
            member = expected = property.get("default");
        }
    }
    // An album by its URI, or now and then one the service does not hold: the reference keeps
    // a placeholder for it.
    void reference(Var& member, Var& expected) {
        Object::Ptr target = pick(m_albums);
        if (below(8) == 0) {
            char text[40];
            std::snprintf(text, sizeof text, "%08x-0000-4000-8000-%012x",
                          static_cast<unsigned>(m_random()), static_cast<unsigned>(m_random()));
            const std::string id = text;
            target = new Object;
            target->set("id", id);
            target->set("name", "unidentified element");
            target->set("uri", "/" + MediaService::NAME + "/Albums/" + id);
        }
        member = target->getValue<std::string>("uri");
        expected = target;
    }
    // A member of the wrong type or out of the property's limits; false for kinds that take
    // any text.
    bool invalidValue(const Object& property, Var& member) {
        const std::string kind = property.getValue<std::string>("kind");
        Array::Ptr withNull = array({pick(WORDS)});
        withNull->add(Var());
        std::vector<Var> choices;
        if (kind == "integer") {
            choices = {property.getValue<long>("minimum") - 1,
                       property.getValue<long>("maximum") + 1, "many", true, array({"1"})};
        } else if (kind == "enum") {
            choices = {"polka", 3};
        } else if (kind == "array") {
            choices = {withNull, pick(WORDS), 4, Object::Ptr(new Object)};
        } else if (kind == "reference") {
            choices = {pick(m_trackUris), "/" + MediaService::NAME + "/Albums/x-1", "elsewhere",
                       "/" + MediaService::NAME + "/Albums", array({"1"})};
        }
        if (choices.empty()) return false;
        member = pick(choices);
        return true;
    }

    std::mt19937 m_random;
    std::vector<Object::Ptr> m_albums;  // compact JSON forms
    std::vector<std::string> m_trackUris;
};

Object::Ptr bodyOf(const Operation& operation) {
    Object::Ptr body = new Object;
    for (const Part& part : operation.parts) body->set(part.key, part.member);
    return body;
}

OperationResult run(Subject& subject, const Operation& operation) {
    const Part& first = operation.parts.front();
    if (operation.kind == Kind::SET) {
        return subject.element->setProperty(first.key, memberText(first.member));
    }
    if (operation.kind == Kind::REMOVE) return subject.element->removeProperty(first.key);
    return subject.resource->updateElementFromJSON(subject.element->getIdentification(),
                                                   bodyOf(operation).get());
}

std::string describe(unsigned index, const Subject& subject, const Operation& operation) {
    static const char* const VERBS[] = {" set ", " remove ", " update "};
    return "#" + std::to_string(index) + VERBS[static_cast<int>(operation.kind)] +
           subject.element->getUri().getValue().toString() + " " + compact(bodyOf(operation));
}

// The element's JSON after an accepted `operation`.
Object::Ptr applied(const Object& before, const Operation& operation) {
    Object::Ptr after = new Object(before);
    for (const Part& part : operation.parts) {
        if (part.expected.isEmpty()) {
            after->remove(part.key);
        } else {
            after->set(part.key, part.expected);
        }
    }
    return after;
}

// The keys the change event of an accepted `operation` names: for an update every key whose
// text differs from the current value's, otherwise the key if its value changed.
KeyCollection reportedKeys(const Object& before, const Operation& operation) {
    KeyCollection keys;
    for (const Part& part : operation.parts) {
        const bool had = before.has(part.key);
        const bool differs =
            operation.kind == Kind::UPDATE
                ? !had || memberText(part.member) != memberText(before.get(part.key))
                : had != !part.expected.isEmpty() ||
                      (had && compact(part.expected) != compact(before.get(part.key)));
        if (differs) keys.insert(part.key);
    }
    return keys;
}

// An index question: a key and a text, or free text over every index (empty key).
typedef std::pair<std::string, std::string> Probe;

// Exact probes for every key by its value before and after, free-text probes for the keys the
// operation names.
std::vector<Probe> probesFor(const Object& before, const Object& after, const Operation& op) {
    std::set<Probe> probes;
    for (const Object* json : {&before, &after}) {
        for (const std::string& key : json->getNames()) {
            const std::string text = queryText(json->get(key));
            probes.emplace(key, text);
            const auto named = [&key](const Part& part) { return part.key == key; };
            if (std::any_of(op.parts.begin(), op.parts.end(), named)) probes.emplace("", text);
        }
    }
    return std::vector<Probe>(probes.begin(), probes.end());
}

bool answers(const Object& json, const Probe& probe) {
    const std::vector<std::string> keys = json.getNames();
    return std::any_of(keys.begin(), keys.end(), [&](const std::string& key) {
        return (probe.first.empty() || probe.first == key) &&
               queryText(json.get(key)) == probe.second;
    });
}

typedef std::vector<std::vector<std::string>> Answers;  // element ids, per probe

Answers ask(const AbstractResource& resource, const std::vector<Probe>& probes) {
    Answers result;
    for (const Probe& probe : probes) {
        Kivo::Data::Base::IndexFreeTextQuery freeText;
        Kivo::Data::Base::IndexGenericValueQuery exact;
        freeText.values = exact.values = {probe.second};
        exact.key = probe.first;
        const PropertyIndexQuery& query =
            probe.first.empty() ? freeText : static_cast<const PropertyIndexQuery&>(exact);
        AbstractResource::ElementQueryResult found;
        EXPECT_TRUE(resource.findElements(query, found).isSuccess());
        result.emplace_back();
        for (const auto& e : found) result.back().push_back(e->getIdentification().toString());
    }
    return result;
}

std::set<std::string> without(const std::vector<std::string>& ids, const std::string& id) {
    std::set<std::string> others(ids.begin(), ids.end());
    others.erase(id);
    return others;
}
// Every answer finds the element exactly when its JSON holds the probed text, and answers the
// same as before for every other element.
void expectIndexesFollow(const std::vector<Probe>& probes, const Answers& before,
                         const Answers& after, const Object& json, const std::string& id) {
    for (std::size_t i = 0; i < probes.size(); ++i) {
        SCOPED_TRACE("key '" + probes[i].first + "' text " + probes[i].second);
        const bool found = std::count(after[i].begin(), after[i].end(), id) != 0;
        EXPECT_EQ(answers(json, probes[i]), found);
        EXPECT_EQ(without(before[i], id), without(after[i], id)) << "other elements";
    }
}

std::vector<Subject> subjectsOf(MediaService& service) {
    std::vector<Subject> subjects;
    for (AbstractResource* resource :
         std::vector<AbstractResource*>{&service.albums, &service.tracks, &service.playlists}) {
        AbstractResource::ElementQueryResult elements;
        resource->getElements(elements, 0, static_cast<int>(resource->size()));
        const Object::Ptr properties = resource->getSpecificationAsJSON()->getObject("properties");
        Subject subject{resource, {}, properties, properties->getNames(), {}};
        for (const std::string& key : subject.keys) {
            if (subject.properties->getObject(key)->getValue<bool>("writable")) {
                subject.writable.push_back(key);
            }
        }
        for (const auto& element : elements) {
            subject.element = element;
            subjects.push_back(subject);
        }
    }
    return subjects;
}

TEST(RefusalLeavesData, RandomWritesChangeExactlyWhatTheyNameOrNothing) {
    const unsigned seed = fromEnvironment("QES_REFUSAL_SEED", DEFAULT_SEED);
    const unsigned operations = fromEnvironment("QES_REFUSAL_OPERATIONS", DEFAULT_OPERATIONS);
    SCOPED_TRACE("seed " + std::to_string(seed) + " (QES_REFUSAL_SEED repeats the run)");
    ScopedLogCapture quiet(Poco::Message::PRIO_CRITICAL);
    MediaService service;
    ASSERT_TRUE(generateMediaData(6, 8, 4, seed).loadInto(service));
    ChangeLog log(service);
    std::vector<Subject> subjects = subjectsOf(service);
    Generator generator(seed, service);
    std::mt19937 chooser(seed);
    std::vector<Change> reported;
    unsigned accepted = 0;
    for (unsigned i = 0; i < operations && !::testing::Test::HasFailure(); ++i) {
        Subject& subject = subjects[chooser() % subjects.size()];
        const Operation operation = generator.next(subject);
        SCOPED_TRACE(describe(i, subject, operation));
        const bool valid = std::all_of(operation.parts.begin(), operation.parts.end(),
                                       [](const Part& part) { return part.valid; });
        const std::string id = subject.element->getIdentification().toString();
        const Object::Ptr before = subject.element->toJSON(0);
        const Object::Ptr expected = valid ? applied(*before, operation) : before;
        const KeyCollection keys = valid ? reportedKeys(*before, operation) : KeyCollection();
        const std::vector<Probe> probes = probesFor(*before, *expected, operation);
        const auto answersBefore = ask(*subject.resource, probes);

        const OperationResult result = run(subject, operation);
        ASSERT_EQ(valid, result.isSuccess()) << result.toString();
        const auto answersAfter = ask(*subject.resource, probes);
        EXPECT_EQ(compact(expected), compact(subject.element->toJSON(0)));
        if (valid) {
            ++accepted;
            const bool noUpdate = operation.kind == Kind::UPDATE && keys.empty();
            EXPECT_EQ(noUpdate ? OperationResult::NO_UPDATE : OperationResult::OK, result.value());
        } else {
            EXPECT_EQ(answersBefore, answersAfter);
        }
        expectIndexesFollow(probes, answersBefore, answersAfter, *expected, id);
        const std::size_t seen = reported.size();
        if (!keys.empty()) {
            reported.push_back({subject.resource->getName().getValue(), id, keys});
            EXPECT_TRUE(log.waitFor(reported.size(), DELIVERY_TIMEOUT));
        }
        EXPECT_EQ(std::vector<Change>(reported.begin() + static_cast<long>(seen), reported.end()),
                  log.since(seen));
    }
    // A late event of a refused write would come after the last expected one.
    EXPECT_FALSE(log.waitFor(reported.size() + 1, std::chrono::milliseconds(200)));
    EXPECT_EQ(reported, log.since(0));
    EXPECT_GT(accepted, operations / 4) << "too few accepted writes to mean anything";
    EXPECT_LT(accepted, operations * 3 / 4) << "too few refused writes to mean anything";
    EXPECT_TRUE(quiet.texts().empty()) << quiet.texts().front();
}

}  // namespace
}  // namespace Media
