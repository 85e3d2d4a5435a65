// Element JSON: initElementFromJSON (through ElementContainer::addElement), updateByJSON
// (through updateElementFromJSON), setProperty and removeProperty on an element with one
// property of each value kind and optional properties of several kinds; and the same JSON as a
// remote client's request through Kivo::Client::ElementWriter.
//
// Whatever the JSON: a refused element leaves nothing behind, a refused update changes
// nothing, and afterwards every index of the resource files the element exactly under the
// properties it has now (no stale entry, none missing where the key is indexed). A request the
// writer refuses explains itself; one it accepts (without null members, which only the writer
// reads) the core accepts too, with the same result and the same element afterwards: the
// writer is stricter than the core, never different.
//
// Input: a byte choosing the operation, then the JSON text.
//   i  add an element made from the object
//   u  update a filled element with the object
//   p  setProperty for each member, in the object's order
//   r  removeProperty for each member name, then setProperty for each non-null member
//   a  the object as a client's new element (ElementWriter::add)
//   w  the object as a client's update of a filled element (ElementWriter::update)
// Any other first byte picks one of these by its value. Text that is no JSON object is
// ignored: the parser's refusals are not the library's.

#include <cstddef>
#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/UUID.h>

#include "Client/ElementWriter.h"
#include "Data/AbstractResource.h"
#include "Data/Base/Property.h"
#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/Element.h"
#include "Data/ElementContainer.h"
#include "Data/OptionalProperty.h"
#include "Data/Service.h"
#include "Data/XObjectReference.h"
#include "FuzzSupport.h"

namespace {

using Kivo::Client::ElementWriter;
using Kivo::Data::AbstractResource;
using Kivo::Data::Element;
using Kivo::Data::ElementContainer;
using Kivo::Data::OperationResult;
using Kivo::Data::OptionalProperty;
using Kivo::Data::PropertyXObjectReference;
using Kivo::Data::Service;
using Kivo::Data::Base::IndexGenericValueQuery;
using Kivo::Data::Base::Object;
using Kivo::Data::Base::Property;
using Kivo::Data::Base::PropertyBase;
using Kivo::Data::Base::PropertyIndexReferenceMap;
using Kivo::Data::Base::PropertyKey;
using Kivo::Data::Base::PropertyValueArray;
using Kivo::Data::Base::PropertyValueBoolean;
using Kivo::Data::Base::PropertyValueCustomString;
using Kivo::Data::Base::PropertyValueEnum;
using Kivo::Data::Base::PropertyValueFormatedString;
using Kivo::Data::Base::PropertyValueNumberBase;
using Kivo::Data::Base::PropertyValueString;
using Kivo::Data::Base::PropertyValueUri;
using Kivo::Data::Base::PropertyValueUuid;
using Kivo::Fuzz::IndexInspection;
using Kivo::Fuzz::InputReader;

typedef PropertyValueNumberBase<long> Number;
typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_DATE> Date;
typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY> Category;
typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION> Version;
typedef PropertyValueArray<PropertyValueString> Texts;

PropertyValueString formatted(const std::string& text, PropertyValueString::FormatType format) {
    return PropertyValueString(text, format);
}

// One property of each value kind, and optional ones of several kinds. Clients may write
// every key but "id", "uri" and "stamp".
class KindsElement : public Element {
public:
    explicit KindsElement(AbstractResource& resource)
        : Element("KindsObject", resource),
          flag("flag", this, PropertyValueBoolean(false)),
          count("count", this, Number(0, -1000L, 1000L, 5L)),
          text("text", this, PropertyValueString("")),
          date("date", this, formatted("2020-01-01", PropertyValueString::STRING_FORMAT_DATE)),
          time("time", this, formatted("12:00:00Z", PropertyValueString::STRING_FORMAT_TIME)),
          dateTime("dateTime", this,
                   formatted("2020-01-01T12:00:00Z", PropertyValueString::STRING_FORMAT_DATETIME)),
          language("language", this, formatted("en", PropertyValueString::STRING_FORMAT_LANGUAGE)),
          category("category", this,
                   formatted("media", PropertyValueString::STRING_FORMAT_SERVICECATEGORY)),
          version("version", this, formatted("1.0", PropertyValueString::STRING_FORMAT_VERSION)),
          point("point", this, formatted("000001;000002", PropertyValueString::STRING_POINT_2D)),
          rectangle(
              "rectangle", this,
              formatted("000001;000002;000003;000004", PropertyValueString::STRING_RECTANGLE_2D)),
          code("code", this,
               PropertyValueCustomString(PropertyValueString::UNDEFINED_VALUE, "[A-Z]{2}[0-9]*")),
          genre("genre", this, PropertyValueEnum({"rock", "pop", "jazz"})),
          link("link", this, PropertyValueUri("http://example.com/a")),
          token("token", this,
                PropertyValueUuid(Poco::UUID("6f1c2a9e-3b7d-4c5e-8f90-a1b2c3d4e5f6"))),
          tags("tags", this, Texts(PropertyValueString(""))),
          categories("categories", this, PropertyValueArray<Category>(Category())),
          versions("versions", this, PropertyValueArray<Version>(Version())),
          owner("owner", this),
          stamp("stamp", this, Date("2020-01-01")),
          note("note", *this),
          level("level", *this, Number(1, 1L, 5L, {})),
          due("due", *this, Date("2020-01-01")),
          alias("alias", *this, PropertyValueUri("http://example.com/alias")),
          labels("labels", *this, Texts(PropertyValueString(""))),
          mood("mood", *this, PropertyValueEnum({"calm", "wild"})) {
        // References resolve through the service, so "owner" may point at any element of it.
        owner.setReferenceResolver(resource.getService());
        for (PropertyBase* property : std::vector<PropertyBase*>{
                 &flag,     &count,   &text,       &date,      &time,  &dateTime, &language,
                 &category, &version, &point,      &rectangle, &code,  &genre,    &link,
                 &token,    &tags,    &categories, &versions,  &owner, &stamp}) {
            property->registerAtOwner();
        }
    }

