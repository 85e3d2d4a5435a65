#ifndef QESSERVICEDATALIB_UTIL_EVENT_H
#define QESSERVICEDATALIB_UTIL_EVENT_H

#include <cstddef>
#include <vector>

#include <Poco/AbstractDelegate.h>
#include <Poco/Mutex.h>
#include <Poco/SharedPtr.h>

namespace Kivo::Util {

template <class TArgs>
class Event;

/// A library-internal observer of an Event, linked into the event itself so that watching
/// costs no allocation: the owner of a hook (an index watching the properties it files, say)
/// embeds it in a record it keeps anyway.
///
/// A hook is called while its event is enabled, before the event's delegates. Detach it before
/// it is destroyed, from a thread that no raise of the event runs concurrently with (the raise
/// copies the hooks it calls, as it copies its delegates): the writers of a tree's properties
/// and the filing at its indexes are serialised by the tree's lock, which gives that.
template <class TArgs>
class EventHook {
public:
    EventHook() = default;
    EventHook(const EventHook&) = delete;
    EventHook& operator=(const EventHook&) = delete;

    /// Called for every raise of the event the hook is attached to, on the raising thread.
    virtual void onEvent(const void* sender, TArgs& args) = 0;

protected:
    ~EventHook() = default;

private:
    friend class Event<TArgs>;
    EventHook* m_next = nullptr;
};

/// An event that costs three words until somebody subscribes: the delegate list is allocated
/// by the first subscription.
///
/// It behaves as Poco::BasicEvent does for its clients: `+=` and `-=` take any Poco delegate
/// (Poco::delegate, Poco::priorityDelegate, function delegates; priorities are not used for
/// ordering), notify calls the delegates in subscription order, on the raising thread, with
/// the delegate list copied under the event's own mutex and called without it; a delegate
/// removed by `-=` is not called any more, even by a raise that copied it before; a disabled
/// event raises nothing. Hooks (EventHook) come first and are neither counted by empty() nor
/// removed by clear().
///
/// Not copyable. Destroying an event while another thread raises or subscribes to it is not
/// allowed, as with any object.
template <class TArgs>
class Event {
public:
    /// The delegate type the event takes.
    typedef Poco::AbstractDelegate<TArgs> Delegate;

    /// The delegates of one moment, kept alive by shared pointers: a raise delivered later (on
    /// another thread, say) calls those subscribers without touching the event again.
    class Delegates {
    public:
        /// Whether there is nobody to call.
        bool empty() const { return m_delegates.empty(); }
        /// Calls each delegate that is still subscribed, in subscription order.
        void notify(const void* sender, TArgs& args) {
            for (auto& delegate : m_delegates) delegate->notify(sender, args);
        }

    private:
        friend class Event;
        std::vector<Poco::SharedPtr<Delegate>> m_delegates;
    };

    /// Enabled, without subscribers.
    Event() = default;
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    ~Event() { delete m_delegates; }

    /// Subscribes a copy of `delegate` after the current subscribers.
    void operator+=(const Delegate& delegate) {
        Poco::SharedPtr<Delegate> copy(delegate.clone());
        Lock lock(m_mutex);
        if (m_delegates == nullptr) m_delegates = new std::vector<Poco::SharedPtr<Delegate>>;
        m_delegates->push_back(copy);
    }
    /// Removes the first subscription equal to `delegate` and disables it, so no raise calls
    /// it after this returns; nothing when there is none.
    void operator-=(const Delegate& delegate) {
        Poco::SharedPtr<Delegate> removed;
        {
            Lock lock(m_mutex);
            if (m_delegates == nullptr) return;
            for (auto it = m_delegates->begin(); it != m_delegates->end(); ++it) {
                if (delegate.equals(**it)) {
                    (*it)->disable();
                    removed = *it;
                    m_delegates->erase(it);
                    break;
                }
            }
        }
    }

