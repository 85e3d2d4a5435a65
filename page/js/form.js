// Form fields built from a resource's description: one control per property, of the kind the
// property takes, with its limits and format, its state (read-only, optional) and a place for
// the server's answer about it.
import * as api from "./api.js";
import {h, uniqueId} from "./dom.js";
import {inputRules, referenceUri} from "./format.js";

/// Keys in the order a form shows them: the name first, id and uri last, the rest by name.
export function orderedKeys(description) {
    const keys = Object.keys(description.properties || {});
    const rank = (key) => (key === "name" ? 0 : key === "id" ? 2 : key === "uri" ? 3 : 1);
    return keys.sort((a, b) => rank(a) - rank(b) || a.localeCompare(b));
}

const same = (a, b) => JSON.stringify(a) === JSON.stringify(b);

/// One property in a form. `base` is the value the server holds (undefined: an optional
/// property that is not set); the control holds what the user typed.
export class Field {
    /// `enabled`: whether the user may change the value; `removable`: whether an optional
    /// value may be removed (sent as null).
    constructor(key, property, {enabled, removable, required}) {
        this.key = key;
        this.property = property;
        this.kind = property.kind;
        this.base = undefined;
        this.removed = false;
        const id = uniqueId(`field-${key}`);
        const hintId = `${id}-hint`;
        const statusId = `${id}-status`;
        const rules = inputRules(property);
        this.control = this.makeControl(id, rules, enabled);
        this.control.setAttribute("aria-describedby", `${hintId} ${statusId}`);
        this.control.dataset.key = key;
        this.status = h("span", {id: statusId, class: "field-status", "data-key": key, role: "status"});
        const tags = [];
        if (!enabled) tags.push("read-only");
        if (required) tags.push("required");
        if (property.optional) tags.push("optional");
        this.removeButton = null;
        if (removable && property.optional && enabled) {
            this.removeButton = h("button", {
                type: "button", class: "remove", "aria-pressed": "false", "aria-label": `Remove ${key}`,
                onclick: () => this.toggleRemoved(),
            }, "Remove");
        }
        this.target = h("span", {class: "ref-target"});
        this.row = h("div", {class: `field kind-${this.kind}${enabled ? "" : " read-only"}`, "data-key": key},
            h("label", {for: id}, key, tags.length ? h("span", {class: "tags"}, ` (${tags.join(", ")})`) : null),
            h("div", {class: "control-line"}, this.control, this.removeButton),
            h("span", {id: hintId, class: "hint"}, rules.hint),
            this.target,
            this.status);
        if (required && enabled) this.control.setAttribute("aria-required", "true");
    }

    makeControl(id, rules, enabled) {
        const p = this.property;
        const common = {id, name: this.key, disabled: !enabled};
        switch (this.kind) {
        case "boolean":
            return h("input", {...common, type: "checkbox"});
        case "integer":
            return h("input", {
                ...common, type: "number", inputmode: "numeric",
                min: typeof p.minimum === "number" ? p.minimum : null,
                max: typeof p.maximum === "number" ? p.maximum : null,
                step: typeof p.resolution === "number" && p.resolution > 0 ? p.resolution : 1,
            });
        case "enum":
            return h("select", common, (p.values || []).map((word) => h("option", {value: word}, word)));
        case "array":
        case "value":
            return h("textarea", {...common, rows: 3, spellcheck: "false"});
        default:
            // A format's pattern never matches the empty text, which the browser lets pass a
            // pattern: a value that must be there is marked required as well.
            return h("input", {
                ...common, type: "text", autocomplete: "off", spellcheck: "false",
                pattern: rules.pattern, required: Boolean(rules.pattern) && !p.optional,
            });
        }
    }

    /// The control's content as the JSON value it stands for; undefined when an unset
    /// optional property was left empty.
    value() {
        if (this.removed) return null;
        const c = this.control;
        switch (this.kind) {
        case "boolean":
            return c.checked;
        case "integer": {
            const text = c.value.trim();
            if (text !== "") return Number(text);
            if (this.base === undefined) return undefined;
            return this.property.optional ? null : "";
        }
        case "array":
            return c.value.split("\n").map((line) => line.trim()).filter((line) => line !== "");
        default:
            if (c.value === "" && this.base === undefined) return undefined;
            return c.value;
        }
    }

    /// Whether the control differs from the server's value.
    isDirty() {
        const value = this.value();
        return value !== undefined && !same(value, this.base);
    }

