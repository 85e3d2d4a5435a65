#include "RegistrySession.h"

#include <chrono>
#include <ostream>
#include <sstream>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/String.h>
#include <Poco/StringTokenizer.h>
#include <Poco/URI.h>
#include <Poco/UUIDGenerator.h>

#include <Client/ElementSearch.h>
#include <Client/ResourceDescription.h>
#include <Util/RecursiveRWLock.h>

namespace Registry {

using Kivo::Client::ElementSearch;
using Kivo::Client::ElementWriter;
using Kivo::Data::AbstractResource;
using Kivo::Data::Element;
using Kivo::Data::OperationResult;
using Kivo::Data::XObject;
using Kivo::Data::XObjectReference;

const char* const RegistrySession::HELP =
    "Commands (one per line; words are separated by blanks, the last argument takes the rest\n"
    "of the line):\n"
    "  describe <resource>                what the elements of a resource carry\n"
    "  list <resource> [offset [count]]   elements of a resource in id order (default 0 10)\n"
    "  get <uri> [key ...]                an element; reference keys given are expanded\n"
    "  find [-i] <resource> <key>=<text>  elements whose value under <key> is <text>\n"
    "  search [-i] <resource> <text>      elements holding <text> in any searchable value\n"
    "  add <resource> <json>              add an element from its JSON object\n"
    "  set <uri> <key> <value>            write one property; <value> is read as JSON where it\n"
    "                                     is a JSON value (5, true, null, \"a b\", [\"x\"]), as\n"
    "                                     text otherwise\n"
    "  update <uri> <json>                apply a JSON update, all or nothing\n"
    "  remove <uri> <key>                 clear an optional property\n"
    "  delete <uri>                       remove an element\n"
    "  resolve <uri> <key>                the element a reference property points at\n"
    "  watch [<revision>]                 print every element event as it arrives: added,\n"
    "                                     changed, removed; with <revision>, first those\n"
    "                                     after it that the feed still keeps\n"
    "  help                               this text\n"
    "In <text>, \"%\" matches any run of characters and every other character itself; -i\n"
    "ignores the case of ASCII letters. Element URIs read /<service>/<resource>/<uuid>.\n"
    "Answers are JSON; writes and refused searches answer\n"
    "{\"result\": <result string>, \"message\": <reason>}.\n";

namespace {

const auto CHANGE_TIMEOUT = std::chrono::seconds(5);

std::vector<std::string> split(const std::string& line, std::size_t limit) {
    std::vector<std::string> words;
    std::size_t position = line.find_first_not_of(" \t");
    while (position != std::string::npos) {
        if (words.size() + 1 == limit) {
            words.push_back(Poco::trimRight(line.substr(position)));
            break;
        }
        const std::size_t end = line.find_first_of(" \t", position);
        words.push_back(line.substr(position, end - position));
        position = line.find_first_not_of(" \t", end);
    }
    return words;
}

// How many words each command splits its line into: its last argument takes the rest.
std::size_t wordLimit(const std::string& command) {
    if (command == "set") return 4;
    if (command == "update" || command == "add") return 3;
    return 0;
}

// A search's words: the command, "-i" where given, and then its last argument with the rest of
// the line.
std::vector<std::string> searchWords(const std::string& line) {
    const std::vector<std::string> head = split(line, 3);
    return head.size() > 1 && head[1] == "-i" ? split(line, 4) : head;
}

Poco::JSON::Object::Ptr resultJSON(const OperationResult& result) {
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
    json->set("result", OperationResult::valueToString(result.value()));
    json->set("message", result.toString());
    return json;
}

Poco::JSON::Object::Ptr parseObject(const std::string& text) {
    try {
        const Poco::Dynamic::Var parsed = Poco::JSON::Parser().parse(text);
        if (parsed.type() == typeid(Poco::JSON::Object::Ptr)) {
            return parsed.extract<Poco::JSON::Object::Ptr>();
        }
    } catch (const Poco::Exception&) {
    }
    return Poco::JSON::Object::Ptr();
}

// The value of `text` as JSON where it is one, else the text itself. The parser reads only
// objects and arrays at the top, so the text is read as an array's one item.
Poco::Dynamic::Var parseValue(const std::string& text) {
    try {
        const Poco::JSON::Array::Ptr items =
            Poco::JSON::Parser().parse("[" + text + "]").extract<Poco::JSON::Array::Ptr>();
        if (items->size() == 1) return items->get(0);
    } catch (const Poco::Exception&) {
    }
    return text;
}

Poco::JSON::Array::Ptr compactForms(const AbstractResource::ElementQueryResult& elements) {
    Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
    for (const auto& element : elements) array->add(element->toJSON(-1));
    return array;
}

Kivo::Client::Case caseOf(bool anyCase) {
    return anyCase ? Kivo::Client::CASE_INSENSITIVE : Kivo::Client::CASE_SENSITIVE;
}

bool parseCount(const std::string& text, int& value) {
    std::istringstream in(text);
    return (in >> value) && in.eof();
}

bool parseRevision(const std::string& text, Kivo::Client::ChangeEvent::Revision& revision) {
    std::istringstream in(text);
    return text.find_first_not_of("0123456789") == std::string::npos && (in >> revision) &&
           in.eof();
}

}  // namespace

RegistrySession::RegistrySession(Media::MediaService& service, std::ostream& out,
                                 std::ostream& err, bool pretty)
    : m_service(service), m_out(out), m_err(err), m_pretty(pretty), m_feed(service) {}

bool RegistrySession::execute(const std::string& line) {
    const std::string trimmed = Poco::trim(line);
    if (trimmed.empty() || trimmed[0] == '#') return true;
    const std::string command = split(trimmed, 2).front();
    const Words words = command == "find" || command == "search"
                            ? searchWords(trimmed)
                            : split(trimmed, wordLimit(command));
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_commandRunning = true;
    }
    bool good = false;
    try {
        if (command == "describe") good = describe(words);
        else if (command == "list") good = list(words);
        else if (command == "get") good = get(words);
        else if (command == "find") good = find(words);
        else if (command == "search") good = search(words);
        else if (command == "add") good = add(words);
        else if (command == "set") good = set(words);
        else if (command == "update") good = update(words);
        else if (command == "remove") good = remove(words);
        else if (command == "delete") good = erase(words);
        else if (command == "resolve") good = resolve(words);
        else if (command == "watch") good = watch(words);
        else if (command == "help") {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_out << HELP;
            good = true;
        } else {
            good = fail("unknown command '" + command + "' (try 'help')");
        }
    } catch (const Poco::Exception& error) {
        good = fail(command + ": " + error.displayText());
    } catch (const std::exception& error) {
        good = fail(command + ": " + error.what());
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& change : m_heldChanges) write(change);
    m_heldChanges.clear();
    m_commandRunning = false;
    return good;
}

