#ifndef QESSERVICEDATALIB_TESTS_TESTCHANNEL_H
#define QESSERVICEDATALIB_TESTS_TESTCHANNEL_H

#include <mutex>
#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Formatter.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Message.h>

#include "Logging/Log.h"

namespace Kivo::Test {

// One logged message, copied: it stays valid after the message and its source file are gone.
struct LoggedMessage {
    std::string text;
    Poco::Message::Priority priority;
    std::string sourceFile;  // empty when the message carried none
    int sourceLine;          // 0 when the message carried none
};

// A channel that keeps every message it receives, in arrival order; safe from any thread.
// Reference-counted like every Poco channel: hold it in a TestChannel::Ptr.
class TestChannel : public Poco::Channel {
public:
    using Ptr = Poco::AutoPtr<TestChannel>;

    void log(const Poco::Message& msg) override {
        const char* file = msg.getSourceFile();
        std::lock_guard<std::mutex> guard(m_mutex);
        m_messages.push_back(
            {msg.getText(), msg.getPriority(), file != nullptr ? file : "", msg.getSourceLine()});
    }
    std::vector<LoggedMessage> messages() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_messages;
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const LoggedMessage& message : messages()) result.push_back(message.text);
        return result;
    }
    void clear() {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_messages.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LoggedMessage> m_messages;  // guarded by m_mutex
};

// Routes the library's logger into a fresh TestChannel at `level` while it lives, then puts the
// previous channel and level back; captures nest if destroyed in reverse order. With a
// formatter, the channel receives the formatted line as the text, as a log file would show it.
// Poco::Logger does not guard its channel: create and destroy it while no other thread logs.
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
