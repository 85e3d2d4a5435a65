// The change feed of one service over a WebSocket: subscribes from the last revision seen,
// hands each new event on, and after a lost connection reconnects with a growing delay and
// resumes where it stopped. A "resync" from the server means the events in between are gone:
// the owner re-reads what it shows.
import {apiPath, token} from "./api.js";

const FIRST_DELAY_MS = 500;
const LONGEST_DELAY_MS = 10000;

export class Feed {
    /// A feed of `serviceName` whose events are newer than `revision`. `handlers`:
    /// onEvent(event) for added/changed/removed, onResync() after the server's resync (the
    /// revision has moved on by then), onState(state, detail) with "connecting", "live" or
    /// "down" (detail: the seconds until the next attempt).
    constructor(serviceName, revision, handlers) {
        this.serviceName = serviceName;
        this.revision = revision;
        this.handlers = handlers;
        this.socket = null;
        this.retryTimer = null;
        this.failures = 0;
        this.stopped = false;
    }

    /// Connects; later losses reconnect by themselves until stop().
    start() {
        this.stopped = false;
        this.connect();
    }

    /// Closes the connection and ends reconnecting.
    stop() {
        this.stopped = true;
        clearTimeout(this.retryTimer);
        const socket = this.socket;
        this.socket = null;
        if (!socket) return;
        socket.onclose = null;
        socket.onmessage = null;
        // Closing a socket that is still connecting makes the browser report a failed
        // connection; it is closed as soon as it opens instead.
        if (socket.readyState === WebSocket.CONNECTING) socket.onopen = () => socket.close();
        else socket.close();
    }

    connect() {
        const scheme = location.protocol === "https:" ? "wss:" : "ws:";
        const query = token() ? `?access_token=${encodeURIComponent(token())}` : "";
        this.handlers.onState("connecting");
        const socket = new WebSocket(`${scheme}//${location.host}${apiPath(this.serviceName, "events")}${query}`);
        this.socket = socket;
        socket.onopen = () => {
            socket.send(JSON.stringify({subscribe: {since: this.revision}}));
        };
        socket.onmessage = (message) => this.receive(message.data);
        socket.onclose = () => {
            if (this.socket !== socket) return;
            this.socket = null;
            this.retry();
        };
    }

    receive(data) {
        let event;
        try {
            event = JSON.parse(data);
        } catch (error) {
            return;
        }
        if (event.event === "subscribed") {
            this.failures = 0;
            this.handlers.onState("live");
        } else if (event.event === "resync") {
            this.revision = event.revision;
            this.handlers.onResync();
        } else if (typeof event.revision === "number" && event.revision > this.revision) {
            this.revision = event.revision;
            this.handlers.onEvent(event);
        }
    }

    retry() {
        if (this.stopped) return;
        const delay = Math.min(LONGEST_DELAY_MS, FIRST_DELAY_MS * 2 ** this.failures);
        this.failures += 1;
        // A little spread, so pages that lost the same server do not all return at once.
        const wait = delay * (0.8 + 0.4 * Math.random());
        this.handlers.onState("down", Math.ceil(wait / 1000));
        this.retryTimer = setTimeout(() => this.connect(), wait);
    }
}
