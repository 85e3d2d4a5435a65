#ifndef QESSERVICEDATALIB_UTIL_EVENT_H
#define QESSERVICEDATALIB_UTIL_EVENT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include <Poco/AbstractDelegate.h>
#include <Poco/SharedPtr.h>

namespace Kivo::Util {

template <class TArgs>
class Event;

/// A library-internal observer of an Event that costs its owner one pointer: the owner of a
/// hook (an index watching the properties it files, say) embeds it in a record it keeps
/// anyway, and an event with one hook keeps it in its own word, without allocation.
///
/// A hook is called while its event is enabled, before the event's delegates. Detach it before
/// it is destroyed, from a thread that no raise of the event runs concurrently with (the raise
/// copies the hooks it calls, as it copies its delegates): the writers of a tree's properties
/// and the filing at its indexes are serialised by the tree's lock, which gives that.
///
/// Aligned to eight bytes on every platform: an event keeps a hook's address in its one word
/// together with three flag bits.
template <class TArgs>
class alignas(8) EventHook {
public:
    EventHook() = default;
    EventHook(const EventHook&) = delete;
    EventHook& operator=(const EventHook&) = delete;

    /// Called for every raise of the event the hook is attached to, on the raising thread.
    virtual void onEvent(const void* sender, TArgs& args) = 0;

protected:
    ~EventHook() = default;
};

/// An event that costs one word until somebody subscribes: one hook fits into the word, and a
/// block for the delegates (and further hooks) is allocated by the first subscription and freed
/// again when the last one goes.
///
/// It behaves as Poco::BasicEvent does for its clients: `+=` and `-=` take any Poco delegate
/// (Poco::delegate, Poco::priorityDelegate, function delegates; priorities are not used for
/// ordering), notify calls the delegates in subscription order, on the raising thread, with
/// the delegate list copied under the event's own lock and called without it; a delegate
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
    ~Event() {
        const std::uintptr_t state = m_state.load(std::memory_order_acquire);
        if ((state & BLOCK) != 0) delete static_cast<Block*>(addressOf(state));
    }

    /// Subscribes a copy of `delegate` after the current subscribers.
    void operator+=(const Delegate& delegate) {
        Poco::SharedPtr<Delegate> copy(delegate.clone());
        Guard guard(*this);
        guard.makeList().push_back(copy);
    }
    /// Removes the first subscription equal to `delegate` and disables it, so no raise calls
    /// it after this returns; nothing when there is none.
    void operator-=(const Delegate& delegate) {
        Poco::SharedPtr<Delegate> removed;
        Guard guard(*this);
        List* list = guard.list();
        if (list == nullptr) return;
        for (auto it = list->begin(); it != list->end(); ++it) {
            if (delegate.equals(**it)) {
                (*it)->disable();
                removed = *it;
                list->erase(it);
                break;
            }
        }
        guard.dropBlockIfUnneeded();
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
            Guard guard(*this);
            if (!guard.enabled()) return;
            if (Block* held = guard.block()) {
                for (EventHook<TArgs>* hook : held->hooks) hooks.push(hook);
            } else if (EventHook<TArgs>* hook = guard.hook()) {
                hooks.push(hook);
            }
            if (guard.list() != nullptr) delegates.m_delegates = *guard.list();
        }
        first();
        for (std::size_t i = 0; i < hooks.size(); ++i) hooks[i]->onEvent(sender, args);
        delegates.notify(sender, args);
    }

    /// The current delegates (none while disabled), copied under the event's lock.
    Delegates copyDelegates() const {
        Delegates delegates;
        Guard guard(*this);
        if (guard.enabled() && guard.list() != nullptr) delegates.m_delegates = *guard.list();
        return delegates;
    }

    /// Lets raises through again.
    void enable() {
        Guard guard(*this);
        guard.setEnabled(true);
    }
    /// Makes raises call nobody, hooks included, until enable().
    void disable() {
        Guard guard(*this);
        guard.setEnabled(false);
    }
    /// Whether raises call anybody.
    bool isEnabled() const { return (m_state.load(std::memory_order_acquire) & DISABLED) == 0; }
    /// Removes and disables every delegate; hooks stay.
    void clear() {
        List removed;
        Guard guard(*this);
        if (guard.list() == nullptr) return;
        for (auto& delegate : *guard.list()) delegate->disable();
        removed.swap(*guard.list());
        guard.dropBlockIfUnneeded();
    }
    /// Whether no delegate is subscribed; hooks are not counted.
    bool empty() const {
        Guard guard(*this);
        return guard.list() == nullptr || guard.list()->empty();
    }

    /// Adds `hook` after the hooks already attached. REQUIRES: it is not attached here.
    void attach(EventHook<TArgs>& hook) {
        Guard guard(*this);
        if (Block* held = guard.block()) {
            held->hooks.push_back(&hook);
        } else if (EventHook<TArgs>* only = guard.hook()) {
            guard.makeBlock().hooks = {only, &hook};
        } else {
            guard.setHook(&hook);
        }
    }
    /// Removes `hook`; nothing when it is not attached here.
    void detach(EventHook<TArgs>& hook) {
        Guard guard(*this);
        if (Block* held = guard.block()) {
            for (auto it = held->hooks.begin(); it != held->hooks.end(); ++it) {
                if (*it == &hook) {
                    held->hooks.erase(it);
                    break;
                }
            }
            guard.dropBlockIfUnneeded();
        } else if (guard.hook() == &hook) {
            guard.setHook(nullptr);
        }
    }

