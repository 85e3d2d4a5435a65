#include "Util/RecursiveRWLock.h"

#include <vector>

#include <Poco/Exception.h>

namespace Kivo::Util {

namespace {

// How deep the current thread holds the read side of each lock it reads. A thread seldom
// holds more than a few locks at once, so a short vector scanned linearly beats a map, and
// its capacity is kept, so steady-state locking allocates nothing.
struct ReadHold {
    const RecursiveRWLock* lock;
    unsigned depth;
};

thread_local std::vector<ReadHold> t_readHolds;

ReadHold* findReadHold(const RecursiveRWLock* lock) {
    for (ReadHold& hold : t_readHolds) {
        if (hold.lock == lock) return &hold;
    }
    return nullptr;
}

void dropReadHold(ReadHold* hold) {
    *hold = t_readHolds.back();
    t_readHolds.pop_back();
}

}  // namespace

bool RecursiveRWLock::isWriter() const {
    return m_writer.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void RecursiveRWLock::readLock() {
    if (ReadHold* hold = findReadHold(this)) {
        ++hold->depth;
        return;
    }
    std::unique_lock<std::mutex> guard(m_mutex);
    if (!isWriter()) {
        ++m_waitingReaders;
        m_changed.wait(guard, [this] {
            return m_writer.load(std::memory_order_relaxed) == std::thread::id() &&
                   m_waitingWriters == 0;
        });
        --m_waitingReaders;
    }
    ++m_readerThreads;
    t_readHolds.push_back(ReadHold{this, 1});
}

void RecursiveRWLock::readUnlock() {
    ReadHold* hold = findReadHold(this);
    if (hold == nullptr) {
        throw Poco::IllegalStateException("RecursiveRWLock: read side is not held by this thread");
    }
    if (--hold->depth > 0) return;
    dropReadHold(hold);
    std::lock_guard<std::mutex> guard(m_mutex);
    --m_readerThreads;
    if (m_waitingWriters > 0) m_changed.notify_all();
}

void RecursiveRWLock::writeLock() {
    if (isWriter()) {
        ++m_writeDepth;
        return;
    }
    const unsigned ownReads = findReadHold(this) != nullptr ? 1 : 0;
    std::unique_lock<std::mutex> guard(m_mutex);
    ++m_waitingWriters;
    m_changed.wait(guard, [this, ownReads] {
        return m_writer.load(std::memory_order_relaxed) == std::thread::id() &&
               m_readerThreads == ownReads;
    });
    --m_waitingWriters;
    m_writer.store(std::this_thread::get_id(), std::memory_order_relaxed);
    m_writeDepth = 1;
}

void RecursiveRWLock::writeUnlock() {
    if (!isWriter()) {
        throw Poco::IllegalStateException("RecursiveRWLock: write side is not held by this thread");
    }
    if (--m_writeDepth > 0) return;
    std::lock_guard<std::mutex> guard(m_mutex);
    m_writer.store(std::thread::id(), std::memory_order_relaxed);
    if (m_waitingWriters > 0 || m_waitingReaders > 0) m_changed.notify_all();
}

}  // namespace Kivo::Util
