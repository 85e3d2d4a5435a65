#include "Util/RecursiveRWLock.h"

#include <cstddef>
#include <type_traits>

#include <Poco/Exception.h>

namespace Kivo::Util {

namespace {

// How deep the calling thread holds the read side of each lock it reads, in a few fixed slots
// scanned linearly: a thread seldom holds more than a few locks at once. Further holds go to
// the lock's own overflow map. Trivially destructible on purpose: the runtime destroys the main
// thread's thread_local objects before static objects, and a tree held in a static object is
// read (and so locked) while it is torn down at exit.
constexpr std::size_t READ_HOLD_SLOTS = 16;

struct ReadHold {
    const RecursiveRWLock* lock;
    unsigned depth;
};

struct ThreadHolds {
    ReadHold reads[READ_HOLD_SLOTS];
    std::size_t readCount;  // slots in use, from the front
    unsigned sidesHeld;     // sides (read or write) of any lock the thread holds, overflow included
};
static_assert(std::is_trivially_destructible_v<ThreadHolds>);

thread_local ThreadHolds t_holds;

ReadHold* findReadHold(const RecursiveRWLock* lock) {
    for (std::size_t i = 0; i < t_holds.readCount; ++i) {
        if (t_holds.reads[i].lock == lock) return &t_holds.reads[i];
    }
    return nullptr;
}

void dropReadHold(ReadHold* hold) { *hold = t_holds.reads[--t_holds.readCount]; }

}  // namespace

bool RecursiveRWLock::isAnyHeldByCallingThread() { return t_holds.sidesHeld != 0; }

void RecursiveRWLock::takeReadSide() {
    if (ReadHold* hold = findReadHold(this)) {
        ++hold->depth;
        return;
    }
    std::unique_lock<std::mutex> guard(m_mutex);
    const auto overflow = m_overflowReads.find(std::this_thread::get_id());
    if (overflow != m_overflowReads.end()) {
        ++overflow->second;
        return;
    }
    if (!isWriter()) {
        ++m_waitingReaders;
        m_changed.wait(guard, [this] {
            return m_writer.load(std::memory_order_relaxed) == std::thread::id() &&
                   m_waitingWriters == 0;
        });
        --m_waitingReaders;
    }
    if (t_holds.readCount < READ_HOLD_SLOTS) {
        t_holds.reads[t_holds.readCount++] = ReadHold{this, 1};
    } else {
        m_overflowReads.emplace(std::this_thread::get_id(), 1);
    }
    ++m_readerThreads;
    ++t_holds.sidesHeld;
}

void RecursiveRWLock::giveUpReadSide() {
    if (ReadHold* hold = findReadHold(this)) {
        if (--hold->depth > 0) return;
        dropReadHold(hold);
        std::lock_guard<std::mutex> guard(m_mutex);
        releaseReadSide();
        return;
    }
    std::lock_guard<std::mutex> guard(m_mutex);
    const auto overflow = m_overflowReads.find(std::this_thread::get_id());
    if (overflow == m_overflowReads.end()) {
        throw Poco::IllegalStateException("RecursiveRWLock: read side is not held by this thread");
    }
    if (--overflow->second > 0) return;
    m_overflowReads.erase(overflow);
    releaseReadSide();
}

void RecursiveRWLock::releaseReadSide() {
    --t_holds.sidesHeld;
    --m_readerThreads;
    if (m_waitingWriters > 0) m_changed.notify_all();
}

void RecursiveRWLock::bookWriterReads() {
    const unsigned depth = m_writerReads;
    m_writerReads = 0;
    if (ReadHold* hold = findReadHold(this)) {
        hold->depth += depth;
        return;
    }
    const auto overflow = m_overflowReads.find(std::this_thread::get_id());
    if (overflow != m_overflowReads.end()) {
        overflow->second += depth;
        return;
    }
    if (t_holds.readCount < READ_HOLD_SLOTS) {
        t_holds.reads[t_holds.readCount++] = ReadHold{this, depth};
    } else {
        m_overflowReads.emplace(std::this_thread::get_id(), depth);
    }
    ++m_readerThreads;
    ++t_holds.sidesHeld;
}

void RecursiveRWLock::takeWriteSide() {
    const bool readsInSlot = findReadHold(this) != nullptr;
    std::unique_lock<std::mutex> guard(m_mutex);
    const unsigned ownReads =
        readsInSlot || m_overflowReads.count(std::this_thread::get_id()) != 0 ? 1 : 0;
    ++m_waitingWriters;
    m_changed.wait(guard, [this, ownReads] {
        return m_writer.load(std::memory_order_relaxed) == std::thread::id() &&
               m_readerThreads == ownReads;
    });
    --m_waitingWriters;
    m_writer.store(std::this_thread::get_id(), std::memory_order_relaxed);
    m_writeDepth = 1;
    ++t_holds.sidesHeld;
}

void RecursiveRWLock::giveUpWriteSide() {
    if (!isWriter()) {
        throw Poco::IllegalStateException("RecursiveRWLock: write side is not held by this thread");
    }
    if (--m_writeDepth > 0) return;
    --t_holds.sidesHeld;
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_writerReads > 0) bookWriterReads();
    m_writer.store(std::thread::id(), std::memory_order_relaxed);
    if (m_waitingWriters > 0 || m_waitingReaders > 0) m_changed.notify_all();
}

}  // namespace Kivo::Util
