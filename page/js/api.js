// The server's REST interface under /api. Every call resolves to the parsed body or rejects
// with an ApiError carrying the server's result code and reason.

const TOKEN_KEY = "qes-registry-token";

/// A failed request: `result` is the server's result code ("invalid_value", "forbidden", ...)
/// or "network" when no answer came; `message` its reason; `status` the HTTP status (0 when
/// none).
export class ApiError extends Error {
    constructor(status, result, message) {
        super(message ? `${result}: ${message}` : result);
        this.status = status;
        this.result = result;
        this.reason = message || "";
    }
}

/// The bearer token the user gave, if any (kept for the browser tab's session only).
export function token() {
    return sessionStorage.getItem(TOKEN_KEY) || "";
}

/// Keeps `value` as the bearer token of later requests; the empty text forgets it.
export function setToken(value) {
    if (value) sessionStorage.setItem(TOKEN_KEY, value);
    else sessionStorage.removeItem(TOKEN_KEY);
}

// Whether each resource may be read, as the last reading of its service said.
const readable = new Map();

/// Whether the elements of `resourceName` may be read (true when not known), so the page
/// does not ask for what it would be refused.
export function mayRead(serviceName, resourceName) {
    return readable.get(`${serviceName}/${resourceName}`) !== false;
}

/// "/api/Media/Albums" from ["Media", "Albums"].
export function apiPath(...names) {
    return ["/api", ...names.map(encodeURIComponent)].join("/");
}

let unauthorized = () => {};

/// Calls `handler` whenever the server asks for a token (401).
export function onUnauthorized(handler) {
    unauthorized = handler;
}

async function request(method, path, {body, headers = {}} = {}) {
    const init = {method, headers: {Accept: "application/json", ...headers}};
    if (token()) init.headers.Authorization = `Bearer ${token()}`;
    if (body !== undefined) {
        init.headers["Content-Type"] = "application/json; charset=utf-8";
        init.body = JSON.stringify(body);
    }
    let response;
    try {
        response = await fetch(path, init);
    } catch (error) {
        throw new ApiError(0, "network", "the server cannot be reached");
    }
    let json = null;
    const text = await response.text();
    if (text) {
        try {
            json = JSON.parse(text);
        } catch (error) {
            json = null;
        }
    }
    if (response.status === 401) unauthorized();
    if (!response.ok) {
        const result = json && typeof json.result === "string" ? json.result : `HTTP ${response.status}`;
        const message = json && typeof json.message === "string" ? json.message : response.statusText;
        throw new ApiError(response.status, result, message);
    }
    return {json, response};
}

/// GET /api: the services.
export async function services() {
    return (await request("GET", "/api")).json.services || [];
}

/// GET /api/<service>: the service with its resources, their totals and gates.
export async function service(name) {
    const answer = (await request("GET", apiPath(name))).json;
    for (const resource of answer.resources || []) readable.set(`${name}/${resource.name}`, resource.get !== false);
    return answer;
}

/// GET /api/<service>/<resource>/_description.
export async function description(serviceName, resourceName) {
    return (await request("GET", apiPath(serviceName, resourceName, "_description"))).json;
}

/// One page of a resource's elements: {total, offset, elements}. `search` holds `where`
/// (a list of [key, text]), `q` (free text) and `ci` (case-insensitive).
export async function elements(serviceName, resourceName, {offset = 0, count = 50, where = [], q = "", ci = false} = {}) {
    const query = new URLSearchParams({offset: String(offset), count: String(count)});
    for (const [key, text] of where) query.append("where", `${key}=${text}`);
    if (q) query.append("q", q);
    if (ci) query.append("ci", "1");
    return (await request("GET", `${apiPath(serviceName, resourceName)}?${query}`)).json;
}

/// One element with its revision; the reference keys of `expand` hold their targets' JSON
/// (null where one does not resolve) instead of their URIs.
export async function element(serviceName, resourceName, id, expand = []) {
    const query = new URLSearchParams(expand.map((key) => ["expand", key]));
    const path = apiPath(serviceName, resourceName, id) + (expand.length ? `?${query}` : "");
    return (await request("GET", path)).json;
}

/// PATCH: {result, message, revision}; refused with 412 when the element is no longer at
/// `revision`.
export async function update(serviceName, resourceName, id, values, revision) {
    const headers = revision === undefined || revision === null ? {} : {"If-Match": `"${revision}"`};
    return (await request("PATCH", apiPath(serviceName, resourceName, id), {body: values, headers})).json;
}

/// POST: {result, message, id}.
export async function add(serviceName, resourceName, values) {
    return (await request("POST", apiPath(serviceName, resourceName), {body: values})).json;
}

/// DELETE: {result, message}.
export async function remove(serviceName, resourceName, id) {
    return (await request("DELETE", apiPath(serviceName, resourceName, id))).json;
}
