#include "Logging/Log.h"

#include <functional>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/Formatter.h>
#include <Poco/Message.h>
#include <gtest/gtest.h>

#include "TestChannel.h"

namespace {

using Kivo::Test::LoggedMessage;
using Kivo::Test::ScopedLogCapture;

// Where this file's log lines must say they come from: relative to the repository root.
constexpr const char* THIS_FILE = "tests/Logging/LogTest.cpp";

// Counts how often a log text expression is composed.
int countEvaluation(int& evaluations) { return ++evaluations; }

// Runs one logging statement and yields the source line it was written on. Keep the whole
// invocation on one line, so the line the log macro records and this one are the same.
#define LOGGED_AT(statement) \
    [&] {                    \
        statement;           \
        return __LINE__;     \
    }()

struct MacroRow {
    std::function<int(int& evaluations)> logLine;  // logs one line, returns its line number
    Poco::Message::Priority priority;
    std::string text;
};

// Each macro writes one message with its prefix, priority and location exactly when its
// priority is at least as severe as the logger's level; below that, the text expression must
// not run at all (it may be expensive).
TEST(LogMacros, WriteOneLocatedMessageOnlyWhenTheLevelIsActive) {
    const std::vector<MacroRow> rows = {
        {[](int& n) { return LOGGED_AT(QES_LOG_CRITICAL("index " << countEvaluation(n))); },
         Poco::Message::PRIO_CRITICAL, "Critical: index 1"},
        {[](int& n) { return LOGGED_AT(QES_LOG_ERROR("id A-" << 7 << " " << countEvaluation(n))); },
         Poco::Message::PRIO_ERROR, "Error: id A-7 1"},
        {[](int& n) { return LOGGED_AT(QES_LOG_WARNING(2.5 << " of " << countEvaluation(n))); },
         Poco::Message::PRIO_WARNING, "Warning: 2.5 of 1"},
        {[](int& n) { return LOGGED_AT(QES_LOG_DEBUG("value=" << countEvaluation(n))); },
         Poco::Message::PRIO_DEBUG, "Debug: value=1"},
        {[](int& n) { return LOGGED_AT(QES_LOG_TRACE(countEvaluation(n))); },
         Poco::Message::PRIO_TRACE, "Trace: 1"},
        {[](int& n) { return LOGGED_AT(QES_LOG(Poco::Message::PRIO_NOTICE, countEvaluation(n))); },
         Poco::Message::PRIO_NOTICE, "1"},
    };
    for (const int level : {0, int(Poco::Message::PRIO_FATAL), int(Poco::Message::PRIO_ERROR),
                            int(Poco::Message::PRIO_WARNING), int(Poco::Message::PRIO_TRACE)}) {
        for (const MacroRow& row : rows) {
            ScopedLogCapture capture(level);
            int evaluations = 0;
            const int line = row.logLine(evaluations);
            const bool written = row.priority <= level;
            EXPECT_EQ(written ? 1 : 0, evaluations) << row.text << " at level " << level;
            const std::vector<LoggedMessage> messages = capture.messages();
            ASSERT_EQ(written ? 1u : 0u, messages.size()) << row.text << " at level " << level;
            if (!written) continue;
            EXPECT_EQ(row.text, messages[0].text);
            EXPECT_EQ(row.priority, messages[0].priority) << row.text;
            EXPECT_EQ(THIS_FILE, messages[0].sourceFile) << row.text;
            EXPECT_EQ(line, messages[0].sourceLine) << row.text;
        }
    }
}

// A logging failure is not the caller's failure: the macro swallows what the channel throws.
TEST(LogMacros, ChannelFailureDoesNotReachCaller) {
    class FailingFormatter : public Poco::Formatter {
    public:
        void format(const Poco::Message&, std::string&) override {
            throw Poco::IOException("log disk full");
        }
    };
    ScopedLogCapture capture(Poco::Message::PRIO_TRACE, new FailingFormatter);
    EXPECT_NO_THROW(QES_LOG_ERROR("lost line"));
    EXPECT_TRUE(capture.texts().empty());
}

}  // namespace
