#include "Logging/Log.h"

namespace Logging {

Poco::Logger& Log::Logger() {
    static Poco::Logger& logger = Poco::Logger::get(LOGGER_NAME);
    return logger;
}

bool Log::IsLogLevelActive(int priority) { return Logger().is(priority); }

LogStream::LogStream(Poco::Logger& logger, int priority)
    : std::ostream(nullptr),
      m_logger(logger),
      m_message(logger.name(), std::string(), static_cast<Poco::Message::Priority>(priority)) {
    rdbuf(&m_buffer);
}

LogStream::~LogStream() {
    try {
        m_message.setText(m_buffer.str());
        m_logger.log(m_message);
    } catch (...) {
        // A failing channel must not take the caller down with it: logging is best effort.
    }
}

LogStream& LogStream::addDefaultOutput(const char* file, int line) {
    m_message.setSourceFile(file);
    m_message.setSourceLine(line);
    return *this;
}

}  // namespace Logging
