// A resource's elements as a table: search, paging, the total, and live updates from the
// change feed (changed rows update in place and flash, added and removed ones come and go).
import * as api from "./api.js";
import {append, h, uniqueId} from "./dom.js";
import {displayValue, routeOf, shortId} from "./format.js";
import {orderedKeys} from "./form.js";

const PAGE_SIZES = [10, 25, 50, 100];
const RELOAD_DELAY_MS = 150;

/// A fresh search and paging state for a resource view.
export function newSearchState() {
    return {offset: 0, count: 25, key: "", text: "", ci: false};
}

/// Restarts the flash animation of `element` (the class is taken off when it ends).
export function flash(element) {
    element.classList.remove("flash");
    void element.offsetWidth;  // a new animation needs a style pass without the class
    element.classList.add("flash");
    element.addEventListener("animationend", () => element.classList.remove("flash"), {once: true});
}

export class ResourceView {
    /// The view of `resource` (the service's entry: name, description, total, gates) of
    /// `serviceName`, described by `description`; `state` is the search and paging state, kept
    /// by the caller across views.
    constructor(serviceName, resource, description, state) {
        this.serviceName = serviceName;
        this.resource = resource;
        this.description = description;
        this.state = state;
        this.selectedId = null;
        this.reloadTimer = null;
        this.pendingFlash = new Set();
        // The id shows in the detail; it is the link itself only where there is no name.
        const keys = orderedKeys(description).filter((key) => key !== "uri");
        this.linkKey = keys.includes("name") ? "name" : "id";
        this.columns = this.linkKey === "name" ? keys.filter((key) => key !== "id") : keys;
        this.root = h("section", {class: "resource", "aria-labelledby": "resource-heading"});
        this.build();
    }

    build() {
        const r = this.resource;
        this.heading = h("h2", {id: "resource-heading", tabindex: "-1"}, r.name);
        const actions = h("div", {class: "actions"});
        if (r.post) {
            actions.append(h("a", {class: "button", href: routeOf(this.serviceName, r.name, "_new")}, `Add to ${r.name}`));
        }
        append(this.root,
            h("header", {class: "resource-head"}, this.heading, actions),
            r.description ? h("p", {class: "description"}, r.description) : null,
            this.buildSearch());
        this.summary = h("p", {class: "summary", id: uniqueId("summary"), "aria-live": "polite"});
        this.tbody = h("tbody");
        const captionId = uniqueId("caption");
        this.caption = h("caption", {id: captionId}, `${r.name} elements`);
        const head = h("tr", {}, this.columns.map((key) => h("th", {scope: "col", "data-key": key}, key)));
        this.table = h("table", {class: "elements", "data-resource": r.name}, this.caption, h("thead", {}, head), this.tbody);
        this.root.append(
            this.summary,
            h("div", {class: "table-scroll", role: "region", "aria-labelledby": captionId, tabindex: "0"}, this.table),
            this.buildPager());
        this.error = h("p", {class: "error", role: "alert", hidden: true});
        this.root.append(this.error);
    }

    buildSearch() {
        const s = this.state;
        const keyId = uniqueId("search-key");
        const textId = uniqueId("search-text");
        const hintId = uniqueId("search-hint");
        const searchable = orderedKeys(this.description).filter((key) => this.description.properties[key].searchable);
        this.searchKey = h("select", {id: keyId, name: "key"},
            h("option", {value: ""}, "any key (free text)"),
            searchable.map((key) => h("option", {value: key, selected: key === s.key}, key)));
        this.searchText = h("input", {
            id: textId, name: "text", type: "search", value: s.text, placeholder: "e.g. Golden%",
            "aria-describedby": hintId, autocomplete: "off", spellcheck: "false",
        });
        this.searchCi = h("input", {type: "checkbox", name: "ci", checked: s.ci});
        return h("form", {
            class: "search", role: "search", "aria-label": `Search ${this.resource.name}`,
            onsubmit: (event) => {
                event.preventDefault();
                this.search();
            },
        },
        h("div", {class: "search-field"}, h("label", {for: keyId}, "Search in"), this.searchKey),
        h("div", {class: "search-field grow"}, h("label", {for: textId}, "Text"), this.searchText),
        h("label", {class: "check"}, this.searchCi, " Ignore case"),
        h("div", {class: "search-buttons"},
            h("button", {type: "submit"}, "Search"),
            h("button", {type: "button", onclick: () => this.clearSearch()}, "Clear")),
        h("p", {id: hintId, class: "hint"}, "% stands for any text; otherwise the whole value must match. Free text looks in every key."));
    }

