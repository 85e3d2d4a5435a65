// Many threads on one service tree at once: index queries, property and JSON writes, elements
// added and removed, references read and re-resolved while their targets are destroyed, and
// DataChanged observers coming and going; then the tree goes with deliveries in flight. Each
// thread stops after a number of operations or a run time, whichever comes first. A watchdog
// aborts with the names of the unfinished threads when the test is not done by a generous
// deadline, so a deadlock fails the run instead of hanging it.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/JSON/Object.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementContainer.h"
#include "Data/ElementFixture.h"
#include "Data/Service.h"
#include "Data/XObjectReference.h"
#include "MediaElements.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::IndexFreeTextQuery;
using Base::PropertyValueUuid;
using Kivo::Test::DataChangedRecorder;
using Kivo::Test::keyQuery;
using Kivo::Test::ScopedLogCapture;
typedef std::chrono::steady_clock Clock;
typedef std::vector<std::string> Texts;
typedef IElementDataChangedSource::DataChangedEventPayload Payload;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::chrono::seconds RUN_TIME(5), DRAIN_TIME(60), DEADLINE(150);
#else
constexpr std::chrono::seconds RUN_TIME(2), DRAIN_TIME(30), DEADLINE(60);
#endif

constexpr int STABLE = 4;    // albums that stay; observers and reference checks rely on them
constexpr int VOLATILE = 4;  // albums removed and added again, each with an extra track
constexpr int ALBUMS = STABLE + VOLATILE;
constexpr int WRITERS = 3;
constexpr int OWNED = 3;  // tracks per writer, written by it alone
constexpr int TRACKS = WRITERS * OWNED;

std::string uuid(char prefix, int n) {
    char text[40];
    std::snprintf(text, sizeof text, "%c0000000-0000-4000-8000-%012d", prefix, n);
    return text;
}
Poco::UUID albumId(int n) { return Poco::UUID(uuid('a', n)); }
Poco::UUID trackId(int n) { return Poco::UUID(uuid('b', n)); }
Poco::UUID extraTrackId(int v) { return Poco::UUID(uuid('c', v)); }
std::string albumUri(int n) { return "/Media/Albums/" + uuid('a', n); }
std::string nameOf(int track, long n) {
    return "T" + std::to_string(track) + "." + std::to_string(n);
}

Poco::JSON::Object::Ptr json(
    std::initializer_list<std::pair<const char*, Poco::Dynamic::Var>> members) {
    Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
    for (const auto& [key, value] : members) object->set(key, value);
    return object;
}
Poco::JSON::Object::Ptr albumJson(int n) {
    const std::string name = (n < STABLE ? "Stable " : "Volatile ") + std::to_string(n);
    return json({{"id", uuid('a', n)}, {"name", name}, {"genre", "jazz"}});
}
Poco::JSON::Object::Ptr trackJson(const Poco::UUID& id, const std::string& name, int album) {
    return json({{"id", id.toString()}, {"name", name}, {"album", albumUri(album)}});
}

IndexFreeTextQuery anyText() {
    IndexFreeTextQuery query;
    query.values = {"%"};
    return query;
}

// A container whose change handler looks the changed element up under the tree's lock, as a
// resource that acts on the values of a change does.
template <class E>
class Shelf : public ElementContainer<E> {
public:
    Shelf(Service& service, const std::string& name)
        : ElementContainer<E>(service, name, name, PropertyValueUuid()) {
        this->init();
    }
    ~Shelf() override { this->clear(); }

    void onElementDataChanged(Payload& payload) override {
        Util::ScopedRecursiveReadLock lock(this->lockRef());
        AbstractResource::Ptr element;
        if (this->getElement(payload.getSourceElementId(), element).isSuccess()) element->toJSON(0);
    }
};

// Destroyed in reverse order: tracks (which point into the albums), albums, the service.
struct Tree {
    Service service{"Media", "", 8080, PropertyValueUuid()};
    Shelf<Media::Album> albums{service, "Albums"};
    Shelf<Media::Track> tracks{service, "Tracks"};
};

// What the threads found wrong: the first few descriptions.
class Faults {
public:
    void add(const std::string& what) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_first.size() < 20) m_first.push_back(what);
    }
    void expectOK(const OperationResult& result, const std::string& what) {
        if (result.value() != OperationResult::OK) add(what + ": " + result.toString());
    }
    Texts list() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_first;
    }

private:
    mutable std::mutex m_mutex;
    Texts m_first;  // guarded by m_mutex
};

// Aborts the process when the test is not done by the deadline, naming its phase and the
// workers that have not finished.
class Watchdog {
public:
    struct Worker {
        explicit Worker(std::string workerName) : name(std::move(workerName)) {}
        const std::string name;
        std::atomic<long> ops{0};
        std::atomic<bool> done{false};
    };