    bool isPostAllowed(const PropertyKey& key) const override {
        return key != KEY_ID && key != KEY_URI && key != "stamp";
    }

    Property<PropertyValueBoolean> flag;
    Property<Number> count;
    Property<PropertyValueString> text;
    Property<PropertyValueString> date;
    Property<PropertyValueString> time;
    Property<PropertyValueString> dateTime;
    Property<PropertyValueString> language;
    Property<PropertyValueString> category;
    Property<PropertyValueString> version;
    Property<PropertyValueString> point;
    Property<PropertyValueString> rectangle;
    Property<PropertyValueCustomString> code;
    Property<PropertyValueEnum> genre;
    Property<PropertyValueUri> link;
    Property<PropertyValueUuid> token;
    Kivo::Data::Base::PropertyStringArray tags;
    Kivo::Data::Base::PropertyServiceCategoryArray categories;
    Kivo::Data::Base::PropertyVersionArray versions;
    PropertyXObjectReference owner;
    Property<Date> stamp;
    OptionalProperty<PropertyValueString> note;
    OptionalProperty<Number> level;
    OptionalProperty<Date> due;
    OptionalProperty<PropertyValueUri> alias;
    OptionalProperty<Texts> labels;
    OptionalProperty<PropertyValueEnum> mood;
};

class KindsResource : public ElementContainer<KindsElement> {
public:
    explicit KindsResource(Service& service)
        : ElementContainer(service, "Kinds", "Kinds",
                           PropertyValueUuid(Poco::UUID("0d6e4b1a-9c2f-4e3d-8a7b-5f6e7d8c9b0a"))) {
        init();
    }
    ~KindsResource() override { clear(); }
};

// One service with the resource, fresh for every input.
struct Tree {
    Service service{"Fuzz", "fuzzing", 8080,
                    PropertyValueUuid(Poco::UUID("3a4b5c6d-7e8f-4a0b-9c1d-2e3f4a5b6c7d"))};
    KindsResource resource{service};
};

// A filled element: every plain property set, "owner" pointing at the element itself.
const char* const FILLED =
    R"({"id": "9b8a7c6d-5e4f-4a3b-8c2d-1e0f9a8b7c6d", "name": "filled", "flag": true,
        "count": 25, "text": "some text", "date": "2021-02-03", "time": "10:11:12.345+01:00",
        "dateTime": "2021-02-03T10:11:12Z", "language": "de-at", "category": "navigation",
        "version": "v2.1", "point": "123456;654321", "code": "AB12", "genre": "jazz",
        "link": "http://example.com/b?q=1", "token": "1f2e3d4c-5b6a-4978-8a9b-0c1d2e3f4a5b",
        "tags": ["b", "a", "b"], "categories": ["media", "map"], "versions": ["1.0", "2"],
        "owner": "/Fuzz/Kinds/9b8a7c6d-5e4f-4a3b-8c2d-1e0f9a8b7c6d", "stamp": "2019-12-31",
        "note": "a note", "level": 3})";

