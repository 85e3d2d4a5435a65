// The page: hash routes (#/, #/<service>, #/<service>/<resource>, #/<service>/<resource>/<id>,
// #/<service>/<resource>/_new), the navigation of services and resources, and the change feed
// of the service on view feeding the table and the element shown.
import * as api from "./api.js";
import {h, replaceChildren, uniqueId} from "./dom.js";
import {Feed} from "./feed.js";
import {forgetNames, noteEvent, routeOf} from "./format.js";
import {AddView, ElementView} from "./detail.js";
import {newSearchState, ResourceView} from "./table.js";

const NEW_ELEMENT = "_new";

class App {
    constructor() {
        this.nav = document.getElementById("nav");
        this.main = document.getElementById("main");
        this.indicator = document.getElementById("feed-state");
        this.services = null;            // GET /api
        this.serviceInfo = new Map();    // name -> GET /api/<service>
        this.descriptions = new Map();   // "service/resource" -> description
        this.searches = new Map();       // "service/resource" -> search and paging state
        this.feed = null;
        this.feedService = null;
        this.resourceView = null;
        this.detailView = null;
        this.routing = Promise.resolve();
        api.onUnauthorized(() => this.askToken());
    }

    start() {
        window.addEventListener("hashchange", () => this.route());
        // A page put aside by the browser (history, back-forward cache) holds no connection; it
        // resumes from the last revision seen when it is shown again.
        window.addEventListener("pagehide", () => {
            if (this.feed) this.feed.stop();
        });
        window.addEventListener("pageshow", (event) => {
            if (event.persisted && this.feed) this.feed.start();
        });
        this.setFeedState("off");
        this.route();
    }

    route() {
        // Routes are taken one after the other, so a fast second click cannot interleave.
        this.routing = this.routing.then(() => this.show()).catch((error) => this.fail(error));
        return this.routing;
    }

    async show() {
        const hash = location.hash || "#/";
        if (!hash.startsWith("#/")) return;
        const [serviceName, resourceName, id] = hash.slice(2).split("/").filter(Boolean).map(decodeURIComponent);
        if (!this.services) {
            this.services = await api.services();
            await Promise.all(this.services.map((s) => this.readService(s.name)));
        }
        this.renderNav(serviceName, resourceName);
        // The overview of a server with one service follows that service's feed as well.
        await this.watch(serviceName || (this.services.length === 1 ? this.services[0].name : undefined));
        if (!serviceName) return this.showHome();
        const service = this.serviceInfo.get(serviceName);
        if (!service) return this.showMissing(`There is no service “${serviceName}”.`);
        if (!resourceName) return this.showService(service);
        const resource = service.resources.find((r) => r.name === resourceName);
        if (!resource) return this.showMissing(`${serviceName} has no resource “${resourceName}”.`);
        if (resource.get === false) return this.showMissing(`${serviceName}/${resourceName} cannot be read with this access.`);
        return this.showResource(service, resource, id);
    }

    // The service's totals hold every event up to its revision.
    async readService(name) {
        const service = await api.service(name);
        this.serviceInfo.set(name, service);
        return service;
    }

    async descriptionOf(serviceName, resourceName) {
        const key = `${serviceName}/${resourceName}`;
        if (!this.descriptions.has(key)) {
            this.descriptions.set(key, await api.description(serviceName, resourceName));
        }
        return this.descriptions.get(key);
    }

    renderNav(serviceName, resourceName) {
        replaceChildren(this.nav, h("h2", {class: "visually-hidden"}, "Services"),
            (this.services || []).map((s) => {
                const info = this.serviceInfo.get(s.name);
                const current = s.name === serviceName && !resourceName;
                return h("div", {class: "nav-service"},
                    h("a", {href: routeOf(s.name), class: "nav-service-link", "aria-current": current ? "page" : null}, s.name),
                    h("ul", {}, (info ? info.resources : []).map((r) => h("li", {}, r.get === false ?
                        h("span", {class: "no-access", title: "not readable with this access"}, r.name) :
                        h("a", {
                            href: routeOf(s.name, r.name),
                            "aria-current": s.name === serviceName && r.name === resourceName ? "page" : null,
                        }, r.name, " ", h("span", {class: "count", "data-total": `${s.name}/${r.name}`}, String(r.total)))))));
            }));
    }