    explicit Watchdog(std::chrono::seconds deadline)
        : m_thread([this, deadline] { watch(deadline); }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_finished = true;
        }
        m_finishedChanged.notify_all();
        m_thread.join();
    }

    Worker& add(const std::string& name) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_workers.emplace_back(name);
    }
    void enter(const char* phase) { m_phase = phase; }

private:
    void watch(std::chrono::seconds deadline) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_finishedChanged.wait_for(lock, deadline, [this] { return m_finished; })) return;
        std::fprintf(stderr, "Watchdog: not done after %lld s, while %s; unfinished workers:\n",
                     static_cast<long long>(deadline.count()), m_phase.load());
        for (const Worker& worker : m_workers) {
            if (worker.done) continue;
            std::fprintf(stderr, "  %s after %ld operations\n", worker.name.c_str(),
                         worker.ops.load());
        }
        std::abort();
    }

    std::mutex m_mutex;
    std::condition_variable m_finishedChanged;
    bool m_finished = false;       // guarded by m_mutex
    std::deque<Worker> m_workers;  // guarded by m_mutex; deque: workers keep their address
    std::atomic<const char*> m_phase{"starting"};
    std::thread m_thread;  // last: starts watching once the rest is built
};

// Runs step(i) for i = 0, 1, ... until `ops` steps are done or `end` has passed.
void run(Watchdog::Worker& worker, long ops, Clock::time_point end,
         const std::function<void(long)>& step) {
    for (long i = 0; i < ops && Clock::now() < end; ++i) {
        step(i);
        ++worker.ops;
    }
    worker.done = true;
}

// A DataChanged observer that counts its calls, and those after its removal has returned.
struct Observer {
    void onDataChanged(const void*, Payload&) {
        if (removed) ++lateCalls;
        ++calls;
    }
    std::atomic<bool> removed{false};
    std::atomic<int> calls{0}, lateCalls{0};
};

// A live target is the album the container holds under its id (or one being removed, which
// stays alive until its removal drops it); a placeholder stands for an album the container
// does not hold. Rendering the track reads the target. REQUIRES: the tree's read lock.
void checkAlbumReference(const Tree& tree, const Media::Track& track, Faults& faults) {
    const XObject* target = track.album.getValue();
    const bool placeholder = dynamic_cast<const DummyObject*>(target) != nullptr;
    AbstractResource::Ptr held;
    if (tree.albums.getElement(target->getIdentification(), held).isSuccess()) {
        if (placeholder) faults.add("placeholder for a present album");
        if (!placeholder && static_cast<const XObject*>(held.get()) != target) {
            faults.add("reference to an album that was replaced");
        }
    }
    track.toJSON(Texts{"album"});
}

// Under the read lock, the indexes agree with the containers and with the values they index.
void readConsistently(const Tree& tree, Faults& faults) {
    Util::ScopedRecursiveReadLock lock(*tree.service.getLock());
    AbstractResource::ElementQueryResult found;
    tree.albums.findElements(keyQuery("genre", "jazz"), found);
    for (const auto& album : found) {
        const auto& genre = static_cast<const Media::Album&>(*album).genre;
        if (genre.getPropertyValue().toString() != "jazz") faults.add("exact query: wrong genre");
    }
    tree.albums.findElements(keyQuery("name", "Stable%"), found);
    if (found.size() != static_cast<std::size_t>(STABLE))
        faults.add("wildcard query: stable albums missing");
    tree.albums.findElements(keyQuery("name", "Volatile%"), found);
    if (found.size() + STABLE != tree.albums.size()) faults.add("wildcard query: volatile albums");
    tree.tracks.findElements(anyText(), found);
    if (found.size() != tree.tracks.size()) faults.add("free text query: track count");
    for (const auto& track : found) {
        checkAlbumReference(tree, static_cast<const Media::Track&>(*track), faults);
    }
}

// The n-th write to owned track t: odd n through a JSON update of name and rating (now and then
// pointing the track at another album), even n through a property write of the name alone.
void writeOwned(Tree& tree, int t, long n, Faults& faults) {
    const std::string name = nameOf(t, n);
    if (n % 2 == 1) {
        Poco::JSON::Object::Ptr update = json({{"name", name}, {"rating", n % 5 + 1}});
        if (n % 4 == 1) update->set("album", albumUri(static_cast<int>(n / 4 % ALBUMS)));
        faults.expectOK(tree.tracks.updateElementFromJSON(trackId(t), update.get()),
                        "update " + name);
    } else {
        AbstractResource::Ptr track;
        faults.expectOK(tree.tracks.getElement(trackId(t), track), "get " + name);
        if (!track.isNull()) faults.expectOK(track->setProperty("name", name), "write " + name);
    }
}

