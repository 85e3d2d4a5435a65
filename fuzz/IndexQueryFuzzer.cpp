// Query texts through IndexGenericValueQuery and IndexFreeTextQuery, and as a remote client's
// texts through Kivo::Client::ElementSearch, over the indexes of the example media service
// loaded with the shipped data (once), plus one element of the input's own (added for the input
// and removed after it).
//
// Whatever the texts: each query lists every object once, and only elements the resource
// holds; a generic query finds no object the free-text query over the same texts misses; and
// a single wildcard text finds exactly what the whole-text match of its expression finds in
// that index, shortcuts or not. A wildcard text whose expression does not compile throws
// Poco::RegularExpressionException out of the query, as documented.
//
// The core compiles a text into a regular expression as it stands, so a text with many "%"
// backtracks for as long as it likes: that is what client texts never reach. The core queries
// take only texts with at most MAX_CORE_WILDCARDS of them; the client search takes every text,
// and libFuzzer's time limit per input holds it to its bound. Its answers: each element once;
// case-insensitive finds at least what case-sensitive finds; and search, which matches values
// holding the text, finds everything find finds by a key with that text where the text has a
// wildcard (exact texts on numbers compare as numbers, which search does not).
//
// Input: a byte choosing the resource ('a' Albums, 't' Tracks, 'p' Playlists; any other byte
// picks one by its value), then line by line: the JSON object of an element to add for this
// input (Tracks and Playlists only; anything else adds none), the key of the generic query,
// and up to four query texts.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/RegularExpression.h>
#include <Poco/UUID.h>

#include "Client/ElementSearch.h"
#include "Data/AbstractResource.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "FuzzSupport.h"
#include "MediaData.h"
#include "MediaService.h"

namespace {

using Kivo::Client::Case;
using Kivo::Client::ElementSearch;
using Kivo::Data::AbstractResource;
using Kivo::Data::OperationResult;
using Kivo::Data::Base::IndexFreeTextQuery;
using Kivo::Data::Base::IndexGenericValueQuery;
using Kivo::Data::Base::Object;
using Kivo::Data::Base::PropertyIndexQuery;
using Kivo::Data::Base::PropertyIndexReferenceMap;
using Kivo::Data::Base::PropertyKey;
using Kivo::Fuzz::IndexInspection;
using Kivo::Fuzz::InputReader;

const std::size_t MAX_TEXTS = 4;
const std::size_t MAX_CORE_WILDCARDS = 2;

// Loaded once and never destroyed: every input queries the same tree.
Media::MediaService* service = nullptr;

std::size_t wildcards(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '%'));
}

bool hasWildcard(const std::set<std::string>& texts) {
    return std::any_of(texts.begin(), texts.end(),
                       [](const std::string& text) { return text.find('%') != std::string::npos; });
}

// The query's objects, or false where it threw the documented exception for a wildcard text.
bool run(const AbstractResource& resource, const PropertyIndexQuery& query,
         const std::set<std::string>& texts, std::vector<Object*>& found) {
    try {
        found = resource.find(query);
        return true;
    } catch (const Poco::RegularExpressionException&) {
        QES_FUZZ_CHECK(hasWildcard(texts), "a query without wildcard threw");
        return false;
    }
}

void checkListed(const AbstractResource& resource, const std::vector<Object*>& found) {
    QES_FUZZ_CHECK(std::set<Object*>(found.begin(), found.end()).size() == found.size(),
                   "a query listed an object twice");
    for (Object* object : found) {
        AbstractResource::Ptr element;
        resource.getElement(object->getIdentification(), element);
        QES_FUZZ_CHECK(element.get() == object, "a query found an element the resource lacks");
    }
}

// What the index of `key` matches with the expression of `text` as a whole, entry by entry;
// nothing where there is no such index.
std::vector<Object*> matchedByExpression(const AbstractResource& resource, const PropertyKey& key,
                                         const std::string& text) {
    std::vector<Object*> matched;
    resource.find(IndexInspection([&](const PropertyIndexReferenceMap& indexes) {
        const auto entry = indexes.find(key);
        if (entry == indexes.end()) return;
        const Poco::RegularExpression re(IndexGenericValueQuery().createRegEx(text), 0, true);
        matched = entry->second->find(re);
    }));
    return matched;
}

void checkQueries(const AbstractResource& resource, const PropertyKey& key,
                  const std::set<std::string>& texts) {
    IndexGenericValueQuery generic;
    generic.key = key;
    generic.values = texts;
    IndexFreeTextQuery freeText;
    freeText.values = texts;
    std::vector<Object*> byKey;
    std::vector<Object*> everywhere;
    const bool ranByKey = run(resource, generic, texts, byKey);
    const bool ranEverywhere = run(resource, freeText, texts, everywhere);
    if (ranByKey) checkListed(resource, byKey);
    if (ranEverywhere) checkListed(resource, everywhere);
    if (ranByKey && ranEverywhere) {
        for (Object* object : byKey) {
            QES_FUZZ_CHECK(
                std::find(everywhere.begin(), everywhere.end(), object) != everywhere.end(),
                "the free-text query misses an object the query by key finds");
        }
    }
    if (ranByKey && texts.size() == 1 && hasWildcard(texts)) {
        QES_FUZZ_CHECK(byKey == matchedByExpression(resource, key, *texts.begin()),
                       "a wildcard text finds other objects than its expression matches");
    }
}