    updateTotal(serviceName, resourceName, delta, revision) {
        const service = this.serviceInfo.get(serviceName);
        const resource = service && service.resources.find((r) => r.name === resourceName);
        if (!resource || revision <= service.revision) return;
        resource.total += delta;
        const badge = this.nav.querySelector(`[data-total="${CSS.escape(`${serviceName}/${resourceName}`)}"]`);
        if (badge) badge.textContent = String(resource.total);
    }

    // One feed: that of the service on view, kept while the view stays within the service.
    async watch(serviceName) {
        if (serviceName === this.feedService) return;
        if (this.feed) this.feed.stop();
        this.feed = null;
        this.feedService = serviceName || null;
        if (!serviceName || !this.serviceInfo.has(serviceName)) {
            this.setFeedState("off");
            return;
        }
        // The revision the totals were read at; events after it are what the page has not seen.
        const service = await this.readService(serviceName);
        this.feed = new Feed(serviceName, service.revision, {
            onEvent: (event) => this.onEvent(serviceName, event),
            onResync: () => this.onResync(serviceName),
            onState: (state, seconds) => this.setFeedState(state, seconds),
        });
        this.feed.start();
    }

    onEvent(serviceName, event) {
        noteEvent(serviceName, event);
        if (event.event === "added") this.updateTotal(serviceName, event.resource, 1, event.revision);
        if (event.event === "removed") this.updateTotal(serviceName, event.resource, -1, event.revision);
        const table = this.resourceView;
        if (table && table.serviceName === serviceName && table.resource.name === event.resource) {
            if (event.event === "changed") table.changed(event.id, event.values || {}, event.revision);
            if (event.event === "added") table.added(event.id);
            if (event.event === "removed") table.removed(event.id);
        }
        const detail = this.detailView;
        if (detail && detail.id === event.id && detail.resource.name === event.resource) {
            if (event.event === "changed") detail.changed(event.values || {}, event.revision);
            if (event.event === "removed") detail.removed();
        }
    }

    // Events were lost: everything shown is read again.
    async onResync(serviceName) {
        forgetNames();
        await this.readService(serviceName);
        const [, resourceName] = location.hash.slice(2).split("/").map(decodeURIComponent);
        this.renderNav(serviceName, resourceName);
        if (this.resourceView) await this.resourceView.load();
        if (this.detailView) await this.detailView.load({keepTyped: true});
    }

    setFeedState(state, seconds) {
        const texts = {
            off: "No live feed",
            connecting: "Connecting to the live feed…",
            live: "Live",
            down: `Live feed down, retrying in ${seconds} s`,
        };
        this.indicator.dataset.state = state;
        this.indicator.textContent = texts[state];
    }

    showHome() {
        this.closeViews();
        replaceChildren(this.main,
            h("h2", {tabindex: "-1", class: "view-heading"}, "Services"),
            this.services.length === 0 ? h("p", {}, "The server holds no service.") : null,
            this.services.map((s) => {
                const info = this.serviceInfo.get(s.name);
                return h("section", {class: "card", "aria-labelledby": `service-${s.name}`},
                    h("h3", {id: `service-${s.name}`}, h("a", {href: routeOf(s.name)}, s.name)),
                    h("p", {}, s.description || ""),
                    h("ul", {}, info.resources.map((r) => h("li", {},
                        r.get === false ? r.name : h("a", {href: routeOf(s.name, r.name)}, r.name),
                        ` — ${r.description || ""}`, r.get === false ? " (not readable)" : ` (${r.total})`))));
            }));
        this.focusHeading();
    }

