#ifndef QESSERVICEDATALIB_EXAMPLES_REGISTRY_REGISTRYSESSION_H
#define QESSERVICEDATALIB_EXAMPLES_REGISTRY_REGISTRYSESSION_H

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include <Poco/Dynamic/Var.h>

#include <Client/ElementWriter.h>
#include <Data/AbstractResource.h>

#include "MediaService.h"

namespace Registry {

// Runs registry commands against a loaded media service and prints their answers as JSON, one
// document per command (see HELP). Every request goes through the client layer
// (Kivo::Client::ElementWriter and ElementSearch), as a remote client's would; its results are
// printed with their reasons ({"result": "forbidden", "message": "artist: clients may not
// write it"}); bad input (unknown command, wrong arguments, malformed JSON,
// unknown URI or resource) is reported on the error stream and remembered, and the session
// goes on with the next command.
//
// While watching, every element change is printed as it arrives; after a command that changed
// an element the session waits for its change to be printed, so output stays in order.
class RegistrySession {
public:
    static const char* const HELP;

    RegistrySession(Media::MediaService& service, std::ostream& out, std::ostream& err,
                    bool pretty);
    // Stops watching.
    ~RegistrySession();
    RegistrySession(const RegistrySession&) = delete;
    RegistrySession& operator=(const RegistrySession&) = delete;

    // Runs one command line; false for bad input. Blank lines and lines starting with "#" are
    // skipped.
    bool execute(const std::string& line);

private:
    typedef std::vector<std::string> Words;

    bool describe(const Words& words);
    bool list(const Words& words);
    bool get(const Words& words);
    bool find(const Words& words);
    bool search(const Words& words);
    bool add(const Words& words);
    bool set(const Words& words);
    bool update(const Words& words);
    bool remove(const Words& words);
    bool erase(const Words& words);
    bool resolve(const Words& words);
    bool watch(const Words& words);

    // The resource named `name` (any case), or null after an error line.
    Kivo::Data::AbstractResource* resourceNamed(const std::string& name);
    // The element at an element URI "/<service>/<resource>/<uuid>", or null after an error
    // line.
    Kivo::Data::AbstractResource::Ptr elementAt(const std::string& uri);
    static Kivo::Client::ElementWriter writerOf(Kivo::Data::Element& element);
    // Prints the elements found, or the refusal.
    void printFound(const Kivo::Data::OperationResult& result,
                    const Kivo::Data::AbstractResource::ElementQueryResult& found);
    // Makes a change and prints its result. After a change (OK) made while watching, waits
    // until the change has arrived, so that it is printed after the result.
    void applyChange(const std::function<Kivo::Data::OperationResult()>& change);
    void print(const Poco::Dynamic::Var& json);
    // Writes `json`. REQUIRES: m_mutex.
    void write(const Poco::Dynamic::Var& json);
    bool fail(const std::string& message);
    void onElementChanged(const void* sender, const Media::ElementChange& change);

    Media::MediaService& m_service;
    std::ostream& m_out;  // written under m_mutex
    std::ostream& m_err;
    const bool m_pretty;

    std::mutex m_mutex;
    std::condition_variable m_printed;
    bool m_watching = false;        // guarded by m_mutex
    bool m_commandRunning = false;  // guarded by m_mutex; changes wait until it ends
    std::size_t m_changesSeen = 0;  // guarded by m_mutex
    std::vector<Poco::Dynamic::Var> m_heldChanges;  // guarded by m_mutex
};

}  // namespace Registry

#endif  // QESSERVICEDATALIB_EXAMPLES_REGISTRY_REGISTRYSESSION_H