    buildPager() {
        const sizeId = uniqueId("page-size");
        this.previous = h("button", {type: "button", onclick: () => this.page(-1)}, "Previous page");
        this.next = h("button", {type: "button", onclick: () => this.page(1)}, "Next page");
        this.pageSize = h("select", {
            id: sizeId,
            onchange: () => {
                this.state.count = Number(this.pageSize.value);
                this.state.offset = 0;
                this.load();
            },
        }, PAGE_SIZES.map((size) => h("option", {value: size, selected: size === this.state.count}, size)));
        return h("nav", {class: "pager", "aria-label": "Pages"},
            this.previous, this.next,
            h("label", {for: sizeId}, "Per page"), this.pageSize);
    }

    search() {
        this.state.key = this.searchKey.value;
        this.state.text = this.searchText.value;
        this.state.ci = this.searchCi.checked;
        this.state.offset = 0;
        return this.load();
    }

    clearSearch() {
        this.searchKey.value = "";
        this.searchText.value = "";
        this.searchCi.checked = false;
        return this.search();
    }

    page(direction) {
        const s = this.state;
        s.offset = Math.max(0, s.offset + direction * s.count);
        return this.load();
    }

    /// Reads the current page of the search and shows it.
    async load() {
        clearTimeout(this.reloadTimer);
        // Only the latest read is shown; changes arriving while it is under way are applied
        // again once it is, since the read may have been answered before them.
        this.loadSerial = (this.loadSerial || 0) + 1;
        const serial = this.loadSerial;
        if (!this.missed) this.missed = [];
        const s = this.state;
        const query = {offset: s.offset, count: s.count, ci: s.ci};
        if (s.text !== "") {
            if (s.key) query.where = [[s.key, s.text]];
            else query.q = s.text;
        }
        this.root.setAttribute("aria-busy", "true");
        try {
            const page = await api.elements(this.serviceName, this.resource.name, query);
            if (serial !== this.loadSerial) return undefined;
            if (page.elements.length === 0 && page.offset > 0 && page.total > 0) {
                // The page emptied (elements removed): show the last one that has elements.
                s.offset = Math.max(0, Math.floor((page.total - 1) / s.count) * s.count);
                return this.load();
            }
            this.error.hidden = true;
            this.render(page);
            const missed = this.missed;
            this.missed = null;
            for (const [id, values, revision] of missed) this.changed(id, values, revision);
        } catch (error) {
            if (serial !== this.loadSerial) return undefined;
            this.error.textContent = `The elements cannot be read: ${error.message}`;
            this.error.hidden = false;
        } finally {
            if (serial === this.loadSerial) {
                this.missed = null;
                this.root.removeAttribute("aria-busy");
            }
        }
        return undefined;
    }