    /// Calls the hooks, then every delegate, unless the event is disabled.
    void notify(const void* sender, TArgs& args) {
        notify(sender, args, [] {});
    }
    /// As notify(sender, args), calling `first()` before the hooks when the event is enabled:
    /// the raiser's own observer that is not a subscription.
    template <class First>
    void notify(const void* sender, TArgs& args, First&& first) {
        HookList hooks;
        Delegates delegates;
        {
            Lock lock(m_mutex);
            if (!m_enabled) return;
            for (EventHook<TArgs>* hook = m_hooks; hook != nullptr; hook = hook->m_next) {
                hooks.push(hook);
            }
            if (m_delegates != nullptr) delegates.m_delegates = *m_delegates;
        }
        first();
        for (std::size_t i = 0; i < hooks.size(); ++i) hooks[i]->onEvent(sender, args);
        delegates.notify(sender, args);
    }

    /// The current delegates (none while disabled), copied under the event's mutex.
    Delegates copyDelegates() const {
        Delegates delegates;
        Lock lock(m_mutex);
        if (m_enabled && m_delegates != nullptr) delegates.m_delegates = *m_delegates;
        return delegates;
    }

    /// Lets raises through again.
    void enable() {
        Lock lock(m_mutex);
        m_enabled = true;
    }
    /// Makes raises call nobody, hooks included, until enable().
    void disable() {
        Lock lock(m_mutex);
        m_enabled = false;
    }
    /// Whether raises call anybody.
    bool isEnabled() const {
        Lock lock(m_mutex);
        return m_enabled;
    }
    /// Removes and disables every delegate; hooks stay.
    void clear() {
        std::vector<Poco::SharedPtr<Delegate>> removed;
        Lock lock(m_mutex);
        if (m_delegates == nullptr) return;
        for (auto& delegate : *m_delegates) delegate->disable();
        removed.swap(*m_delegates);
    }
    /// Whether no delegate is subscribed; hooks are not counted.
    bool empty() const {
        Lock lock(m_mutex);
        return m_delegates == nullptr || m_delegates->empty();
    }

    /// Links `hook` in after the hooks already attached. REQUIRES: it is not attached anywhere.
    void attach(EventHook<TArgs>& hook) {
        Lock lock(m_mutex);
        EventHook<TArgs>** tail = &m_hooks;
        while (*tail != nullptr) tail = &(*tail)->m_next;
        hook.m_next = nullptr;
        *tail = &hook;
    }
    /// Unlinks `hook`; nothing when it is not attached here.
    void detach(EventHook<TArgs>& hook) {
        Lock lock(m_mutex);
        for (EventHook<TArgs>** link = &m_hooks; *link != nullptr; link = &(*link)->m_next) {
            if (*link == &hook) {
                *link = hook.m_next;
                hook.m_next = nullptr;
                return;
            }
        }
    }

private:
    typedef Poco::SpinlockMutex::ScopedLock Lock;

    // The hooks of one raise: most events have none or one, so a few fit without allocation.
    class HookList {
    public:
        void push(EventHook<TArgs>* hook) {
            if (m_size < INLINE) {
                m_inline[m_size] = hook;
            } else {
                if (m_more.empty()) m_more.assign(m_inline, m_inline + INLINE);
                m_more.push_back(hook);
            }
            ++m_size;
        }
        std::size_t size() const { return m_size; }
        EventHook<TArgs>* operator[](std::size_t i) const {
            return m_size <= INLINE ? m_inline[i] : m_more[i];
        }

    private:
        static constexpr std::size_t INLINE = 4;
        EventHook<TArgs>* m_inline[INLINE];
        std::vector<EventHook<TArgs>*> m_more;
        std::size_t m_size = 0;
    };

    mutable Poco::SpinlockMutex m_mutex;
    bool m_enabled = true;                                          // guarded by m_mutex
    std::vector<Poco::SharedPtr<Delegate>>* m_delegates = nullptr;  // guarded by m_mutex; owned
    EventHook<TArgs>* m_hooks = nullptr;                            // guarded by m_mutex
};

}  // namespace Kivo::Util

#endif  // QESSERVICEDATALIB_UTIL_EVENT_H