bool RegistrySession::describe(const Words& words) {
    if (words.size() != 2) return fail("usage: describe <resource>");
    AbstractResource* resource = resourceNamed(words[1]);
    if (resource == nullptr) return false;
    print(Kivo::Client::ResourceDescription::of(*resource));
    return true;
}

bool RegistrySession::list(const Words& words) {
    int offset = 0;
    int count = 10;
    if (words.size() < 2 || words.size() > 4 ||
        (words.size() > 2 && !parseCount(words[2], offset)) ||
        (words.size() > 3 && !parseCount(words[3], count))) {
        return fail("usage: list <resource> [offset [count]]");
    }
    AbstractResource* resource = resourceNamed(words[1]);
    if (resource == nullptr) return false;
    AbstractResource::ElementQueryResult page;
    const OperationResult result = resource->getElements(page, offset, count);
    if (!result.isSuccess()) {
        print(resultJSON(result));
        return true;
    }
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
    json->set("resource", resource->getName().getValue());
    json->set("size", resource->size());
    json->set("offset", offset);
    json->set("elements", compactForms(page));
    print(json);
    return true;
}

bool RegistrySession::get(const Words& words) {
    if (words.size() < 2) return fail("usage: get <uri> [key ...]");
    AbstractResource::Ptr element = elementAt(words[1]);
    if (element.isNull()) return false;
    print(element->toJSON(Words(words.begin() + 2, words.end())));
    return true;
}