typedef std::set<const Object*> Found;

// The elements of a client search's answer, each checked to be listed once and held by the
// resource; nothing where it was refused.
Found clientFound(const AbstractResource& resource, const OperationResult& result,
                  const AbstractResource::ElementQueryResult& elements) {
    Found found;
    if (!result.isSuccess()) return found;
    for (const AbstractResource::Ptr& element : elements) {
        QES_FUZZ_CHECK(found.insert(element.get()).second, "a client search listed an element twice");
        AbstractResource::Ptr held;
        resource.getElement(element->getIdentification(), held);
        QES_FUZZ_CHECK(held.get() == element.get(), "a client search found a stranger");
    }
    return found;
}

bool includes(const Found& wider, const Found& narrower) {
    return std::includes(wider.begin(), wider.end(), narrower.begin(), narrower.end());
}

void checkClientSearch(const AbstractResource& resource, const PropertyKey& key,
                       const std::string& text) {
    const ElementSearch search(resource);
    Found byKey[2];
    Found holding[2];
    for (const Case sensitivity : {Kivo::Client::CASE_SENSITIVE, Kivo::Client::CASE_INSENSITIVE}) {
        AbstractResource::ElementQueryResult elements;
        const OperationResult found = search.find({{key, text}}, elements, sensitivity);
        byKey[sensitivity] = clientFound(resource, found, elements);
        elements.clear();
        const OperationResult searched = search.search(text, elements, sensitivity);
        QES_FUZZ_CHECK(searched.isSuccess(), "the client search refused a text");
        holding[sensitivity] = clientFound(resource, searched, elements);
    }
    for (const Case sensitivity : {Kivo::Client::CASE_SENSITIVE, Kivo::Client::CASE_INSENSITIVE}) {
        if (wildcards(text) > 0) {
            QES_FUZZ_CHECK(includes(holding[sensitivity], byKey[sensitivity]),
                           "search misses an element that find by key finds");
        }
    }
    QES_FUZZ_CHECK(includes(byKey[Kivo::Client::CASE_INSENSITIVE],
                            byKey[Kivo::Client::CASE_SENSITIVE]),
                   "case-insensitive find misses an element");
    QES_FUZZ_CHECK(includes(holding[Kivo::Client::CASE_INSENSITIVE],
                            holding[Kivo::Client::CASE_SENSITIVE]),
                   "case-insensitive search misses an element");
}

// Adds the element described by `line` to `resource` (with a fixed id where it names none);
// its id where that succeeds.
bool addScratch(AbstractResource& resource, const std::string& line, Poco::UUID& id) {
    const Poco::Dynamic::Var json = Kivo::Fuzz::parseJson(line);
    if (json.type() != typeid(Poco::JSON::Object::Ptr)) return false;
    Poco::JSON::Object::Ptr element = json.extract<Poco::JSON::Object::Ptr>();
    if (!element->has("id")) element->set("id", "00000000-0000-4000-8000-000000000001");
    if (!resource.addElement(element.get()).isSuccess()) return false;
    // Accepted, so the member is a UUID's text.
    id = Poco::UUID(Kivo::Fuzz::memberText(element->get("id")));
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Kivo::Fuzz::silenceLog();
    service = new Media::MediaService;
    if (!Media::MediaData::read(QES_MEDIA_DATA_DIR).loadInto(*service)) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InputReader input(data, size);
    AbstractResource* resources[] = {&service->albums, &service->tracks, &service->playlists};
    const unsigned char choice = input.byte();
    AbstractResource& resource = *resources[choice == 'a'   ? 0
                                            : choice == 't' ? 1
                                            : choice == 'p' ? 2
                                                            : choice % 3];
    const std::string scratch = input.line();
    const PropertyKey key = input.line();
    std::set<std::string> texts;
    std::set<std::string> coreTexts;
    while (!input.atEnd() && texts.size() < MAX_TEXTS) {
        const std::string text = input.line();
        texts.insert(text);
        if (wildcards(text) <= MAX_CORE_WILDCARDS) coreTexts.insert(text);
    }

    const std::size_t held = resource.size();
    Poco::UUID added;
    const bool hasScratch = &resource != &service->albums && addScratch(resource, scratch, added);
    checkQueries(resource, key, coreTexts);
    for (const std::string& text : texts) checkClientSearch(resource, key, text);
    if (hasScratch) {
        QES_FUZZ_CHECK(resource.removeElement(added).isSuccess(), "the added element stays");
    }
    QES_FUZZ_CHECK(resource.size() == held, "the input changed what the resource holds");
    return 0;
}
