// Small DOM helpers: elements are built with h() and never from HTML text, so values from the
// server are always text, never markup.

/// h("a", {href: "#/x", class: "link"}, "text", child) -> an element with attributes and
/// children; attributes named on* take functions, `false`/null attributes are left out, and
/// child strings become text nodes.
export function h(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (value === false || value === null || value === undefined) continue;
        if (name.startsWith("on") && typeof value === "function") {
            element.addEventListener(name.slice(2), value);
        } else if (name === "dataset") {
            Object.assign(element.dataset, value);
        } else if (value === true) {
            element.setAttribute(name, "");
        } else {
            element.setAttribute(name, String(value));
        }
    }
    append(element, ...children);
    return element;
}

/// Appends `children` (elements, strings, nested lists; null and false left out) to `element`.
export function append(element, ...children) {
    for (const child of children.flat(Infinity)) {
        if (child === null || child === undefined || child === false) continue;
        element.append(child instanceof Node ? child : document.createTextNode(String(child)));
    }
}

/// Replaces every child of `element` with `children`.
export function replaceChildren(element, ...children) {
    element.replaceChildren();
    append(element, ...children);
}

/// A page-wide unique id for label/control pairs.
let nextId = 0;
export function uniqueId(prefix) {
    nextId += 1;
    return `${prefix}-${nextId}`;
}
