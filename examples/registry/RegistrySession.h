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

#include <Client/ChangeFeed.h>
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
// The session keeps a change feed of the service from its start. While watching, every feed
// event is printed as it arrives; after a command that changed an element the session waits
// for its event to be printed, so output stays in order.
class RegistrySession {
public:
    static const char* const HELP;

    RegistrySession(Media::MediaService& service, std::ostream& out, std::ostream& err,
                    bool pretty);
    ~RegistrySession() = default;
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
    // Makes a change and prints its result, with the id of the element `created` where the
    // change added one. While watching, waits until the events of the change have arrived, so
    // that they are printed after the result.
    void applyChange(const std::function<Kivo::Data::OperationResult()>& change,
                     const Poco::UUID* created = nullptr);
    void print(const Poco::Dynamic::Var& json);
    // Writes `json`. REQUIRES: m_mutex.
    void write(const Poco::Dynamic::Var& json);
    bool fail(const std::string& message);
    void onChangeEvent(const Kivo::Client::ChangeEvent& event);

    Media::MediaService& m_service;
    std::ostream& m_out;  // written under m_mutex
    std::ostream& m_err;
    const bool m_pretty;

    std::mutex m_mutex;
    std::condition_variable m_printed;
    bool m_watching = false;        // guarded by m_mutex
    bool m_commandRunning = false;  // guarded by m_mutex; changes wait until it ends
    Kivo::Client::ChangeEvent::Revision m_lastPrinted = 0;  // guarded by m_mutex
    std::vector<Poco::Dynamic::Var> m_heldChanges;          // guarded by m_mutex

    // Last, so that the subscription ends first and the feed before the rest of the session.
    Kivo::Client::ChangeFeed m_feed;
    Kivo::Client::ChangeFeed::Subscription m_subscription;
};

}  // namespace Registry

#endif  // QESSERVICEDATALIB_EXAMPLES_REGISTRY_REGISTRYSESSION_H
