#include "Web/FeedSession.h"

#include <limits>
#include <utility>

#include <Poco/Buffer.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/Net/NetException.h>

#include "Web/JsonBody.h"
#include "Web/JsonReply.h"

namespace Kivo::Web {

using Client::ChangeEvent;
using Client::ChangeFeed;
using Poco::Net::WebSocket;

namespace {

// How long the session waits for events before it looks at the socket again, and so the
// longest a client's frame or stop() waits for an answer.
const std::chrono::milliseconds POLL_INTERVAL(10);
// The longest throttle interval a client may ask for: an hour.
const Poco::Int64 MAX_MIN_INTERVAL = 3600 * 1000;

// The strings of the member `name` of `object` into `out`; false when it is there but is not
// an array of strings.
bool readNames(const Poco::JSON::Object& object, const std::string& name,
               std::set<std::string>& out) {
    if (!object.has(name)) return true;
    const Poco::JSON::Array::Ptr array = object.getArray(name);
    if (array.isNull()) return false;
    for (std::size_t i = 0; i < array->size(); ++i) {
        const Poco::Dynamic::Var item = array->get(static_cast<unsigned>(i));
        if (!item.isString()) return false;
        out.insert(item.toString());
    }
    return true;
}

// The whole number under `name` within [0, max]; false when it is there but is none.
bool readCount(const Poco::JSON::Object& object, const std::string& name, Poco::UInt64 max,
               std::optional<Poco::UInt64>& out) {
    if (!object.has(name)) return true;
    const Poco::Dynamic::Var value = object.get(name);
    if (!value.isInteger() || value.isEmpty()) return false;
    if (value.isSigned() && value.convert<Poco::Int64>() < 0) return false;
    const Poco::UInt64 number = value.convert<Poco::UInt64>();
    if (number > max) return false;
    out = number;
    return true;
}

}  // namespace

FeedSession::FeedSession(WebSocket& socket, Router::FeedAccess access, std::size_t queueLimit,
                         int maxFrameSize)
    : m_socket(socket),
      m_access(std::move(access)),
      m_queueLimit(queueLimit),
      m_maxFrameSize(maxFrameSize) {}

void FeedSession::run() noexcept {
    try {
        m_socket.setMaxPayloadSize(m_maxFrameSize);
        while (!m_stopping) {
            if (m_queue) {
                m_queue->waitReady(POLL_INTERVAL);
                flush();
            }
            const Poco::Timespan wait = m_queue ? Poco::Timespan(0)
                                                : Poco::Timespan(POLL_INTERVAL.count() * 1000);
            if (m_socket.poll(wait, Poco::Net::Socket::SELECT_READ) && !receive()) {
                m_subscription.reset();
                return;
            }
        }
        m_subscription.reset();
        close(WebSocket::WS_ENDPOINT_GOING_AWAY, "server stopping");
    } catch (const Poco::Net::WebSocketException& error) {
        m_subscription.reset();
        close(error.code() == WebSocket::WS_ERR_PAYLOAD_TOO_BIG ? WebSocket::WS_PAYLOAD_TOO_BIG
                                                                : WebSocket::WS_PROTOCOL_ERROR,
              error.message());
    } catch (...) {
        // The connection broke; nobody is left to tell.
        m_subscription.reset();
    }
}

bool FeedSession::receive() {
    Poco::Buffer<char> buffer(0);
    int flags = 0;
    const int length = m_socket.receiveFrame(buffer, flags);
    if (length == 0 && flags == 0) return false;
    const std::string text(buffer.begin(), buffer.size());
    switch (flags & WebSocket::FRAME_OP_BITMASK) {
        case WebSocket::FRAME_OP_CLOSE:
            m_socket.shutdown();
            return false;
        case WebSocket::FRAME_OP_PING:
            m_socket.sendFrame(text.data(), static_cast<int>(text.size()),
                               WebSocket::FRAME_FLAG_FIN | WebSocket::FRAME_OP_PONG);
            return true;
        case WebSocket::FRAME_OP_PONG:
            return true;
        case WebSocket::FRAME_OP_TEXT:
            if ((flags & WebSocket::FRAME_FLAG_FIN) == 0) {
                close(WebSocket::WS_PAYLOAD_NOT_ACCEPTABLE, "fragmented messages are not read");
                return false;
            }
            return subscribe(text);
        default:
            close(WebSocket::WS_PAYLOAD_NOT_ACCEPTABLE, "only text frames are read");
            return false;
    }
}

bool FeedSession::subscribe(const std::string& text) {
    Poco::JSON::Object::Ptr message;
    const Data::OperationResult parsed = JsonBody::parseObject(text, message);
    const Poco::JSON::Object::Ptr request =
        parsed.isSuccess() ? message->getObject("subscribe") : Poco::JSON::Object::Ptr();
    ChangeFeed::Filter filter;
    std::optional<Poco::UInt64> since;
    std::optional<Poco::UInt64> minInterval;
    if (request.isNull() || !readNames(*request, "resources", filter.resources) ||
        !readNames(*request, "keys", filter.keys) ||
        !readCount(*request, "since", std::numeric_limits<Poco::UInt64>::max() - 1, since) ||
        !readCount(*request, "minInterval", MAX_MIN_INTERVAL, minInterval)) {
        close(WebSocket::WS_POLICY_VIOLATION,
              "expected {\"subscribe\": {\"resources\": [...], \"keys\": [...], \"since\": n, "
              "\"minInterval\": ms}}");
        return false;
    }
    m_subscription.reset();
    auto queue = std::make_shared<FeedQueue>(
        m_queueLimit, std::chrono::milliseconds(minInterval.value_or(0)));
    m_queue = queue;
    // Reading the revision first and subscribing after it loses nothing: events recorded
    // between the two come after `current`.
    const ChangeEvent::Revision current = m_access.feed->currentRevision();
    const auto mayRead = m_access.mayRead;
    m_subscription = m_access.feed->subscribe(
        [queue, mayRead](const ChangeEvent& event) {
            if (event.kind() == ChangeEvent::RESYNC || mayRead(event.resource())) {
                queue->push(event);
            }
        },
        filter, since.value_or(current));
    Poco::JSON::Object::Ptr answer = new Poco::JSON::Object;
    answer->set("event", "subscribed");
    answer->set("revision", current);
    const std::string json = JsonReply::stringify(answer);
    m_socket.sendFrame(json.data(), static_cast<int>(json.size()), WebSocket::FRAME_TEXT);
    return true;
}

void FeedSession::flush() {
    for (const std::string& json : m_queue->take(std::chrono::steady_clock::now())) {
        m_socket.sendFrame(json.data(), static_cast<int>(json.size()), WebSocket::FRAME_TEXT);
    }
}

void FeedSession::close(Poco::UInt16 code, const std::string& reason) {
    try {
        // A close frame's reason holds at most 123 bytes.
        m_socket.shutdown(code, reason.substr(0, 123));
    } catch (const Poco::Exception&) {
        // The client is gone already.
    }
}

}  // namespace Kivo::Web