bool RegistrySession::find(const Words& words) {
    const bool anyCase = words.size() > 1 && words[1] == "-i";
    const std::string& criterion = words.back();
    const std::size_t equals = criterion.find('=');
    if (words.size() != (anyCase ? 4u : 3u) || equals == std::string::npos || equals == 0) {
        return fail("usage: find [-i] <resource> <key>=<text>");
    }
    AbstractResource* resource = resourceNamed(words[words.size() - 2]);
    if (resource == nullptr) return false;
    AbstractResource::ElementQueryResult found;
    const OperationResult result = ElementSearch(*resource).find(
        {{criterion.substr(0, equals), criterion.substr(equals + 1)}}, found, caseOf(anyCase));
    printFound(result, found);
    return true;
}

bool RegistrySession::search(const Words& words) {
    const bool anyCase = words.size() > 1 && words[1] == "-i";
    if (words.size() != (anyCase ? 4u : 3u)) return fail("usage: search [-i] <resource> <text>");
    AbstractResource* resource = resourceNamed(words[words.size() - 2]);
    if (resource == nullptr) return false;
    AbstractResource::ElementQueryResult found;
    const OperationResult result =
        ElementSearch(*resource).search(words.back(), found, caseOf(anyCase));
    printFound(result, found);
    return true;
}

bool RegistrySession::add(const Words& words) {
    if (words.size() != 3) return fail("usage: add <resource> <json>");
    AbstractResource* resource = resourceNamed(words[1]);
    if (resource == nullptr) return false;
    const Poco::JSON::Object::Ptr json = parseObject(words[2]);
    if (json.isNull()) return fail("add: malformed JSON object: " + words[2]);
    Poco::UUID id;
    applyChange([&] { return ElementWriter(*resource).add(*json, &id); }, &id);
    return true;
}

bool RegistrySession::set(const Words& words) {
    if (words.size() != 4) return fail("usage: set <uri> <key> <value>");
    AbstractResource::Ptr element = elementAt(words[1]);
    if (element.isNull()) return false;
    applyChange([&] { return writerOf(*element).set(element->getIdentification(), words[2],
                                                    parseValue(words[3])); });
    return true;
}

bool RegistrySession::update(const Words& words) {
    if (words.size() != 3) return fail("usage: update <uri> <json>");
    AbstractResource::Ptr element = elementAt(words[1]);
    if (element.isNull()) return false;
    const Poco::JSON::Object::Ptr json = parseObject(words[2]);
    if (json.isNull()) return fail("update: malformed JSON object: " + words[2]);
    applyChange([&] { return writerOf(*element).update(element->getIdentification(), *json); });
    return true;
}

bool RegistrySession::remove(const Words& words) {
    if (words.size() != 3) return fail("usage: remove <uri> <key>");
    AbstractResource::Ptr element = elementAt(words[1]);
    if (element.isNull()) return false;
    applyChange([&] {
        return writerOf(*element).set(element->getIdentification(), words[2], Poco::Dynamic::Var());
    });
    return true;
}

bool RegistrySession::erase(const Words& words) {
    if (words.size() != 2) return fail("usage: delete <uri>");
    AbstractResource::Ptr element = elementAt(words[1]);
    if (element.isNull()) return false;
    applyChange([&] { return writerOf(*element).remove(element->getIdentification()); });
    return true;
}

bool RegistrySession::resolve(const Words& words) {
    if (words.size() != 3) return fail("usage: resolve <uri> <key>");
    AbstractResource::Ptr element = elementAt(words[1]);
    if (element.isNull()) return false;
    // The tree's read lock keeps the target alive while it is read.
    Kivo::Util::ScopedRecursiveReadLock lock(*element->getLock());
    const auto* reference = dynamic_cast<const Kivo::Data::PropertyXObjectReference*>(
        element->getProperty(words[2]));
    if (reference == nullptr) {
        return fail("resolve: " + words[2] + " is no reference property of " + words[1]);
    }
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
    if (reference->isNull()) {
        json->set("resolved", false);
    } else {
        XObject* target = reference->getValue();
        json->set("resolved", reference->isResolvedReference());
        json->set("target", target->toJSON(0));
    }
    print(json);
    return true;
}