    /// Takes `value` as the server's; the control shows it unless `keepTyped` and the user has
    /// changed the control.
    setBase(value, {keepTyped = false} = {}) {
        if (this.kind === "reference" && value !== undefined) value = referenceUri(value);
        const typed = keepTyped && this.isDirty();
        this.base = value;
        if (!typed) this.show(value);
    }

    show(value) {
        this.setRemoved(false);
        const c = this.control;
        if (this.kind === "boolean") c.checked = value === true;
        else if (this.kind === "array") c.value = Array.isArray(value) ? value.join("\n") : "";
        else if (value === undefined || value === null) c.value = "";
        else if (typeof value === "object") c.value = JSON.stringify(value);
        else c.value = String(value);
        if (this.removeButton) this.removeButton.disabled = value === undefined || value === null;
    }

    toggleRemoved() {
        this.setRemoved(!this.removed);
        if (!this.removed) this.control.focus();
    }

    setRemoved(removed) {
        this.removed = removed;
        this.control.disabled = removed || this.control.hasAttribute("data-locked");
        if (this.removeButton) {
            this.removeButton.setAttribute("aria-pressed", String(removed));
            this.removeButton.textContent = removed ? "Keep" : "Remove";
            this.removeButton.setAttribute("aria-label", `${removed ? "Keep" : "Remove"} ${this.key}`);
        }
        this.row.classList.toggle("removed", removed);
    }

    /// Shows the server's answer beside the control: `result` ("ok", "invalid_value", ...)
    /// and its reason.
    showStatus(result, reason = "") {
        const ok = result === "ok" || result === "no update";
        this.status.replaceChildren(h("strong", {}, result), reason ? ` ${reason}` : "");
        this.status.className = `field-status ${ok ? "ok" : "refused"}`;
        if (ok) this.control.removeAttribute("aria-invalid");
        else this.control.setAttribute("aria-invalid", "true");
    }

    clearStatus() {
        this.status.replaceChildren();
        this.status.className = "field-status";
        this.control.removeAttribute("aria-invalid");
    }
}

/// The fields of a form for `description`: `mode` "edit" (writable keys enabled, the rest
/// read-only; everything read-only unless `editable`) or "add" (every key but id and uri,
/// all enabled).
export function buildFields(description, mode, editable = true) {
    const required = new Set(description.required || []);
    const fields = [];
    // Keys the user may change come first, so the form's working part needs no scrolling.
    const keys = orderedKeys(description);
    const canChange = (key) => mode === "add" || (editable && description.properties[key].writable === true);
    for (const key of [...keys.filter(canChange), ...keys.filter((key) => !canChange(key))]) {
        const property = description.properties[key];
        if (mode === "add" && (key === "id" || key === "uri")) continue;
        const enabled = mode === "add" || (editable && property.writable === true);
        const field = new Field(key, property, {enabled, removable: mode === "edit", required: required.has(key)});
        if (!enabled) field.control.setAttribute("data-locked", "");
        fields.push(field);
    }
    return fields;
}

// The most elements of a target resource offered as suggestions for a reference.
const SUGGESTIONS = 500;

/// Offers the elements a reference field may point at as suggestions (their URIs, labelled
/// with their names) on every enabled reference field of `fields`.
export async function suggestTargets(fields) {
    for (const field of fields) {
        if (field.kind !== "reference" || field.control.disabled) continue;
        const list = h("datalist", {id: `${field.control.id}-targets`});
        field.control.setAttribute("list", list.id);
        field.row.append(list);
        for (const target of field.property.targets || []) {
            // A target type reads "<service>.<resource>.<element type>".
            const [service, resource] = target.split(".");
            if (!api.mayRead(service, resource)) continue;
            try {
                const page = await api.elements(service, resource, {count: SUGGESTIONS});
                list.append(...page.elements.map((element) => h("option", {value: element.uri}, element.name || element.id)));
            } catch (error) {
                // No suggestions; the field still takes any URI.
            }
        }
    }
}

/// The field a server message is about: messages name their key first ("rating: 9 is above
/// the maximum 5"). Returns [field, reason without the key] or [null, message].
export function fieldOfMessage(fields, message) {
    const colon = message.indexOf(": ");
    if (colon > 0) {
        const key = message.slice(0, colon);
        const field = fields.find((f) => f.key === key);
        if (field) return [field, message.slice(colon + 2)];
    }
    return [null, message];
}
