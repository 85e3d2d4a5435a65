#ifndef QESSERVICEDATALIB_TESTS_TESTCHANNEL_H
#define QESSERVICEDATALIB_TESTS_TESTCHANNEL_H

#include <cstddef>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Formatter.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Message.h>

#include "Logging/Log.h"

namespace Kivo::Test {

// What a test needs from one logged Poco::Message. The source file is copied, so a record
// stays valid after the message and whatever its file pointer pointed to are gone.
struct LoggedMessage {
    std::string text;
    Poco::Message::Priority priority;
    // Empty when the message carried no source file.
    std::string sourceFile;
    // 0 when the message carried no source line.
    int sourceLine;
};

// A channel that keeps every message it receives, in arrival order. log() and the accessors
// may be called from any thread at once; the accessors return copies.
class TestChannel : public Poco::Channel {
public:
    using Ptr = Poco::AutoPtr<TestChannel>;

    TestChannel() = default;
    TestChannel(const TestChannel&) = delete;
    TestChannel& operator=(const TestChannel&) = delete;

    void log(const Poco::Message& msg) override {
        LoggedMessage record{msg.getText(), msg.getPriority(),
                             msg.getSourceFile() != nullptr ? msg.getSourceFile() : "",
                             msg.getSourceLine()};
        std::lock_guard<std::mutex> guard(m_mutex);
        m_messages.push_back(std::move(record));
    }

    std::vector<LoggedMessage> messages() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_messages;
    }

    std::vector<std::string> texts() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        std::vector<std::string> result;
        result.reserve(m_messages.size());
        for (const LoggedMessage& message : m_messages) result.push_back(message.text);
        return result;
    }

    std::size_t size() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_messages.size();
    }

    void clear() {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_messages.clear();
    }

protected:
    // Reference-counted like every Poco channel: hold it in a TestChannel::Ptr.
    ~TestChannel() override = default;

private:
    mutable std::mutex m_mutex;
    std::vector<LoggedMessage> m_messages;  // guarded by m_mutex
};

// Routes the library's logger (Logging::Log::Logger()) into a fresh TestChannel at `level`
// for the lifetime of this object, then puts the previous channel and level back.
//
// With a formatter, the channel receives the formatted line as the message text (through a
// Poco::FormattingChannel), as an application's log file would show it.
//
// Poco::Logger does not guard its channel against concurrent logging: create and destroy the
// capture while no other thread logs. Captures nest if destroyed in reverse order.
class ScopedLogCapture {
public:
    explicit ScopedLogCapture(int level, Poco::Formatter::Ptr formatter = {})
        : m_channel(new TestChannel),
          m_previousChannel(Logging::Log::Logger().getChannel()),
          m_previousLevel(Logging::Log::Logger().getLevel()) {
        Poco::Channel::Ptr installed = m_channel;
        if (!formatter.isNull()) installed = new Poco::FormattingChannel(formatter, m_channel);
        Logging::Log::Logger().setChannel(installed);
        Logging::Log::Logger().setLevel(level);
    }
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;
    ~ScopedLogCapture() {
        Logging::Log::Logger().setLevel(m_previousLevel);
        Logging::Log::Logger().setChannel(m_previousChannel);
    }

    TestChannel& channel() { return *m_channel; }
    std::vector<LoggedMessage> messages() const { return m_channel->messages(); }
    std::vector<std::string> texts() const { return m_channel->texts(); }

private:
    TestChannel::Ptr m_channel;
    Poco::Channel::Ptr m_previousChannel;
    int m_previousLevel;
};

}  // namespace Kivo::Test

#endif  // QESSERVICEDATALIB_TESTS_TESTCHANNEL_H
