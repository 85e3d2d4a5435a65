#include <climits>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/ConsoleChannel.h>
#include <Poco/File.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Path.h>
#include <Poco/PatternFormatter.h>
#include <unistd.h>

#include <Logging/Log.h>

#include "MediaData.h"
#include "RegistrySession.h"

namespace {

const char* const USAGE =
    "usage: qes-registry [--data <directory>] [--pretty] [--echo] [--quiet] [command ...]\n"
    "\n"
    "Loads the media service from <directory> (service.json, resources.json, elements.json;\n"
    "default: the shipped example data) and runs the commands given as arguments, each one\n"
    "argument, or else the lines of standard input. The exit status is 0 when every command\n"
    "was understood, 1 after bad input (reported on standard error), 2 for bad options or\n"
    "data that cannot be loaded.\n"
    "\n"
    "  --data <directory>  where the service's JSON files are\n"
    "  --pretty            indent the JSON answers\n"
    "  --echo              print each line read, after \"> \", before its answer\n"
    "  --quiet             do not print the library's warnings and errors\n"
    "  --help              this text\n"
    "\n";

// Library lines (warnings and worse) go to standard error, after the answers they belong to.
void routeLibraryLog(bool quiet) {
    Poco::AutoPtr<Poco::FormattingChannel> channel(new Poco::FormattingChannel(
        new Poco::PatternFormatter("%t"), new Poco::ConsoleChannel(std::cerr)));
    Logging::Log::Logger().setChannel(channel);
    Logging::Log::Logger().setLevel(quiet ? Poco::Message::PRIO_FATAL
                                          : Poco::Message::PRIO_WARNING);
}

// The shipped data: installed beside the program (<prefix>/share/QesServiceDataLib/media), else
// in the source tree the program was built from.
std::string defaultDataDirectory() {
    char program[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    if (length > 0) {
        Poco::Path installed(std::string(program, static_cast<std::size_t>(length)));
        installed.makeParent().makeParent().pushDirectory("share").pushDirectory(
            "QesServiceDataLib").pushDirectory("media");
        installed.setFileName(Media::MediaData::SERVICE_FILE);
        if (Poco::File(installed).exists()) return installed.parent().toString();
    }
    return QES_MEDIA_DATA_DIR;
}

}  // namespace

int main(int argc, char** argv) {
    std::string dataDirectory = defaultDataDirectory();
    bool pretty = false;
    bool echo = false;
    bool quiet = false;
    std::vector<std::string> commands;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help") {
            std::cout << USAGE << Registry::RegistrySession::HELP;
            return 0;
        } else if (argument == "--pretty") {
            pretty = true;
        } else if (argument == "--echo") {
            echo = true;
        } else if (argument == "--quiet") {
            quiet = true;
        } else if (argument == "--data" && i + 1 < argc) {
            dataDirectory = argv[++i];
        } else if (argument.rfind("--", 0) == 0) {
            std::cerr << "qes-registry: unknown option '" << argument << "'\n" << USAGE;
            return 2;
        } else {
            commands.push_back(argument);
        }
    }
    routeLibraryLog(quiet);

    Media::MediaService service;
    try {
        if (!Media::MediaData::read(dataDirectory).loadInto(service)) {
            std::cerr << "qes-registry: the data in " << dataDirectory << " was refused\n";
            return 2;
        }
    } catch (const std::exception& error) {
        std::cerr << "qes-registry: cannot load " << dataDirectory << ": " << error.what() << '\n';
        return 2;
    }

    Registry::RegistrySession session(service, std::cout, std::cerr, pretty);
    bool good = true;
    if (commands.empty()) {
        std::string line;
        while (std::getline(std::cin, line)) {
            if (echo && !line.empty()) std::cout << "> " << line << std::endl;
            good = session.execute(line) && good;
        }
    } else {
        for (const std::string& command : commands) good = session.execute(command) && good;
    }
    return good ? 0 : 1;
}
