// One element: its values in a form built from the resource's description, references as
// links to their targets, saving only what changed (conditional on the revision read), and
// deleting it where the resource allows. Also the form that adds an element.
import * as api from "./api.js";
import {append, h, uniqueId} from "./dom.js";
import {referenceUri, routeOf, shortId, uriLink} from "./format.js";
import {buildFields, fieldOfMessage, suggestTargets} from "./form.js";
import {flash} from "./table.js";

// The server's value for a field: an optional property that is not set is undefined.
const held = (element, key) => (element[key] === null ? undefined : element[key]);

function statusLine(result, message) {
    return [h("strong", {}, result), message ? ` ${message}` : ""];
}

export class ElementView {
    /// The element `id` of `resource` (the service's entry, with its gates), described by
    /// `description`. `onSaved(id, values, revision)` hears of every accepted save.
    constructor(serviceName, resource, description, id, {onSaved}) {
        this.serviceName = serviceName;
        this.resource = resource;
        this.description = description;
        this.id = id;
        this.onSaved = onSaved;
        this.revision = null;
        this.gone = false;
        this.fields = buildFields(description, "edit", resource.post);
        this.root = h("section", {class: "detail", "aria-labelledby": "detail-heading", "data-id": id});
        this.build();
    }

    build() {
        this.heading = h("h2", {id: "detail-heading", tabindex: "-1"}, shortId(this.id));
        this.meta = h("p", {class: "meta"});
        this.formStatus = h("p", {class: "form-status", role: "status", "aria-live": "polite"});
        const buttons = h("div", {class: "form-buttons"});
        if (this.resource.post) {
            buttons.append(
                h("button", {type: "submit", class: "primary"}, "Save"),
                h("button", {type: "button", onclick: () => this.revert()}, "Revert"));
        }
        if (this.resource.delete) {
            buttons.append(h("button", {type: "button", class: "danger", onclick: () => this.confirmDelete()}, "Delete…"));
        }
        // The server judges the values and says why it refuses one; the browser's own checks
        // (the limits and patterns on the controls) only mark what looks wrong.
        this.form = h("form", {
            class: "element-form", novalidate: true, "aria-labelledby": "detail-heading",
            onsubmit: (event) => {
                event.preventDefault();
                this.save();
            },
        }, this.fields.map((field) => field.row), h("div", {class: "form-footer"}, buttons, this.formStatus));
        const note = this.resource.post ? null :
            h("p", {class: "note"}, `${this.resource.name} takes no changes from clients; the values are shown read-only.`);
        append(this.root,
            h("header", {class: "detail-head"}, this.heading,
                h("a", {href: routeOf(this.serviceName, this.resource.name), class: "close"}, "Close")),
            this.meta, note, this.form);
    }

    /// Reads the element and shows it; with `keepTyped`, values the user changed stay.
    async load({keepTyped = false} = {}) {
        // Changes arriving while the element is read are applied again afterwards, since the
        // read may have been answered before them.
        this.missed = [];
        let element;
        try {
            element = await api.element(this.serviceName, this.resource.name, this.id);
        } catch (error) {
            this.missed = null;
            this.showGone(error.status === 404 ? "This element does not exist (any more)." : `The element cannot be read: ${error.message}`);
            return;
        }
        const missed = this.missed;
        this.missed = null;
        this.gone = false;
        this.revision = element.revision;
        for (const field of this.fields) field.setBase(held(element, field.key), {keepTyped});
        this.showHeader(element);
        this.showTargets(element);
        for (const [values, revision] of missed) this.changed(values, revision);
        if (!this.suggested) {
            this.suggested = true;
            suggestTargets(this.fields);
        }
    }

    showHeader(element) {
        this.name = element.name || shortId(this.id);
        this.heading.textContent = this.name;
        this.uri = element.uri || "";
        this.showRevision(this.revision);
    }

    showRevision(revision) {
        this.revision = revision;
        this.meta.replaceChildren(this.uri, ` · revision ${revision}`);
        this.meta.dataset.revision = String(revision);
    }

