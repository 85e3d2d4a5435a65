#ifndef QESSERVICEDATALIB_LOGGING_LOG_H
#define QESSERVICEDATALIB_LOGGING_LOG_H

/// \file
/// The library's logger, and the QES_LOG macros through which the library writes every line.

#include <ostream>
#include <sstream>

#include <Poco/Logger.h>
#include <Poco/Message.h>

/// The library's log: one Poco logger, and a stream that turns its text into one message.
namespace Logging {

/// Entry point to the library's log. Every line the library writes goes to one Poco::Logger
/// named "QesServiceDataLib"; an application routes it by giving that logger a channel and a
/// level, and a test captures lines the same way. Thread-safe as Poco::Logger is.
class Log {
public:
    /// The name of the library's logger: Poco::Logger::get(LOGGER_NAME) is Logger().
    static constexpr const char* LOGGER_NAME = "QesServiceDataLib";

    /// The library's logger.
    static Poco::Logger& Logger();

    /// Whether a line of this priority (Poco::Message::Priority) would be written now.
    static bool IsLogLevelActive(int priority);
};

/// An output stream whose whole text becomes one Poco::Message of the given priority when the
/// stream is destroyed. The text is logged exactly as composed; the source location set with
/// addDefaultOutput travels in the message's source file and line fields, which a
/// Poco::PatternFormatter prints with "%U:%u". Use one stream per line, on one thread.
class LogStream : public std::ostream {
public:
    /// Collects one message for `logger` (which must outlive the stream) at `priority`, a
    /// Poco::Message::Priority value.
    LogStream(Poco::Logger& logger, int priority);
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;
    /// Logs the collected text; never throws.
    ~LogStream() override;

    /// Attaches the source location. `file` must outlive the stream (a __FILE__ literal does).
    LogStream& addDefaultOutput(const char* file, int line);

private:
    std::stringbuf m_buffer;
    Poco::Logger& m_logger;
    Poco::Message m_message;
};

}  // namespace Logging

/// Writes one line at `priority` when that priority is active, with the call site's file and
/// line attached. The text is composed only when it will be written:
///
///     QES_LOG(Poco::Message::PRIO_WARNING, "Warning: " << name << " is unknown");
#define QES_LOG(priority, text)                                                  \
    do {                                                                         \
        if (::Logging::Log::IsLogLevelActive(priority)) {                        \
            ::Logging::LogStream qesLogStream(::Logging::Log::Logger(), priority); \
            qesLogStream.addDefaultOutput(__FILE__, __LINE__);                   \
            qesLogStream << text;                                                \
        }                                                                        \
    } while (false)

/// QES_LOG at Poco::Message::PRIO_CRITICAL, the text prefixed with "Critical: ".
#define QES_LOG_CRITICAL(text) QES_LOG(::Poco::Message::PRIO_CRITICAL, "Critical: " << text)
/// QES_LOG at Poco::Message::PRIO_ERROR, the text prefixed with "Error: ".
#define QES_LOG_ERROR(text) QES_LOG(::Poco::Message::PRIO_ERROR, "Error: " << text)
/// QES_LOG at Poco::Message::PRIO_WARNING, the text prefixed with "Warning: ".
#define QES_LOG_WARNING(text) QES_LOG(::Poco::Message::PRIO_WARNING, "Warning: " << text)
/// QES_LOG at Poco::Message::PRIO_DEBUG, the text prefixed with "Debug: ".
#define QES_LOG_DEBUG(text) QES_LOG(::Poco::Message::PRIO_DEBUG, "Debug: " << text)
/// QES_LOG at Poco::Message::PRIO_TRACE, the text prefixed with "Trace: ".
#define QES_LOG_TRACE(text) QES_LOG(::Poco::Message::PRIO_TRACE, "Trace: " << text)

#endif  // QESSERVICEDATALIB_LOGGING_LOG_H