// One cycle over a volatile album: change it, remove it (destroying it while references point
// at it), add a track that points at the missing album, add the album again (the references
// resolve to the new object), change the track and remove it.
void churn(Tree& tree, long i, Faults& faults) {
    const int v = static_cast<int>(i % VOLATILE);
    const int n = STABLE + v;
    const std::string cycle = " in cycle " + std::to_string(i);
    faults.expectOK(tree.albums.updateElementFromJSON(albumId(n), json({{"genre", "rock"}}).get()),
                    "album update" + cycle);
    faults.expectOK(tree.albums.removeElement(albumId(n)), "album removal" + cycle);
    faults.expectOK(tree.tracks.addElement(trackJson(extraTrackId(v), "Extra", n).get()),
                    "track addition" + cycle);
    faults.expectOK(tree.albums.addElement(albumJson(n).get()), "album addition" + cycle);
    faults.expectOK(
        tree.tracks.updateElementFromJSON(extraTrackId(v), json({{"name", cycle}}).get()),
        "track update" + cycle);
    faults.expectOK(tree.tracks.removeElement(extraTrackId(v)), "track removal" + cycle);
}

// Subscribes an observer to an element that stays and removes it again: at once, or, every
// sixteenth time, after changing a stable album's genre and waiting for that change to reach it.
void observeOnce(Tree& tree, long i, std::vector<std::unique_ptr<Observer>>& gone, Faults& faults) {
    const bool waits = i % 16 == 0;
    const long k = i / 16;
    AbstractResource::Ptr element;
    if (waits || i % 2 == 1) {
        tree.albums.getElement(albumId(static_cast<int>((waits ? k : i) % STABLE)), element);
    } else {
        tree.tracks.getElement(trackId(static_cast<int>(i % TRACKS)), element);
    }
    auto observer = std::make_unique<Observer>();
    element->DataChanged += Poco::delegate(observer.get(), &Observer::onDataChanged);
    if (waits) {
        const char* genre = k / STABLE % 2 == 0 ? "rock" : "jazz";
        faults.expectOK(tree.albums.updateElementFromJSON(element->getIdentification(),
                                                          json({{"genre", genre}}).get()),
                        "genre change");
        const Clock::time_point deadline = Clock::now() + DRAIN_TIME;
        while (observer->calls == 0 && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (observer->calls == 0) faults.add("observer missed a change");
    }
    element->DataChanged -= Poco::delegate(observer.get(), &Observer::onDataChanged);
    observer->removed = true;
    gone.push_back(std::move(observer));
}

void load(Tree& tree) {
    for (int n = 0; n < ALBUMS; ++n) {
        ASSERT_EQ(OperationResult::OK, tree.albums.addElement(albumJson(n).get()).value());
    }
    for (int t = 0; t < TRACKS; ++t) {
        const auto track = trackJson(trackId(t), nameOf(t, 0), t % ALBUMS);
        ASSERT_EQ(OperationResult::OK, tree.tracks.addElement(track.get()).value());
    }
}

// The deliveries of each owned track, in arrival order: one per write, matching it, then one
// per present property as the track goes.
void expectDeliveries(const std::vector<Payload>& payloads,
                      const std::array<long, TRACKS>& writes) {
    std::map<Poco::UUID, std::vector<KeyCollection>> keysOf;
    for (const Payload& payload : payloads) {
        keysOf[payload.getSourceElementId()].push_back(payload.getSourcePropertyKeys());
    }
    for (int t = 0; t < TRACKS; ++t) {
        const std::vector<KeyCollection>& keys = keysOf[trackId(t)];
        KeyCollection present = {"album", "duration", "id",     "language",
                                 "name",  "number",   "rating", "uri"};
        if (writes[t] == 0) present.erase("rating");  // the first write sets it
        ASSERT_EQ(writes[t] + present.size(), keys.size()) << "track " << t;
        for (std::size_t k = 0; k < static_cast<std::size_t>(writes[t]); ++k) {
            // Write k + 1: a JSON update when odd, a write of the name alone when even.
            const KeyCollection& got = keys[k];
            const bool expected = k % 2 == 0 ? got.count("name") + got.count("rating") == 2
                                             : got == KeyCollection{"name"};
            EXPECT_TRUE(expected) << "track " << t << ", delivery " << k << " out of order";
        }
        KeyCollection gone;
        for (std::size_t k = writes[t]; k < keys.size(); ++k) {
            EXPECT_EQ(1u, keys[k].size()) << "track " << t << ", delivery " << k;
            gone.insert(keys[k].begin(), keys[k].end());
        }
        EXPECT_EQ(present, gone) << "track " << t;
    }
}

TEST(ConcurrencyStress, QueriesWritesChurnReferencesAndObserversAtOnce) {
    Watchdog watchdog(DEADLINE);
    ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    DataChangedRecorder recorder;
    Faults faults;
    std::vector<std::unique_ptr<Observer>> gone;
    std::array<long, TRACKS> writes{};  // each entry written by its writer only
    {
        Tree tree;
        ASSERT_NO_FATAL_FAILURE(load(tree));
        std::vector<AbstractResource::Ptr> owned(TRACKS);
        for (int t = 0; t < TRACKS; ++t) {
            ASSERT_TRUE(tree.tracks.getElement(trackId(t), owned[t]).isSuccess());
            recorder.subscribe(*owned[t]);
        }

        watchdog.enter("running the workers");
        const Clock::time_point end = Clock::now() + RUN_TIME;
        std::vector<std::thread> threads;
        for (int r = 0; r < 2; ++r) {
            Watchdog::Worker& worker = watchdog.add("reader " + std::to_string(r));
            threads.emplace_back([&, r, reader = &worker] {
                run(*reader, 100000, end, [&](long) {
                    readConsistently(tree, faults);
                    // Without the lock, as a client may: the rendering can hold the last Ptr
                    // of an album that is being removed.
                    if (r == 1) tree.albums.getDataAsJSON(1);
                });
            });
        }
        for (int w = 0; w < WRITERS; ++w) {
            Watchdog::Worker& worker = watchdog.add("writer " + std::to_string(w));
            threads.emplace_back([&, w, writer = &worker] {
                run(*writer, 3000, end, [&](long i) {
                    const int t = w * OWNED + static_cast<int>(i % OWNED);
                    writeOwned(tree, t, ++writes[t], faults);
                });
            });
        }
        Watchdog::Worker& churner = watchdog.add("churn");
        threads.emplace_back(
            [&] { run(churner, 2000, end, [&](long i) { churn(tree, i, faults); }); });
        Watchdog::Worker& observers = watchdog.add("observers");
        threads.emplace_back([&] {
            run(observers, 20000, end, [&](long i) { observeOnce(tree, i, gone, faults); });
        });
        for (std::thread& thread : threads) thread.join();
        EXPECT_GT(churner.ops.load(), 0);

        watchdog.enter("checking the final state");
        readConsistently(tree, faults);
        EXPECT_EQ(Texts{}, faults.list());
        EXPECT_EQ(static_cast<std::size_t>(ALBUMS), tree.albums.size());
        EXPECT_EQ(static_cast<std::size_t>(TRACKS), tree.tracks.size());
        {
            Util::ScopedRecursiveReadLock lock(*tree.service.getLock());
            for (int t = 0; t < TRACKS; ++t) {
                EXPECT_EQ(nameOf(t, writes[t]), owned[t]->getName().getValue()) << "lost update";
            }
        }
        int lateCalls = 0;
        for (const auto& removed : gone) lateCalls += removed->lateCalls;
        EXPECT_EQ(0, lateCalls) << "calls after the observer's removal had returned";

        watchdog.enter("tearing the tree down");
        owned.clear();
    }
    // The containers went full, most likely with deliveries still queued; the recorder outlives
    // them. "id", "name" and "uri" are raised only as a track goes, after its other raises.
    watchdog.enter("waiting for the deliveries");
    EXPECT_TRUE(recorder.waitUntil(
        [](const std::vector<Payload>& all) {
            return std::count_if(all.begin(), all.end(), [](const Payload& payload) {
                       return payload.getSourcePropertyKeys().count("uri") != 0;
                   }) == TRACKS;
        },
        DRAIN_TIME));
    expectDeliveries(recorder.payloads(), writes);
    // The album index orders a reference by its target's name. An extra track filed while its
    // album is missing sits under the placeholder's name; a reader that resolves the reference
    // to the album added again moves it under the album's name without the index seeing a
    // change, so the track's removal misses its entry (the documented fall-back) and the
    // entry's property reports its destruction as unknown. Whether a reader comes between
    // depends on timing; anything else logged is a fault.
    const std::string staleReference =
        "Warning: ProperyIndex: Received event from unknown property album from "
        "Media.Tracks.TrackObject";
    Texts logged = capture.texts();
    logged.erase(std::remove(logged.begin(), logged.end(), staleReference), logged.end());
    EXPECT_EQ(Texts{}, logged);
}

}  // namespace
}  // namespace Kivo::Data
