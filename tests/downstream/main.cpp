// A client of the installed library. It includes the umbrella header from the installed include
// root, links the installed shared library, and exits non-zero, naming each failed check on
// stderr, unless the lock and the log behave across the library boundary.
#include <iostream>
#include <sstream>
#include <string>

#include <Poco/ConsoleChannel.h>
#include <Poco/Exception.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <Data/ServiceDataLib.h>

namespace {

int failures = 0;

void check(bool ok, const std::string& what) {
    if (!ok) {
        std::cerr << "client: FAILED: " << what << '\n';
        ++failures;
    }
}

// Throws from inside the library; true if the documented Poco type arrives here as that type.
template <typename Unlock>
bool refusedWithIllegalState(Unlock unlock) {
    try {
        unlock();
    } catch (const Poco::IllegalStateException&) {
        return true;
    } catch (...) {
        return false;
    }
    return false;
}

// Nested holders on one thread: the write side re-enters and its holder may also read. Once
// the holders are gone the thread holds nothing, so both unlock calls are refused; an unlock
// that went through would mean a holder leaked its side.
void checkLock() {
    Kivo::Util::RecursiveRWLock lock;
    {
        Kivo::Util::ScopedRecursiveWriteLock outer(lock);
        Kivo::Util::ScopedRecursiveWriteLock inner(lock);
        Kivo::Util::ScopedRecursiveReadLock read(lock);
    }
    check(refusedWithIllegalState([&] { lock.writeUnlock(); }),
          "writeUnlock() after the holders are gone throws Poco::IllegalStateException");
    check(refusedWithIllegalState([&] { lock.readUnlock(); }),
          "readUnlock() after the holders are gone throws Poco::IllegalStateException");
}

// The library logs through the process-wide Poco logger registry, so the channel and level the
// client gives that logger decide which lines appear and where.
void checkLog() {
    Poco::Logger& logger = Logging::Log::Logger();
    check(&logger == &Poco::Logger::get("QesServiceDataLib"),
          "Logging::Log::Logger() is Poco's logger named QesServiceDataLib");

    std::ostringstream captured;
    logger.setChannel(new Poco::ConsoleChannel(captured));
    logger.setLevel(Poco::Message::PRIO_WARNING);
    QES_LOG_DEBUG("below the level, never written");
    QES_LOG_WARNING("client " << 1 << " can log");
    std::cout << captured.str();
    check(captured.str() == "Warning: client 1 can log\n",
          "exactly the warning line reaches the client's channel, got \"" + captured.str() + "\"");
    logger.setChannel(new Poco::ConsoleChannel);
}

}  // namespace

int main() {
    checkLock();
    checkLog();
    if (failures != 0) return 1;
    std::cout << "client: lock and log behave\n";
    return 0;
}
