#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/FunctionDelegate.h>
#include <Poco/PriorityDelegate.h>
#include <gtest/gtest.h>

#include "Util/Event.h"

namespace Kivo::Test {
namespace {

using Util::Event;
using Util::EventHook;

std::vector<std::string> g_calls;

struct Subscriber {
    explicit Subscriber(std::string name) : name(std::move(name)) {}
    void onEvent(const void*, int& value) { g_calls.push_back(name + std::to_string(value)); }
    std::string name;
};

void onFunction(const void*, int& value) { g_calls.push_back("f" + std::to_string(value)); }

struct Hook : EventHook<int> {
    explicit Hook(std::string name) : name(std::move(name)) {}
    void onEvent(const void*, int& value) override {
        g_calls.push_back(name + std::to_string(value));
        if (event != nullptr) event->detach(*this);
    }
    std::string name;
    Event<int>* event = nullptr;  // detaches itself from it when called
};

std::vector<std::string> raise(Event<int>& event, int value) {
    g_calls.clear();
    event.notify(nullptr, value, [] { g_calls.push_back("first"); });
    return g_calls;
}

// Everything a client of Poco::BasicEvent relies on, with the hooks the library watches with:
// delegates of every kind in subscription order, removal of exactly one, a disabled event
// calling nobody, clear and empty counting delegates only, hooks first and in attach order.
TEST(Event, KeepsTheContractOfPocoEventsWithHooksFirst) {
    Event<int> event;
    Subscriber a("a"), b("b");
    EXPECT_TRUE(event.empty());
    event += Poco::delegate(&a, &Subscriber::onEvent);
    event += Poco::priorityDelegate(&b, &Subscriber::onEvent, -5);  // priority does not reorder
    event += Poco::delegate(&onFunction);
    Hook one("h"), two("k");
    event.attach(one);
    event.attach(two);
    EXPECT_EQ(raise(event, 1), (std::vector<std::string>{"first", "h1", "k1", "a1", "b1", "f1"}));

    event -= Poco::delegate(&a, &Subscriber::onEvent);
    event -= Poco::delegate(&a, &Subscriber::onEvent);  // nothing left to remove
    event.detach(one);
    EXPECT_EQ(raise(event, 2), (std::vector<std::string>{"first", "k2", "b2", "f2"}));

    event.disable();
    EXPECT_FALSE(event.isEnabled());
    EXPECT_TRUE(raise(event, 3).empty()) << "a disabled event calls nobody, hooks included";
    EXPECT_TRUE(event.copyDelegates().empty());
    event.enable();

    event.clear();
    EXPECT_TRUE(event.empty()) << "hooks are not subscriptions";
    EXPECT_EQ(raise(event, 4), (std::vector<std::string>{"first", "k4"})) << "clear keeps hooks";
    event.detach(two);
    event.detach(two);  // not attached: nothing happens
    EXPECT_EQ(raise(event, 5), (std::vector<std::string>{"first"}));
}

// The event's word holds the hooks until the first delegate comes and again once the last has
// gone: the hooks, their order and the disabled flag survive every change between the two forms.
TEST(Event, HooksAndDisabledFlagSurviveTheFirstAndLastDelegate) {
    typedef std::vector<std::string> Calls;
    Event<int> event;
    Subscriber a("a");
    const auto toA = Poco::delegate(&a, &Subscriber::onEvent);
    Hook one("h"), two("k"), three("m");
    event.attach(one);
    event.disable();
    event += toA;
    EXPECT_TRUE(raise(event, 1).empty()) << "disabled before the first delegate came";
    event.enable();
    event.attach(two);
    EXPECT_EQ(raise(event, 2), (Calls{"first", "h2", "k2", "a2"}));
    event.detach(one);
    event.disable();
    event -= toA;
    EXPECT_TRUE(event.empty());
    EXPECT_TRUE(raise(event, 3).empty()) << "disabled after the last delegate went";
    event.enable();
    event.attach(three);
    EXPECT_EQ(raise(event, 4), (Calls{"first", "k4", "m4"}));
    event += toA;
    event.clear();
    event.detach(two);
    EXPECT_EQ(raise(event, 5), (Calls{"first", "m5"}));
    event += toA;
    event.detach(three);
    EXPECT_EQ(raise(event, 6), (Calls{"first", "a6"}));
}

// A raise works on what it copied, yet a delegate removed meanwhile is not called, and a hook
// may detach itself while it runs; copied delegates outlive the event.
TEST(Event, RaisesSurviveChangesMadeWhileTheyRun) {
    Event<int> event;
    Subscriber later("later");
    struct Remover {
        void onEvent(const void*, int&) {
            g_calls.push_back("remover");
            (*event) -= Poco::delegate(later, &Subscriber::onEvent);
        }
        Event<int>* event;
        Subscriber* later;
    } remover{&event, &later};
    Hook self("self");
    self.event = &event;
    event.attach(self);
    event += Poco::delegate(&remover, &Remover::onEvent);
    event += Poco::delegate(&later, &Subscriber::onEvent);
    EXPECT_EQ(raise(event, 1), (std::vector<std::string>{"first", "self1", "remover"}));
    EXPECT_EQ(raise(event, 2), (std::vector<std::string>{"first", "remover"}));

    Event<int>::Delegates kept;
    {
        Event<int> gone;
        gone += Poco::delegate(&later, &Subscriber::onEvent);
        kept = gone.copyDelegates();
    }
    g_calls.clear();
    int value = 7;
    kept.notify(nullptr, value);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"later7"}));
}

}  // namespace
}  // namespace Kivo::Test