    render(page) {
        const s = this.state;
        s.offset = page.offset;
        this.total = page.total;
        const focused = this.focusedRow();
        this.tbody.replaceChildren(...page.elements.map((element) => this.row(element)));
        if (page.elements.length === 0) {
            this.tbody.append(h("tr", {}, h("td", {colspan: this.columns.length, class: "empty"},
                s.text ? "No element matches." : "No elements.")));
        }
        const first = page.elements.length ? page.offset + 1 : 0;
        const last = page.offset + page.elements.length;
        const filter = s.text ? ` matching “${s.text}”${s.key ? ` in ${s.key}` : ""}` : "";
        this.summary.textContent = `${first}–${last} of ${page.total} ${this.resource.name}${filter}`;
        this.summary.dataset.total = String(page.total);
        this.caption.textContent = `${this.resource.name}, ${first}–${last} of ${page.total}`;
        this.previous.disabled = page.offset === 0;
        this.next.disabled = last >= page.total;
        for (const id of this.pendingFlash) {
            const row = this.rowOf(id);
            if (row) flash(row);
        }
        this.pendingFlash.clear();
        if (focused) {
            const row = this.rowOf(focused);
            const link = row && row.querySelector("a");
            if (link) link.focus();
        }
        this.select(this.selectedId);
    }

    focusedRow() {
        const active = document.activeElement;
        const row = active && this.tbody.contains(active) ? active.closest("tr") : null;
        return row ? row.dataset.id : null;
    }

    row(element) {
        const row = h("tr", {"data-id": element.id, "data-revision": element.revision});
        for (const key of this.columns) row.append(this.cell(element, key));
        return row;
    }

    cell(element, key) {
        const cell = h("td", {"data-key": key});
        this.fillCell(cell, element.id, key, element[key]);
        return cell;
    }

    fillCell(cell, id, key, value) {
        const kind = this.description.properties[key].kind;
        if (key === this.linkKey) {
            const text = key === "id" ? shortId(id) : value === undefined || value === "" ? shortId(id) : String(value);
            cell.replaceChildren(h("a", {href: routeOf(this.serviceName, this.resource.name, id), class: "open"}, text));
        } else if (key === "id") {
            cell.replaceChildren(h("span", {title: id, class: "id"}, shortId(id)));
        } else {
            cell.replaceChildren(...[displayValue(value, kind)].flat());
        }
    }

    rowOf(id) {
        return this.tbody.querySelector(`tr[data-id="${CSS.escape(id)}"]`);
    }

    /// Marks the row of the element shown in detail.
    select(id) {
        this.selectedId = id;
        for (const row of this.tbody.querySelectorAll("tr.selected")) row.classList.remove("selected");
        for (const link of this.tbody.querySelectorAll("a[aria-current]")) link.removeAttribute("aria-current");
        const row = id ? this.rowOf(id) : null;
        if (row) {
            row.classList.add("selected");
            const link = row.querySelector("a.open");
            if (link) link.setAttribute("aria-current", "true");
        }
    }

    /// New values of element `id` at `revision` (from the feed or from a save of this page):
    /// the row, if shown and older, takes them and flashes.
    changed(id, values, revision) {
        if (this.missed) this.missed.push([id, values, revision]);
        const row = this.rowOf(id);
        if (!row || Number(row.dataset.revision) >= revision) return;
        row.dataset.revision = String(revision);
        for (const [key, value] of Object.entries(values)) {
            const cell = row.querySelector(`td[data-key="${CSS.escape(key)}"]`);
            if (!cell) continue;
            this.fillCell(cell, id, key, value === null ? undefined : value);
            flash(cell);
        }
        flash(row);
    }

    /// An element joined the resource: the page is read again and its row, if it is on it,
    /// flashes.
    added(id) {
        this.pendingFlash.add(id);
        this.reloadSoon();
    }

    /// An element left the resource: its row fades out and the page is read again.
    removed(id) {
        const row = this.rowOf(id);
        if (row) row.classList.add("removing");
        this.reloadSoon();
    }

    /// Reads the page again after a short while, so a burst of events costs one read.
    reloadSoon() {
        clearTimeout(this.reloadTimer);
        this.reloadTimer = setTimeout(() => this.load(), RELOAD_DELAY_MS);
    }

    destroy() {
        clearTimeout(this.reloadTimer);
    }
}
