// How values look on the page: table cells, links to elements, hints for formats.
import * as api from "./api.js";
import {h} from "./dom.js";

/// "/<service>/<resource>/<uuid>", the URI of an element.
export const ELEMENT_URI = /^\/([^/]+)\/([^/]+)\/([0-9a-fA-F-]{36})$/;

/// The route of the element a URI like "/Media/Albums/<uuid>" names, or null for any other
/// text.
export function elementRoute(uri) {
    const match = typeof uri === "string" ? ELEMENT_URI.exec(uri) : null;
    return match ? `#/${match.slice(1).map(encodeURIComponent).join("/")}` : null;
}

/// The URI a reference value points at: the value is the URI text, or the target's stub
/// {"id", "name", "uri"}; "" when it points nowhere.
export function referenceUri(value) {
    if (typeof value === "string") return value;
    return value && typeof value === "object" && typeof value.uri === "string" ? value.uri : "";
}

/// "#/Media/Albums/<id>".
export function routeOf(...names) {
    return `#/${names.map(encodeURIComponent).join("/")}`;
}

/// "88cf598e…" for a UUID: enough to tell elements apart in a narrow column.
export function shortId(id) {
    return typeof id === "string" && id.length > 8 ? `${id.slice(0, 8)}…` : String(id);
}

// Names of the elements references point at, read once per element and kept up to date by
// the change feed: element URI -> Promise of its name ("" when it has none or is gone).
const names = new Map();

function nameOf(uri) {
    if (!names.has(uri)) {
        const [, service, resource, id] = ELEMENT_URI.exec(uri);
        names.set(uri, api.mayRead(service, resource) ?
            api.element(service, resource, id).then((element) => element.name || "", () => "") :
            Promise.resolve(""));
    }
    return names.get(uri);
}

/// Keeps the names shown for references right: a renamed element's new name, a removed
/// one's absence.
export function noteEvent(serviceName, event) {
    const uri = `/${serviceName}/${event.resource}/${event.id}`;
    if (!names.has(uri)) return;
    if (event.event === "removed") names.set(uri, Promise.resolve(""));
    if (event.event === "changed" && event.values && "name" in event.values) {
        names.set(uri, Promise.resolve(event.values.name || ""));
    }
}

/// Forgets every name read (after a resync).
export function forgetNames() {
    names.clear();
}

/// A link to the element a URI names, showing `label`, else the target's name once read
/// ("Albums 88cf598e…" until then); the text itself when it names no element.
export function uriLink(uri, label) {
    const route = elementRoute(uri);
    if (!route) return String(uri);
    const [, , resource, id] = ELEMENT_URI.exec(uri);
    const link = h("a", {href: route, class: "ref", title: uri}, label || `${resource} ${shortId(id)}`);
    if (!label) {
        nameOf(uri).then((name) => {
            if (name) link.textContent = name;
        });
    }
    return link;
}

/// The content of a table cell or detail line for `value` of a property of `kind`.
export function displayValue(value, kind) {
    if (value === undefined || value === null) return h("span", {class: "unset"}, "—");
    if (Array.isArray(value)) {
        if (value.length === 0) return h("span", {class: "unset"}, "none");
        const parts = [];
        value.forEach((item, index) => {
            if (index > 0) parts.push(", ");
            parts.push(elementRoute(item) ? uriLink(item) : String(item));
        });
        return parts;
    }
    if (kind === "reference" || kind === "uri") {
        const uri = referenceUri(value);
        return uri === "" ? h("span", {class: "unset"}, "—") : uriLink(uri, value && value.name);
    }
    if (typeof value === "object") return JSON.stringify(value);
    return String(value);
}

// Patterns of the text formats, written for the `pattern` attribute (which anchors them and
// reads them as Unicode-set expressions, so no identity escapes); formats whose check cannot
// be said that way get a hint only.
const FORMATS = {
    date: {pattern: "[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])", hint: "date, YYYY-MM-DD"},
    time: {pattern: "[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]{3})?(Z|(\\+|-)[0-9]{2}:[0-9]{2})", hint: "time, hh:mm:ss with Z or ±hh:mm"},
    "date-time": {
        pattern: "[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])T[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]{3})?(Z|(\\+|-)[0-9]{2}:[0-9]{2})",
        hint: "date and time, YYYY-MM-DDThh:mm:ssZ",
    },
    language: {pattern: "[a-z]{2}(-[a-z]+)?", hint: "language code, such as en or en-gb"},
    version: {pattern: "v?[0-9]+(\\.[0-9]+)?(\\.[0-9]+)?.*", hint: "version, such as 1.2.3"},
    point: {pattern: "[0-9]{6};[0-9]{6}", hint: "point, 000000;000000"},
    rectangle: {pattern: "[0-9]{6};[0-9]{6};[0-9]{6};[0-9]{6}", hint: "rectangle, four 6-digit numbers separated by ;"},
    "service-category": {pattern: null, hint: "service category, such as media or navigation"},
    custom: {pattern: null, hint: "text of the property's own form"},
};
const UUID_PATTERN = "[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}";

/// {pattern, hint} for a property description: the `pattern` attribute where one can be
/// given (null otherwise) and the words telling the user what is expected.
export function inputRules(property) {
    const hints = [];
    let pattern = null;
    if (property.kind === "string" && FORMATS[property.format]) {
        ({pattern} = FORMATS[property.format]);
        hints.push(FORMATS[property.format].hint);
    } else if (property.kind === "uuid") {
        pattern = UUID_PATTERN;
        hints.push("UUID");
    } else if (property.kind === "reference") {
        const targets = (property.targets || []).map((target) => target.split(".").slice(0, 2).join("/"));
        hints.push(`URI of an element${targets.length ? ` of ${targets.join(" or ")}` : ""}, /Service/Resource/<uuid>`);
    } else if (property.kind === "integer") {
        const hasMin = typeof property.minimum === "number";
        const hasMax = typeof property.maximum === "number";
        if (hasMin && hasMax) hints.push(`${property.minimum} to ${property.maximum}`);
        else if (hasMin) hints.push(`at least ${property.minimum}`);
        else if (hasMax) hints.push(`at most ${property.maximum}`);
        if (typeof property.resolution === "number" && property.resolution > 1) hints.push(`in steps of ${property.resolution}`);
    } else if (property.kind === "array") {
        hints.push("one item per line");
    } else if (property.kind === "value") {
        hints.push("text of the value");
    }
    return {pattern, hint: hints.join(", ")};
}