    showService(service) {
        this.closeViews();
        const yes = (flag) => (flag ? "yes" : "no");
        const captionId = uniqueId("caption");
        replaceChildren(this.main,
            h("h2", {tabindex: "-1", class: "view-heading"}, service.name),
            h("p", {class: "description"}, service.description || ""),
            h("div", {class: "table-scroll", role: "region", "aria-labelledby": captionId, tabindex: "0"},
                h("table", {class: "resources"},
                    h("caption", {id: captionId}, `Resources of ${service.name}`),
                    h("thead", {}, h("tr", {}, ["Resource", "Description", "Elements", "Read", "Add", "Delete"].map((t) => h("th", {scope: "col"}, t)))),
                    h("tbody", {}, service.resources.map((r) => h("tr", {},
                        h("th", {scope: "row"}, r.get === false ? r.name : h("a", {href: routeOf(service.name, r.name)}, r.name)),
                        h("td", {}, r.description || ""),
                        h("td", {class: "number"}, r.get === false ? "—" : String(r.total)),
                        h("td", {}, yes(r.get !== false)),
                        h("td", {}, yes(r.post)),
                        h("td", {}, yes(r.delete))))))));
        this.focusHeading();
    }

    showMissing(text) {
        this.closeViews();
        replaceChildren(this.main, h("h2", {tabindex: "-1", class: "view-heading"}, "Not found"), h("p", {}, text),
            h("p", {}, h("a", {href: "#/"}, "All services")));
        this.focusHeading();
    }

    async showResource(service, resource, id) {
        const description = await this.descriptionOf(service.name, resource.name);
        let table = this.resourceView;
        const sameTable = table && table.serviceName === service.name && table.resource.name === resource.name;
        if (!sameTable) {
            this.closeViews();
            const key = `${service.name}/${resource.name}`;
            if (!this.searches.has(key)) this.searches.set(key, newSearchState());
            table = new ResourceView(service.name, resource, description, this.searches.get(key));
            this.resourceView = table;
            this.layout = h("div", {class: "resource-layout"}, table.root);
            replaceChildren(this.main, this.layout);
            await table.load();
        }
        for (const shown of this.layout.querySelectorAll(":scope > .detail")) shown.remove();
        this.detailView = null;
        this.layout.classList.toggle("with-detail", Boolean(id));
        table.select(id && id !== NEW_ELEMENT ? id : null);
        if (id === NEW_ELEMENT && !resource.post) {
            this.layout.append(h("section", {class: "detail"}, h("h2", {id: "detail-heading", tabindex: "-1"}, "Not allowed"),
                h("p", {}, `${resource.name} takes no new elements.`)));
        } else if (id) {
            const view = id === NEW_ELEMENT ?
                new AddView(service.name, resource, description) :
                new ElementView(service.name, resource, description, id, {
                    onSaved: (savedId, values, revision) => table.changed(savedId, values, revision),
                });
            this.detailView = view;
            this.layout.append(view.root);
            await view.load();
        }
        const heading = id ? this.layout.querySelector("#detail-heading") : table.heading;
        if (heading && (id || !sameTable)) heading.focus({preventScroll: !id});
        if (id && heading) heading.scrollIntoView({block: "nearest"});
    }

    closeViews() {
        if (this.resourceView) this.resourceView.destroy();
        this.resourceView = null;
        this.detailView = null;
    }

    focusHeading() {
        const heading = this.main.querySelector(".view-heading");
        if (heading) heading.focus({preventScroll: true});
    }

    // The server wants a bearer token: one is asked for and kept for this tab.
    askToken() {
        if (document.getElementById("token-form")) return;
        const inputId = uniqueId("token");
        const input = h("input", {id: inputId, type: "password", autocomplete: "off", required: true});
        const form = h("form", {
            id: "token-form", class: "card",
            onsubmit: (event) => {
                event.preventDefault();
                api.setToken(input.value.trim());
                form.remove();
                this.services = null;
                if (this.feed) this.feed.stop();
                this.feed = null;
                this.feedService = null;
                this.route();
            },
        }, h("p", {}, "This server needs an access token."),
        h("label", {for: inputId}, "Access token"), " ", input, " ",
        h("button", {type: "submit"}, "Use token"));
        this.main.prepend(form);
        input.focus();
    }

    fail(error) {
        if (error && error.status === 401) return;
        replaceChildren(this.main, h("h2", {tabindex: "-1", class: "view-heading"}, "Something went wrong"),
            h("p", {class: "error", role: "alert"}, error && error.message ? error.message : String(error)),
            h("p", {}, h("button", {type: "button", onclick: () => {
                this.services = null;
                this.route();
            }}, "Try again")));
    }
}

new App().start();