std::string text(const Poco::JSON::Object::Ptr& json) {
    std::ostringstream out;
    json->stringify(out);
    return out.str();
}

AbstractResource::Ptr addFilled(KindsResource& resource) {
    const Poco::JSON::Object::Ptr json =
        Poco::JSON::Parser().parse(FILLED).extract<Poco::JSON::Object::Ptr>();
    QES_FUZZ_CHECK(resource.addElement(json.get()).isSuccess(), "the filled element is refused");
    AbstractResource::Ptr element;
    resource.getElement(Poco::UUID("9b8a7c6d-5e4f-4a3b-8c2d-1e0f9a8b7c6d"), element);
    QES_FUZZ_CHECK(!element.isNull(), "the filled element is not held");
    return element;
}

// Whether the property's text reads back as an equal value, as an exact search for it needs.
// A URI need not: the URI library prints "http://h#x" as "http://h/#x", another path.
bool readsBackEqual(const PropertyBase& property) {
    const auto* uri = dynamic_cast<const Property<PropertyValueUri>*>(&property);
    if (uri == nullptr) return true;
    PropertyValueUri again(uri->getPropertyValue());
    return again.setValueFromString(uri->getPropertyValue().toString()) &&
           again == uri->getPropertyValue();
}

// Every indexed key of the resource files the element exactly under the property it has now
// (none, where it has none), and an exact search for the property's own text finds it. A key
// only an optional property has may have no index yet: a first value set outside an update
// is filed only where the resource keeps an index for its key.
void checkIndexed(KindsResource& resource, Element& element) {
    std::vector<PropertyBase*> properties;
    for (const PropertyKey& key : element.getPropertyKeys()) {
        properties.push_back(element.getProperty(key));
    }
    std::set<PropertyKey> indexed;
    resource.find(IndexInspection([&](const PropertyIndexReferenceMap& indexes) {
        for (const auto& entry : indexes) {
            indexed.insert(entry.first);
            PropertyBase* filed = entry.second->find(&element);
            PropertyBase* present = nullptr;
            for (PropertyBase* property : properties) {
                if (property->getKey() == entry.first) present = property;
            }
            QES_FUZZ_CHECK(filed == present,
                           "the index of " + entry.first + " does not file the element's property");
        }
    }));
    for (PropertyBase* property : properties) {
        const std::string value = property->getPropertyValueBase().toString();
        // A text with "%" is a pattern, and one the value itself refuses finds nothing.
        if (indexed.count(property->getKey()) == 0 || value.find('%') != std::string::npos ||
            !property->getPropertyValueBase().isValidStringValue(value) ||
            !readsBackEqual(*property)) {
            continue;
        }
        IndexGenericValueQuery query;
        query.key = property->getKey();
        query.values.insert(value);
        AbstractResource::ElementQueryResult found;
        resource.findElements(query, found);
        bool listed = false;
        for (const AbstractResource::Ptr& candidate : found) listed |= candidate.get() == &element;
        QES_FUZZ_CHECK(listed, "an exact search for " + query.key + " = " + value +
                                   " does not find the element");
    }
}

void checkNothingFiled(KindsResource& resource) {
    resource.find(IndexInspection([](const PropertyIndexReferenceMap& indexes) {
        for (const auto& entry : indexes) {
            QES_FUZZ_CHECK(entry.second->get().empty(), "a refused element left an index entry");
        }
    }));
}

bool hasNullMember(const Poco::JSON::Object& json) {
    for (const std::string& name : json.getNames()) {
        if (json.get(name).isEmpty()) return true;
    }
    return false;
}

void add(KindsResource& resource, const Poco::JSON::Object& json) {
    if (!resource.addElement(&json).isSuccess()) {
        QES_FUZZ_CHECK(resource.size() == 0, "a refused element was kept");
        checkNothingFiled(resource);
        return;
    }
    AbstractResource::ElementQueryResult all;
    resource.getElements(all, 0, 1);
    QES_FUZZ_CHECK(all.size() == 1, "an added element is not listed");
    checkIndexed(resource, *all.front());
}