bool RegistrySession::watch(const Words& words) {
    Kivo::Client::ChangeEvent::Revision since = Kivo::Client::ChangeFeed::FROM_NOW;
    if (words.size() > 2 || (words.size() == 2 && !parseRevision(words[1], since))) {
        return fail("usage: watch [<revision>]");
    }
    // Ending a subscription waits for its running delivery, which takes m_mutex.
    m_subscription.reset();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_watching = true;
        m_lastPrinted = since == Kivo::Client::ChangeFeed::FROM_NOW ? m_feed.currentRevision()
                                                                     : since;
    }
    const Kivo::Client::ChangeEvent::Revision now = m_feed.currentRevision();
    m_subscription = m_feed.subscribe(
        [this](const Kivo::Client::ChangeEvent& event) { onChangeEvent(event); },
        Kivo::Client::ChangeFeed::Filter(), since);
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
    json->set("watching", true);
    json->set("revision", now);
    // The events asked for that were recorded already follow the answer, before the next one.
    std::unique_lock<std::mutex> lock(m_mutex);
    write(json);
    m_printed.wait_for(lock, CHANGE_TIMEOUT, [&] { return m_lastPrinted >= now; });
    return true;
}

AbstractResource* RegistrySession::resourceNamed(const std::string& name) {
    AbstractResource* resource = m_service.getResource(name);
    if (resource == nullptr) fail("unknown resource '" + name + "'");
    return resource;
}

AbstractResource::Ptr RegistrySession::elementAt(const std::string& uri) {
    std::vector<std::string> segments;
    try {
        Poco::URI(uri).getPathSegments(segments);
    } catch (const Poco::SyntaxException&) {
    }
    Poco::UUID id;
    AbstractResource* resource = nullptr;
    if (segments.size() == 3 && segments[0] == m_service.getName().getValue() &&
        id.tryParse(segments[2])) {
        resource = m_service.getResource(segments[1]);
    }
    AbstractResource::Ptr element;
    if (resource == nullptr || !resource->getElement(id, element).isSuccess()) {
        fail("unknown URI '" + uri + "'");
        return AbstractResource::Ptr();
    }
    return element;
}

ElementWriter RegistrySession::writerOf(Element& element) {
    return ElementWriter(*element.getResource());
}

void RegistrySession::printFound(const OperationResult& result,
                                 const AbstractResource::ElementQueryResult& found) {
    print(result.isSuccess() ? Poco::Dynamic::Var(compactForms(found))
                             : Poco::Dynamic::Var(resultJSON(result)));
}

void RegistrySession::applyChange(const std::function<OperationResult()>& change,
                                  const Poco::UUID* created) {
    const OperationResult result = change();
    // The change's events are recorded before it returns.
    const Kivo::Client::ChangeEvent::Revision recorded = m_feed.currentRevision();
    Poco::JSON::Object::Ptr answer = resultJSON(result);
    if (created != nullptr && result.isSuccess()) answer->set("id", created->toString());
    std::unique_lock<std::mutex> lock(m_mutex);
    write(answer);
    if (m_watching) {
        m_printed.wait_for(lock, CHANGE_TIMEOUT, [&] { return m_lastPrinted >= recorded; });
    }
}

void RegistrySession::print(const Poco::Dynamic::Var& json) {
    std::lock_guard<std::mutex> lock(m_mutex);
    write(json);
}

void RegistrySession::write(const Poco::Dynamic::Var& json) {
    Poco::JSON::Stringifier::stringify(json, m_out, m_pretty ? 2 : 0);
    m_out << std::endl;
}

bool RegistrySession::fail(const std::string& message) {
    m_err << "error: " << message << std::endl;
    return false;
}

void RegistrySession::onChangeEvent(const Kivo::Client::ChangeEvent& event) {
    const Poco::JSON::Object::Ptr json = event.toJSON();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_commandRunning) {
        m_heldChanges.push_back(json);
    } else {
        write(json);
    }
    m_lastPrinted = event.revision();
    m_printed.notify_all();
}

}  // namespace Registry
