#ifndef QESSERVICEDATALIB_UTIL_RECURSIVERWLOCK_H
#define QESSERVICEDATALIB_UTIL_RECURSIVERWLOCK_H

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include <Poco/Bugcheck.h>
#include <Poco/SharedPtr.h>

/// The helpers the data model is written against: the recursive read/write lock, its scoped
/// holders and the query base.
namespace Kivo::Util {

/// A reader/writer lock that one thread may take again on either side.
///
/// - Many threads may hold the read side at once; one thread at a time holds the write side.
/// - Both sides are recursive: every lock call must be matched by one unlock call of the same
///   side on the same thread.
/// - The writer may take the read side as well (event handlers that read run inside setters
///   that write). A thread that is the only reader may also take the write side; two readers
///   that both try that wait for each other forever, so do not upgrade from shared reads.
/// - Once a writer waits, threads that do not hold the lock yet wait behind it, so a stream of
///   new readers cannot starve a writer. Threads already reading re-enter without waiting.
/// - Unlocking a side the calling thread does not hold throws Poco::IllegalStateException and
///   leaves the lock as it was.
///
/// The writer takes and releases the read side without touching the lock's mutex, so the reads
/// nested in a write cost a few instructions. Re-entry and the uncontended paths allocate nothing while a thread reads at most 16 locks at
/// once; the lock keeps the read holds of a thread beyond those in a map of its own. The
/// per-thread bookkeeping has no destructor, so locking keeps working while static objects are
/// destroyed at exit. The lock must outlive every holder; it is not copyable.
class RecursiveRWLock {
public:
    RecursiveRWLock() = default;
    RecursiveRWLock(const RecursiveRWLock&) = delete;
    RecursiveRWLock& operator=(const RecursiveRWLock&) = delete;
    /// REQUIRES: no thread holds the lock.
    virtual ~RecursiveRWLock() = default;

    /// Takes the read side for the calling thread. Returns at once when this thread already
    /// reads or writes; otherwise waits while another thread writes or a writer waits.
    void readLock() {
        // The writer's reads need no per-thread bookkeeping (a thread's read holds are one
        // count, whichever way they were booked).
        if (isWriter()) {
            ++m_writerReads;
            return;
        }
        takeReadSide();
    }
    /// Throws Poco::IllegalStateException if this thread holds no read lock on this object.
    void readUnlock() {
        if (isWriter() && m_writerReads > 0) {
            --m_writerReads;
            return;
        }
        giveUpReadSide();
    }
    /// Takes the write side for the calling thread. Returns at once when this thread already
    /// writes; otherwise waits until no other thread reads or writes. Waiting here while
    /// another reading thread does the same deadlocks both (see the class comment).
    void writeLock() {
        if (isWriter()) {
            ++m_writeDepth;
            return;
        }
        takeWriteSide();
    }
    /// Throws Poco::IllegalStateException if this thread does not hold the write side.
    void writeUnlock() {
        if (isWriter() && m_writeDepth > 1) {
            --m_writeDepth;
            return;
        }
        giveUpWriteSide();
    }

    /// Whether the calling thread holds either side of any RecursiveRWLock.
    static bool isAnyHeldByCallingThread();

private:
    // Nested takes and releases by the writer are handled inline above, as they are most of
    // the takes (event handlers re-enter the lock of the setter that raised the event); the
    // rest is here.
    bool isWriter() const {
        return m_writer.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }
    void takeReadSide();
    void giveUpReadSide();
    void takeWriteSide();
    void giveUpWriteSide();
    // Books the calling thread's last read hold of this lock out. REQUIRES: m_mutex.
    void releaseReadSide();
    // Books the read holds the writing thread took as an ordinary read hold, as it gives up the
    // write side. REQUIRES: m_mutex, and the calling thread writes.
    void bookWriterReads();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    // The writing thread; default-constructed id when nobody writes. Written under m_mutex;
    // read without it only to ask "is it me?", which no other thread can make true.
    std::atomic<std::thread::id> m_writer{};
    // Only ever touched by the writing thread.
    unsigned m_writeDepth = 0;
    // Read holds the writing thread took while it wrote: counted without the mutex (readers
    // wait for the writer anyway) and booked as a read hold only if the write side goes first.
    // Only ever touched by the writing thread.
    unsigned m_writerReads = 0;
    // Guarded by m_mutex: threads holding the read side, and threads waiting for either side.
    unsigned m_readerThreads = 0;
    unsigned m_waitingWriters = 0;
    unsigned m_waitingReaders = 0;
    // Guarded by m_mutex: read depth of the threads whose per-thread slots were all taken when
    // they first took the read side.
    std::map<std::thread::id, unsigned> m_overflowReads;
};

/// Holds one side of a RecursiveRWLock from construction to destruction (or to unlock()).
class ScopedRecursiveRWLock {
public:
    /// Takes the write side of `rwl` if `write`, else the read side, waiting as the lock does.
    /// `rwl` must outlive the holder.
    ScopedRecursiveRWLock(RecursiveRWLock& rwl, bool write) : _rwl(rwl), _write(write) { lock(); }
    ScopedRecursiveRWLock(const ScopedRecursiveRWLock&) = delete;
    ScopedRecursiveRWLock& operator=(const ScopedRecursiveRWLock&) = delete;
    /// Releases the side if still held. A failing release is reported through
    /// poco_unexpected(), never thrown.
    ~ScopedRecursiveRWLock() {
        try {
            unlock();
        } catch (...) {
            poco_unexpected();
        }
    }

    /// Takes the side again after unlock(). REQUIRES: the side is not held by this holder
    /// (a second call before unlock() takes it twice but releases it once).
    void lock() {
        if (_write) {
            _rwl.writeLock();
        } else {
            _rwl.readLock();
        }
        _locked = true;
    }

    /// Releases the side once; further calls do nothing until lock() is called again.
    void unlock() {
        if (!_locked) return;
        if (_write) {
            _rwl.writeUnlock();
        } else {
            _rwl.readUnlock();
        }
        _locked = false;
    }

private:
    RecursiveRWLock& _rwl;
    bool _write;
    bool _locked = false;
};

/// Holds the read side of a RecursiveRWLock for a scope.
class ScopedRecursiveReadLock : public ScopedRecursiveRWLock {
public:
    /// Takes the read side of `rwl`, which must outlive the holder.
    explicit ScopedRecursiveReadLock(RecursiveRWLock& rwl) : ScopedRecursiveRWLock(rwl, false) {}
};

/// Holds the write side of a RecursiveRWLock for a scope.
class ScopedRecursiveWriteLock : public ScopedRecursiveRWLock {
public:
    /// Takes the write side of `rwl`, which must outlive the holder.
    explicit ScopedRecursiveWriteLock(RecursiveRWLock& rwl) : ScopedRecursiveRWLock(rwl, true) {}
};

}  // namespace Kivo::Util

/// The library's data model (Kivo::Data) and the helpers it is written against (Kivo::Util).
namespace Kivo {
/// The lock shared by the objects of one tree; reference-counted.
using RecursiveRWLockPtr = Poco::SharedPtr<Util::RecursiveRWLock>;
}  // namespace Kivo

#endif  // QESSERVICEDATALIB_UTIL_RECURSIVERWLOCK_H