void update(KindsResource& resource, const Poco::JSON::Object& json) {
    AbstractResource::Ptr element = addFilled(resource);
    const std::string before = text(element->toJSON(0));
    OperationResult result(OperationResult::OK);
    try {
        result = resource.updateElementFromJSON(element->getIdentification(), &json);
    } catch (const Poco::InvalidAccessException&) {
        // The documented answer to a null member, which has no text.
        QES_FUZZ_CHECK(hasNullMember(json), "an update without null member threw");
    }
    if (!result.isSuccess()) {
        QES_FUZZ_CHECK(text(element->toJSON(0)) == before, "a refused update changed the element");
    }
    checkIndexed(resource, *element);
}

void setEach(KindsResource& resource, const Poco::JSON::Object& json, bool removeFirst) {
    AbstractResource::Ptr element = addFilled(resource);
    if (removeFirst) {
        for (const std::string& name : json.getNames()) element->removeProperty(name);
    }
    for (const std::string& name : json.getNames()) {
        const Poco::Dynamic::Var member = json.get(name);
        if (member.isEmpty()) continue;
        const std::string before = text(element->toJSON(0));
        if (!element->setProperty(name, Kivo::Fuzz::memberText(member)).isSuccess()) {
            QES_FUZZ_CHECK(text(element->toJSON(0)) == before,
                           "a refused write changed the element");
        }
    }
    checkIndexed(resource, *element);
}

// The JSON of the resource's one element, or "" where it holds none.
std::string onlyElement(KindsResource& resource) {
    AbstractResource::ElementQueryResult all;
    resource.getElements(all, 0, 1);
    return all.empty() ? std::string() : text(all.front()->toJSON(0));
}

void checkExplained(const OperationResult& result) {
    QES_FUZZ_CHECK(result.isSuccess() ||
                       result.toString() != OperationResult::valueToString(result.value()),
                   "the writer refused without a reason");
}

void writerAdd(KindsResource& resource, const Poco::JSON::Object& json) {
    Poco::UUID id;
    const OperationResult result = ElementWriter(resource).add(json, &id);
    checkExplained(result);
    if (!result.isSuccess()) {
        QES_FUZZ_CHECK(resource.size() == 0, "a refused client element was kept");
        checkNothingFiled(resource);
        return;
    }
    AbstractResource::Ptr added;
    QES_FUZZ_CHECK(resource.getElement(id, added).isSuccess(), "the writer tells another id");
    checkIndexed(resource, *added);
    if (hasNullMember(json)) return;
    // The core draws an id of its own for an element that names none.
    Poco::JSON::Object withId(json);
    if (!withId.has("id")) withId.set("id", id.toString());
    Tree core;
    QES_FUZZ_CHECK(core.resource.addElement(&withId).value() == result.value(),
                   "the core refuses an element the writer accepts");
    QES_FUZZ_CHECK(onlyElement(core.resource) == onlyElement(resource),
                   "the writer and the core add different elements");
}

void writerUpdate(KindsResource& resource, const Poco::JSON::Object& json) {
    AbstractResource::Ptr element = addFilled(resource);
    const std::string before = text(element->toJSON(0));
    const OperationResult result = ElementWriter(resource).update(element->getIdentification(),
                                                                  json);
    checkExplained(result);
    checkIndexed(resource, *element);
    if (!result.isSuccess()) {
        QES_FUZZ_CHECK(text(element->toJSON(0)) == before,
                       "a refused client update changed the element");
        return;
    }
    if (hasNullMember(json)) return;
    Tree core;
    AbstractResource::Ptr twin = addFilled(core.resource);
    QES_FUZZ_CHECK(core.resource.updateElementFromJSON(twin->getIdentification(), &json).value() ==
                       result.value(),
                   "the core answers an update the writer accepts otherwise");
    QES_FUZZ_CHECK(text(twin->toJSON(0)) == text(element->toJSON(0)),
                   "the writer and the core update differently");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Kivo::Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const char OPERATIONS[] = "iupraw";
    InputReader input(data, size);
    const char operation = input.choice(OPERATIONS);
    const Poco::Dynamic::Var parsed = Kivo::Fuzz::parseJson(input.rest());
    if (parsed.type() != typeid(Poco::JSON::Object::Ptr)) return 0;
    const Poco::JSON::Object::Ptr json = parsed.extract<Poco::JSON::Object::Ptr>();
    Tree tree;
    switch (operation) {
        case 'i':
            add(tree.resource, *json);
            break;
        case 'u':
            update(tree.resource, *json);
            break;
        case 'a':
            writerAdd(tree.resource, *json);
            break;
        case 'w':
            writerUpdate(tree.resource, *json);
            break;
        default:
            setEach(tree.resource, *json, operation == 'r');
            break;
    }
    return 0;
}
