// A process that keeps its tree and a subscriber in static objects and returns from main, so the
// tree is torn down among the static objects, after the runtime has destroyed the main thread's
// thread_local objects. Given "shutdown", it ends DataChanged delivery before returning; every
// later delivery must then run on the main thread. The subscriber, destroyed after the tree,
// exits with status 1 when a delivery went missing or ran on a pool thread after the shutdown.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include <Poco/Delegate.h>

#include "Data/DataChangedDelivery.h"
#include "Data/ElementFixture.h"

namespace {

using Kivo::Data::DataChangedDelivery;
using Kivo::Test::TestElement;
using Items = Kivo::Test::TestContainer<TestElement>;

constexpr int ELEMENTS = 20;
// Each element raises for its write and, as it is destroyed, for its seven present properties.
constexpr int TEARDOWN_RAISES = 7;

// Ends the process at once, static objects and all, unless `ok`.
void require(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "%s\n", what);
    std::_Exit(1);
}

class Subscriber {
public:
    ~Subscriber() {
        std::lock_guard<std::mutex> lock(m_mutex);
        require(m_delivered == ELEMENTS * (1 + TEARDOWN_RAISES) + (m_shutDown ? 1 : 0),
                "a delivery went missing");
        require(m_onPoolAfterShutdown == 0, "a delivery ran on a pool thread after the shutdown");
    }

    void onDataChanged(const void*, TestElement::DataChangedEventPayload&) {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_delivered;
        if (m_shutDown && std::this_thread::get_id() != m_mainThread) ++m_onPoolAfterShutdown;
        // Slow while asynchronous, so the shutdown has deliveries to wait for.
        if (!m_shutDown) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    int delivered() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_delivered;
    }
    void shutDown() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_shutDown = true;
    }

private:
    const std::thread::id m_mainThread = std::this_thread::get_id();
    std::mutex m_mutex;
    int m_delivered = 0;            // guarded by m_mutex
    int m_onPoolAfterShutdown = 0;  // guarded by m_mutex
    bool m_shutDown = false;        // guarded by m_mutex
};

struct Tree {
    Kivo::Data::Service service{"Media", "", 1, Kivo::Test::PropertyValueUuid()};
    Items items{service, "Items"};
};

}  // namespace

int main(int argc, char** argv) {
    // The subscriber is constructed first, so it is destroyed after the tree.
    static Subscriber subscriber;
    static Tree tree;
    const auto json = Kivo::Test::parseObject(R"({"title":"new"})");
    for (int i = 0; i < ELEMENTS; ++i)
        require(tree.items.addElement(json.get()).isSuccess(), "add");
    Items::ElementQueryResult elements;
    require(tree.items.getElements(elements, 0, ELEMENTS).isSuccess(), "list");
    for (auto& element : elements) {
        element->DataChanged += Poco::delegate(&subscriber, &Subscriber::onDataChanged);
        require(element->setProperty("title", "changed").isSuccess(), "write");
    }
    Items::ElementQueryResult found;
    require(tree.items.findElements(Kivo::Test::keyQuery("title", "changed"), found).isSuccess() &&
                found.size() == ELEMENTS,
            "the index does not find the written elements");

    if (argc > 1 && std::strcmp(argv[1], "shutdown") == 0) {
        require(DataChangedDelivery::shutdown(), "shutdown refused");
        require(subscriber.delivered() == ELEMENTS, "shutdown returned before delivering");
        subscriber.shutDown();
        require(elements.front()->setProperty("title", "late").isSuccess(), "late write");
        require(subscriber.delivered() == ELEMENTS + 1, "a later raise was not delivered at once");
    }
    return 0;
}