    // References as links to their targets, named after them where the server names them or
    // the target can be read.
    async showTargets(element) {
        const unnamed = [];
        for (const field of this.fields.filter((f) => f.kind === "reference" && f.key in element)) {
            const value = element[field.key];
            const uri = referenceUri(value);
            const name = value && typeof value === "object" ? value.name : undefined;
            field.target.replaceChildren(...(uri ? ["→ ", uriLink(uri, name)] : []));
            if (uri && !name) unnamed.push(field);
        }
        if (unnamed.length === 0) return;
        try {
            const expanded = await api.element(this.serviceName, this.resource.name, this.id,
                unnamed.map((field) => field.key));
            for (const field of unnamed) {
                const target = expanded[field.key];
                const uri = referenceUri(element[field.key]);
                if (target && typeof target === "object" && target.uri) {
                    field.target.replaceChildren("→ ", uriLink(target.uri, target.name || undefined));
                } else {
                    field.target.replaceChildren("→ ", uriLink(uri), " (does not resolve)");
                }
            }
        } catch (error) {
            // The plain links stay.
        }
    }

    showGone(text) {
        this.gone = true;
        this.formStatus.replaceChildren(h("strong", {}, "gone"), ` ${text}`);
        this.formStatus.className = "form-status refused";
        for (const element of this.form.elements) element.disabled = true;
    }

    revert() {
        for (const field of this.fields) {
            field.show(field.base);
            field.clearStatus();
        }
        this.setFormStatus("", "");
    }

    setFormStatus(result, message) {
        this.formStatus.replaceChildren(...(result ? statusLine(result, message) : []));
        this.formStatus.className = `form-status ${result === "ok" || result === "no update" ? "ok" : result ? "refused" : ""}`;
    }

    /// Sends the changed keys only, conditional on the revision read.
    async save() {
        if (this.gone) return;
        const changes = {};
        for (const field of this.fields) {
            field.clearStatus();
            if (field.isDirty()) changes[field.key] = field.value();
        }
        if (Object.keys(changes).length === 0) {
            this.setFormStatus("no update", "nothing was changed in the form");
            return;
        }
        let answer;
        try {
            answer = await api.update(this.serviceName, this.resource.name, this.id, changes, this.revision);
        } catch (error) {
            this.refused(error);
            return;
        }
        for (const [key, value] of Object.entries(changes)) {
            const field = this.fields.find((f) => f.key === key);
            field.setBase(value === null ? undefined : value);
            field.showStatus(answer.result);
        }
        if (typeof answer.revision === "number") this.showRevision(answer.revision);
        if ("name" in changes && changes.name) this.heading.textContent = this.name = changes.name;
        this.setFormStatus(answer.result, answer.message || "");
        if (this.fields.some((f) => f.kind === "reference" && f.key in changes)) {
            this.showTargets(Object.fromEntries(this.fields.map((f) => [f.key, f.base])));
        }
        this.onSaved(this.id, changes, this.revision);
    }

    // The form keeps what the user typed; the answer goes beside the field it names.
    refused(error) {
        if (error.status === 412) {
            this.setFormStatus(error.result, `${error.reason} — someone changed this element; reload to see it.`);
            this.formStatus.append(" ", h("button", {type: "button", onclick: () => this.reload()}, "Reload"));
            return;
        }
        const [field, reason] = fieldOfMessage(this.fields, error.reason);
        if (field) {
            field.showStatus(error.result, reason);
            field.control.focus();
        }
        this.setFormStatus(error.result, error.reason);
    }

    async reload() {
        await this.load();
        for (const field of this.fields) field.clearStatus();
        this.setFormStatus("", "");
    }

