#include <climits>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <Poco/AutoPtr.h>
#include <Poco/ConsoleChannel.h>
#include <Poco/File.h>
#include <Poco/FormattingChannel.h>
#include <Poco/NumberParser.h>
#include <Poco/Path.h>
#include <Poco/PatternFormatter.h>
#include <pthread.h>
#include <unistd.h>

#include <Logging/Log.h>
#include <Web/WebServer.h>

#include "MediaData.h"

namespace {

const char* const USAGE =
    "usage: qes-registryd [--data DIR] [--bind ADDR] [--port N] [--tokens FILE] [--page DIR]\n"
    "                     [--threads N]\n"
    "\n"
    "Serves the media service loaded from DIR (service.json, resources.json, elements.json;\n"
    "default: the shipped example data) over HTTP: the REST interface under /api, its change\n"
    "feed as a WebSocket at /api/<service>/events and the browser page from the page directory.\n"
    "Logs one line per request on standard error. SIGINT or SIGTERM stop it: running requests\n"
    "finish, WebSockets close with 1001, and it exits with 0. Exit status 2 for bad options,\n"
    "data or tokens that cannot be read, or an address that cannot be bound.\n"
    "\n"
    "  --data DIR     where the service's JSON files are\n"
    "  --bind ADDR    the address to listen on (default 127.0.0.1)\n"
    "  --port N       the port (default 8080; 0 picks a free one, printed at start)\n"
    "  --tokens FILE  require bearer tokens; lines \"<token> read|write <scope>\" where scope\n"
    "                 is *, <service> or <service>/<resource>\n"
    "  --page DIR     the browser page's directory (default: the installed page)\n"
    "  --threads N    connection threads, the most connections served at once (default 64)\n"
    "  --help         this text\n";

// An installed file of the project's share directory, beside the program, or else the
// source tree's one the program was built from; empty when neither exists.
std::string shareDirectory(const std::string& name, const std::string& probe,
                           const std::string& sourceTree) {
    char program[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    if (length > 0) {
        Poco::Path installed(std::string(program, static_cast<std::size_t>(length)));
        installed.makeParent().makeParent().pushDirectory("share").pushDirectory(
            "QesServiceDataLib").pushDirectory(name);
        installed.setFileName(probe);
        if (Poco::File(installed).exists()) return installed.parent().toString();
    }
    Poco::Path built(Poco::Path::forDirectory(sourceTree));
    built.setFileName(probe);
    return Poco::File(built).exists() ? sourceTree : std::string();
}

void routeLogs() {
    Poco::AutoPtr<Poco::FormattingChannel> channel(new Poco::FormattingChannel(
        new Poco::PatternFormatter("%Y-%m-%dT%H:%M:%S.%iZ %s: %t"),
        new Poco::ConsoleChannel(std::cerr)));
    Kivo::Web::WebServer::logger().setChannel(channel);
    Kivo::Web::WebServer::logger().setLevel(Poco::Message::PRIO_INFORMATION);
    Logging::Log::Logger().setChannel(channel);
    Logging::Log::Logger().setLevel(Poco::Message::PRIO_WARNING);
}

bool parseNumber(const std::string& text, unsigned max, unsigned& out) {
    unsigned value = 0;
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
        !Poco::NumberParser::tryParseUnsigned(text, value) || value > max) {
        return false;
    }
    out = value;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::string dataDirectory = shareDirectory("media", Media::MediaData::SERVICE_FILE,
                                               QES_MEDIA_DATA_DIR);
    std::string pageDirectory = shareDirectory("page", "index.html", QES_PAGE_DIR);
    std::string tokensFile;
    Kivo::Web::WebServerOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        unsigned number = 0;
        if (argument == "--help") {
            std::cout << USAGE;
            return 0;
        } else if (argument == "--data" && hasValue) {
            dataDirectory = argv[++i];
        } else if (argument == "--bind" && hasValue) {
            options.bindAddress = argv[++i];
        } else if (argument == "--port" && hasValue && parseNumber(argv[i + 1], 65535, number)) {
            options.port = static_cast<std::uint16_t>(number);
            ++i;
        } else if (argument == "--tokens" && hasValue) {
            tokensFile = argv[++i];
        } else if (argument == "--page" && hasValue) {
            pageDirectory = argv[++i];
        } else if (argument == "--threads" && hasValue && parseNumber(argv[i + 1], 4096, number) &&
                   number > 0) {
            options.maxThreads = static_cast<int>(number);
            ++i;
        } else {
            std::cerr << "qes-registryd: bad option '" << argument << "'\n" << USAGE;
            return 2;
        }
    }
    options.pageDirectory = pageDirectory;
    routeLogs();

    // SIGINT and SIGTERM are taken by sigwait below; every thread started later inherits the
    // mask, so none of them is interrupted by them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Media::MediaService service;
    try {
        if (!Media::MediaData::read(dataDirectory).loadInto(service)) {
            std::cerr << "qes-registryd: the data in " << dataDirectory << " was refused\n";
            return 2;
        }
        if (!tokensFile.empty()) {
            options.tokens = std::make_shared<const Kivo::Web::TokenTable>(
                Kivo::Web::TokenTable::load(tokensFile));
        }
    } catch (const std::exception& error) {
        std::cerr << "qes-registryd: " << error.what() << '\n';
        return 2;
    }

    Kivo::Web::WebServer server(options, {&service});
    try {
        server.start();
    } catch (const std::exception& error) {
        std::cerr << "qes-registryd: cannot listen on " << options.bindAddress << ":"
                  << options.port << ": " << error.what() << '\n';
        return 2;
    }
    std::cout << "qes-registryd: serving " << dataDirectory << " on http://"
              << options.bindAddress << ":" << server.port() << "/"
              << (tokensFile.empty() ? "" : " (tokens required)")
              << (pageDirectory.empty() ? " (no page)" : "") << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    Kivo::Web::WebServer::logger().information(std::string("stopping on ") + strsignal(signal));
    server.stop();
    return 0;
}
