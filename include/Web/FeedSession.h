#ifndef QESSERVICEDATALIB_WEB_FEEDSESSION_H
#define QESSERVICEDATALIB_WEB_FEEDSESSION_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include <Poco/Net/WebSocket.h>

#include "Web/FeedQueue.h"
#include "Web/Router.h"

namespace Kivo::Web {

/// One WebSocket client of a service's change feed, run on the connection's thread.
///
/// Protocol. The client sends {"subscribe": {"resources": [...], "keys": [...], "since": n,
/// "minInterval": ms}} (every member optional; no "since" is from now); the session answers
/// {"event": "subscribed", "revision": r} and then one text frame per event (ChangeEvent::toJSON),
/// through a FeedQueue (bounded; throttled to minInterval). A later subscribe replaces the
/// earlier one. Resources the caller's token may not read are never sent.
///
/// Ending. A close frame from the client is answered and ends the session; a frame that is
/// malformed, too big (1009), binary (1003) or a subscribe that cannot be read (1008) closes
/// it with the code and a reason; stop() (from any thread) closes it with 1001. The session
/// unsubscribes before run() returns.
class FeedSession {
public:
    /// A session on the upgraded `socket` over the feed of `access`; `queueLimit` and
    /// `maxFrameSize` as WebServerOptions says.
    FeedSession(Poco::Net::WebSocket& socket, Router::FeedAccess access, std::size_t queueLimit,
                int maxFrameSize);
    FeedSession(const FeedSession&) = delete;
    FeedSession& operator=(const FeedSession&) = delete;

    /// Serves the client until it leaves, misbehaves or stop() is called. Never throws.
    void run() noexcept;
    /// Asks run() to close with 1001 and return (within a poll interval).
    void stop() { m_stopping = true; }

private:
    // Answers one frame; false when the session ends.
    bool receive();
    bool subscribe(const std::string& text);
    void flush();
    void close(Poco::UInt16 code, const std::string& reason);

    Poco::Net::WebSocket& m_socket;
    Router::FeedAccess m_access;
    const std::size_t m_queueLimit;
    const int m_maxFrameSize;
    std::atomic<bool> m_stopping{false};
    // Session thread only. The queue is shared with the subscription's callback, which may
    // still run while the subscription ends.
    std::shared_ptr<FeedQueue> m_queue;
    Client::ChangeFeed::Subscription m_subscription;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_FEEDSESSION_H