    /// A change from the feed: untouched fields take the new values and flash. A key the user
    /// is editing keeps the typed value and the revision read stays, so saving it is refused
    /// as a conflict rather than overwriting the change unseen.
    changed(values, revision) {
        if (this.missed) this.missed.push([values, revision]);
        if (this.revision === null || revision <= this.revision) return;
        const conflicts = [];
        for (const [key, value] of Object.entries(values)) {
            const field = this.fields.find((f) => f.key === key);
            if (!field) continue;
            if (field.isDirty()) conflicts.push(key);
            field.setBase(value === null ? undefined : value, {keepTyped: true});
            flash(field.row);
            if (field.kind === "reference") this.showTargets({[key]: value});
        }
        if ("name" in values && values.name) this.heading.textContent = this.name = values.name;
        if (conflicts.length) {
            this.setFormStatus("changed", `${conflicts.join(", ")} changed meanwhile; saving will be refused until you reload.`);
            return;
        }
        this.showRevision(revision);
    }

    /// The element left its resource.
    removed() {
        this.showGone("This element was removed.");
    }

    confirmDelete() {
        const titleId = uniqueId("confirm");
        const dialog = h("dialog", {class: "confirm", "aria-labelledby": titleId},
            h("form", {method: "dialog"},
                h("p", {id: titleId}, `Delete “${this.name}” from ${this.resource.name}? This cannot be undone.`),
                h("div", {class: "form-buttons"},
                    h("button", {value: "cancel", autofocus: true}, "Cancel"),
                    h("button", {value: "delete", class: "danger"}, "Delete"))));
        dialog.addEventListener("close", () => {
            dialog.remove();
            if (dialog.returnValue === "delete") this.delete();
        });
        document.body.append(dialog);
        dialog.showModal();
    }

    async delete() {
        try {
            await api.remove(this.serviceName, this.resource.name, this.id);
        } catch (error) {
            this.setFormStatus(error.result, error.reason);
            return;
        }
        location.hash = routeOf(this.serviceName, this.resource.name);
    }
}

/// The form that adds an element to a resource that allows it.
export class AddView {
    constructor(serviceName, resource, description) {
        this.serviceName = serviceName;
        this.resource = resource;
        this.fields = buildFields(description, "add");
        this.required = new Set(description.required || []);
        for (const field of this.fields) {
            const property = description.properties[field.key];
            field.setBase(property.optional ? undefined : property.default);
        }
        this.heading = h("h2", {id: "detail-heading", tabindex: "-1"}, `New element of ${resource.name}`);
        this.formStatus = h("p", {class: "form-status", role: "status", "aria-live": "polite"});
        this.form = h("form", {
            class: "element-form", novalidate: true, "aria-labelledby": "detail-heading",
            onsubmit: (event) => {
                event.preventDefault();
                this.add();
            },
        }, this.fields.map((field) => field.row),
        h("div", {class: "form-footer"},
            h("div", {class: "form-buttons"},
                h("button", {type: "submit", class: "primary"}, "Add"),
                h("a", {class: "button", href: routeOf(serviceName, resource.name)}, "Cancel")),
            this.formStatus));
        this.root = h("section", {class: "detail add", "aria-labelledby": "detail-heading"},
            h("header", {class: "detail-head"}, this.heading), this.form);
    }

    /// Offers the suggestions of the reference fields (once; the form keeps what is typed).
    async load() {
        if (this.suggested) return;
        this.suggested = true;
        suggestTargets(this.fields);
    }

    async add() {
        const values = {};
        for (const field of this.fields) {
            field.clearStatus();
            const value = field.value();
            if (value !== undefined && (this.required.has(field.key) || field.isDirty())) values[field.key] = value;
        }
        let answer;
        try {
            answer = await api.add(this.serviceName, this.resource.name, values);
        } catch (error) {
            const [field, reason] = fieldOfMessage(this.fields, error.reason);
            if (field) {
                field.showStatus(error.result, reason);
                field.control.focus();
            }
            this.formStatus.replaceChildren(h("strong", {}, error.result), ` ${error.reason}`);
            this.formStatus.className = "form-status refused";
            return;
        }
        location.hash = routeOf(this.serviceName, this.resource.name, answer.id);
    }

}