private:
    typedef std::vector<Poco::SharedPtr<Delegate>> List;

    // Allocated while the event has delegates or more than one hook: the delegates and all
    // hooks, in the order they came.
    struct alignas(8) Block {
        List delegates;
        std::vector<EventHook<TArgs>*> hooks;
    };

    // The state word holds an address and three flags in the low bits its alignment leaves
    // free: the lock, "disabled", and whether the address is a Block's (else it is the one
    // hook's, or 0). With one hook and no delegate an event allocates nothing: an index hooks
    // into two events of every property it files. The lock is held for a few instructions (a
    // list copy at most), so it spins, yielding the processor after a while.
    static constexpr std::uintptr_t LOCKED = 1;
    static constexpr std::uintptr_t DISABLED = 2;
    static constexpr std::uintptr_t BLOCK = 4;
    static constexpr std::uintptr_t FLAGS = LOCKED | DISABLED | BLOCK;
    static_assert(alignof(Block) > FLAGS, "the flags need the block's low bits");
    static_assert(alignof(EventHook<TArgs>) > FLAGS, "the flags need the hook's low bits");

    static void* addressOf(std::uintptr_t state) { return reinterpret_cast<void*>(state & ~FLAGS); }

    // Holds the event's lock for a scope and works on the state it read when taking it; the
    // state, changed or not, is written back when the lock is released.
    class Guard {
    public:
        explicit Guard(const Event& event) : m_word(event.m_state), m_state(acquire(m_word)) {}
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;
        ~Guard() { m_word.store(m_state, std::memory_order_release); }

        // The delegate list; null while there is no block.
        List* list() const { return block() != nullptr ? &block()->delegates : nullptr; }
        // The list, allocated with its block if there was none.
        List& makeList() { return makeBlock().delegates; }
        // The block, allocated (with the one hook moved into it) if there was none.
        Block& makeBlock() {
            if (block() == nullptr) {
                Block* made = new Block;
                if (EventHook<TArgs>* only = hook()) made->hooks.push_back(only);
                m_state = reinterpret_cast<std::uintptr_t>(made) | BLOCK | (m_state & DISABLED);
            }
            return *block();
        }
        // Frees the block once it holds no delegate and at most one hook, so that the event is
        // one word again. The list is empty, so no delegate is destroyed under the lock.
        void dropBlockIfUnneeded() {
            Block* held = block();
            if (held == nullptr || !held->delegates.empty() || held->hooks.size() > 1) return;
            EventHook<TArgs>* const only = held->hooks.empty() ? nullptr : held->hooks.front();
            m_state = reinterpret_cast<std::uintptr_t>(only) | (m_state & DISABLED);
            delete held;
        }
        // The block; null while the word holds one hook or none.
        Block* block() const {
            return (m_state & BLOCK) != 0 ? static_cast<Block*>(addressOf(m_state)) : nullptr;
        }
        // The one hook the word holds; null when it holds none or a block.
        EventHook<TArgs>* hook() const {
            if ((m_state & BLOCK) != 0) return nullptr;
            return static_cast<EventHook<TArgs>*>(addressOf(m_state));
        }
        // Puts `hook` (or none) into the word. REQUIRES: there is no block.
        void setHook(EventHook<TArgs>* hook) {
            m_state = reinterpret_cast<std::uintptr_t>(hook) | (m_state & DISABLED);
        }
        bool enabled() const { return (m_state & DISABLED) == 0; }
        void setEnabled(bool enabled) {
            m_state = enabled ? m_state & ~DISABLED : m_state | DISABLED;
        }

    private:
        static std::uintptr_t acquire(std::atomic<std::uintptr_t>& word) {
            for (unsigned spins = 0;; ++spins) {
                const std::uintptr_t seen = word.fetch_or(LOCKED, std::memory_order_acquire);
                if ((seen & LOCKED) == 0) return seen;
                if (spins >= SPINS_BEFORE_YIELD) std::this_thread::yield();
            }
        }
        static constexpr unsigned SPINS_BEFORE_YIELD = 64;

        std::atomic<std::uintptr_t>& m_word;
        std::uintptr_t m_state;  // without LOCKED
    };

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

    // The block it addresses is owned, the hooks are not; all of it is guarded by the lock bit.
    mutable std::atomic<std::uintptr_t> m_state{0};
};

}  // namespace Kivo::Util

#endif  // QESSERVICEDATALIB_UTIL_EVENT_H
