#include "Util/RecursiveRWLock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

namespace {

using Kivo::Util::RecursiveRWLock;
using Kivo::Util::ScopedRecursiveReadLock;
using Kivo::Util::ScopedRecursiveWriteLock;
using Clock = std::chrono::steady_clock;

// How long a step may take before the test calls it a hang. It bounds the waits of a test so a
// broken lock fails the test instead of stalling the run; reaching it never means "too slow".
constexpr std::chrono::seconds HANG_LIMIT(20);
// How long a whole test may run before the watchdog ends the run.
constexpr std::chrono::seconds WATCHDOG_LIMIT(300);

// Aborts the run, naming the test, if the test still runs after WATCHDOG_LIMIT: a deadlock the
// test cannot bound by itself (a thread stuck in the lock on the test's own thread) fails the
// run instead of stalling it.
class Watchdog {
public:
    Watchdog() : m_thread([this] { watch(); }) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_testDone = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

private:
    void watch() {
        std::unique_lock<std::mutex> guard(m_mutex);
        if (m_changed.wait_for(guard, WATCHDOG_LIMIT, [this] { return m_testDone; })) return;
        const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
        std::fprintf(stderr, "%s.%s still runs after %lld s: deadlock, aborting\n",
                     test->test_suite_name(), test->name(),
                     static_cast<long long>(WATCHDOG_LIMIT.count()));
        std::abort();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_testDone = false;  // guarded by m_mutex
    std::thread m_thread;
};

class RecursiveRWLockTest : public ::testing::Test {
private:
    Watchdog m_watchdog;
};

class ScopedRecursiveRWLockTest : public RecursiveRWLockTest {};

// Runs `work` on a new thread and reports whether it returned within HANG_LIMIT. On a hang the
// thread is abandoned, so `work` must own (by shared_ptr) everything it touches.
bool finishesOnAnotherThread(std::function<void()> work) {
    std::packaged_task<void()> task(std::move(work));
    std::future<void> done = task.get_future();
    std::thread thread(std::move(task));
    if (done.wait_for(HANG_LIMIT) != std::future_status::ready) {
        thread.detach();
        return false;
    }
    thread.join();
    done.get();  // rethrows what `work` threw
    return true;
}

// Whether another thread can take and release the write side: true only if no thread holds
// either side of the lock.
bool isFree(const std::shared_ptr<RecursiveRWLock>& lock) {
    return finishesOnAnotherThread([lock] {
        lock->writeLock();
        lock->writeUnlock();
    });
}

// Whether another thread can take and release the read side: true only if no thread holds or
// waits for the write side.
bool isReadable(const std::shared_ptr<RecursiveRWLock>& lock) {
    return finishesOnAnotherThread([lock] {
        lock->readLock();
        lock->readUnlock();
    });
}

// Lets a fixed number of threads meet. arriveAndWait() returns false if the others have not all
// arrived by `deadline`.
class Latch {
public:
    explicit Latch(int count) : m_remaining(count) {}

    bool arriveAndWait(Clock::time_point deadline) {
        std::unique_lock<std::mutex> guard(m_mutex);
        if (--m_remaining == 0) m_allArrived.notify_all();
        return m_allArrived.wait_until(guard, deadline, [this] { return m_remaining <= 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_allArrived;
    int m_remaining;  // guarded by m_mutex
};

// A flag one thread raises and others wait for, with a deadline.
class Signal {
public:
    void raise() {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_raised = true;
        m_changed.notify_all();
    }

    bool waitUntil(Clock::time_point deadline) {
        std::unique_lock<std::mutex> guard(m_mutex);
        return m_changed.wait_until(guard, deadline, [this] { return m_raised; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_raised = false;  // guarded by m_mutex
};

enum class Step {
    READ_LOCK,
    READ_UNLOCK,
    WRITE_LOCK,
    WRITE_UNLOCK,
    // Checks, in the middle of a sequence, that another thread can read now.
    OTHERS_CAN_READ,
};

void apply(RecursiveRWLock& lock, Step step) {
    switch (step) {
        case Step::READ_LOCK:
            return lock.readLock();
        case Step::READ_UNLOCK:
            return lock.readUnlock();
        case Step::WRITE_LOCK:
            return lock.writeLock();
        case Step::WRITE_UNLOCK:
            return lock.writeUnlock();
        case Step::OTHERS_CAN_READ:
            return;
    }
}

// Applies `steps` on the calling thread, then checks that the lock is free and the thread holds
// nothing. Returns what went wrong, or an empty string.
std::string runSequence(const std::shared_ptr<RecursiveRWLock>& lock,
                        const std::vector<Step>& steps) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
        apply(*lock, steps[i]);
        if (steps[i] == Step::OTHERS_CAN_READ && !isReadable(lock)) {
            return "another thread could not read at step " + std::to_string(i);
        }
    }
    if (!isFree(lock)) return "the lock is still held after the sequence";
    try {
        lock->readUnlock();
        return "a read hold survived the sequence";
    } catch (const Poco::IllegalStateException&) {
    }
    try {
        lock->writeUnlock();
        return "a write hold survived the sequence";
    } catch (const Poco::IllegalStateException&) {
    }
    return "";
}

// Every balanced sequence of one thread's lock calls must leave the lock free and leave the
// thread holding nothing.
TEST_F(RecursiveRWLockTest, BalancedSequencesOnOneThreadReleaseEverything) {
    using S = Step;
    struct Row {
        const char* name;
        std::vector<Step> steps;
    };
    const Row rows[] = {
        {"read three deep",
         {S::READ_LOCK, S::READ_LOCK, S::OTHERS_CAN_READ, S::READ_LOCK, S::READ_UNLOCK,
          S::READ_UNLOCK, S::READ_UNLOCK}},
        {"write three deep",
         {S::WRITE_LOCK, S::WRITE_LOCK, S::WRITE_LOCK, S::WRITE_UNLOCK, S::WRITE_UNLOCK,
          S::WRITE_UNLOCK}},
        {"writer reads inside", {S::WRITE_LOCK, S::READ_LOCK, S::READ_UNLOCK, S::WRITE_UNLOCK}},
        {"writer keeps reading after writeUnlock",
         {S::WRITE_LOCK, S::READ_LOCK, S::WRITE_UNLOCK, S::OTHERS_CAN_READ, S::READ_UNLOCK}},
        {"nested write and read, released crosswise",
         {S::WRITE_LOCK, S::READ_LOCK, S::WRITE_LOCK, S::READ_LOCK, S::WRITE_UNLOCK,
          S::WRITE_UNLOCK, S::READ_UNLOCK, S::OTHERS_CAN_READ, S::READ_UNLOCK}},
        {"sole reader upgrades",
         {S::READ_LOCK, S::WRITE_LOCK, S::WRITE_UNLOCK, S::OTHERS_CAN_READ, S::READ_UNLOCK}},
        {"nested reader upgrades and reads under write",
         {S::READ_LOCK, S::READ_LOCK, S::WRITE_LOCK, S::READ_LOCK, S::READ_UNLOCK, S::WRITE_UNLOCK,
          S::READ_UNLOCK, S::READ_UNLOCK}},
    };
    for (const Row& row : rows) {
        auto lock = std::make_shared<RecursiveRWLock>();
        auto problem = std::make_shared<std::string>();
        // A wrong lock could block the thread on its own hold, so the sequence runs bounded.
        const bool finished = finishesOnAnotherThread(
            [lock, problem, row] { *problem = runSequence(lock, row.steps); });
        EXPECT_TRUE(finished) << row.name << ": hung";
        EXPECT_EQ(*problem, "") << row.name;
    }
}

// Misuse throws and changes nothing: the holds the thread had are still there, exactly once,
// and releasing them frees the lock.
TEST_F(RecursiveRWLockTest, UnlockingWhatThisThreadDoesNotHoldThrowsAndKeepsState) {
    struct Row {
        const char* name;
        bool holdRead;
        bool holdWrite;
        // The faulty call, made on the holding thread unless `fromOtherThread`.
        bool unlockWrite;
        bool fromOtherThread;
    };
    const Row rows[] = {
        {"readUnlock without any hold", false, false, false, false},
        {"writeUnlock without any hold", false, false, true, false},
        {"writeUnlock while only reading", true, false, true, false},
        {"readUnlock while only writing", false, true, false, false},
        {"readUnlock from a thread that does not read", true, false, false, true},
        {"writeUnlock from a thread that does not write", false, true, true, true},
        {"writeUnlock from another thread of a writer that reads", true, true, true, true},
    };
    for (const Row& row : rows) {
        auto lock = std::make_shared<RecursiveRWLock>();
        if (row.holdWrite) lock->writeLock();
        if (row.holdRead) lock->readLock();

        auto faultyUnlock = [lock, row] {
            EXPECT_THROW(row.unlockWrite ? lock->writeUnlock() : lock->readUnlock(),
                         Poco::IllegalStateException)
                << row.name;
        };
        if (row.fromOtherThread) {
            EXPECT_TRUE(finishesOnAnotherThread(faultyUnlock)) << row.name;
        } else {
            faultyUnlock();
        }

        if (row.holdRead) {
            EXPECT_NO_THROW(lock->readUnlock()) << row.name;
        }
        if (row.holdWrite) {
            EXPECT_NO_THROW(lock->writeUnlock()) << row.name;
        }
        EXPECT_THROW(lock->readUnlock(), Poco::IllegalStateException) << row.name;
        EXPECT_THROW(lock->writeUnlock(), Poco::IllegalStateException) << row.name;
        EXPECT_TRUE(isFree(lock)) << row.name;
    }
}

// Each of the threads takes the read side and then waits for all the others: the meeting
// only happens if they all hold it at the same time.
TEST_F(RecursiveRWLockTest, ManyThreadsHoldTheReadSideAtOnce) {
    constexpr int READERS = 6;
    RecursiveRWLock lock;
    Latch allReading(READERS);
    const Clock::time_point deadline = Clock::now() + HANG_LIMIT;
    std::atomic<int> met{0};

    std::vector<std::thread> readers;
    for (int i = 0; i < READERS; ++i) {
        readers.emplace_back([&] {
            lock.readLock();
            if (allReading.arriveAndWait(deadline)) ++met;
            lock.readUnlock();
        });
    }
    for (std::thread& reader : readers) reader.join();

    EXPECT_EQ(met.load(), READERS);
}

// Writers update a plain counter in two steps with a yield between them; without exclusion
// updates get lost (and ThreadSanitizer reports the race). Readers check that no writer is
// inside while they read, and writers check that nobody else is.
TEST_F(RecursiveRWLockTest, WriterExcludesWritersAndReaders) {
    constexpr int WRITERS = 4;
    constexpr int READERS = 2;
    constexpr int ROUNDS = 2000;
    RecursiveRWLock lock;
    long counter = 0;  // guarded by lock
    std::atomic<int> writersInside{0};
    std::atomic<int> readersInside{0};
    std::atomic<int> violations{0};

    std::vector<std::thread> threads;
    for (int w = 0; w < WRITERS; ++w) {
        threads.emplace_back([&, w] {
            for (int i = 0; i < ROUNDS; ++i) {
                lock.writeLock();
                if (++writersInside != 1 || readersInside.load() != 0) ++violations;
                // Every other round re-enters both sides, as a setter whose handlers read does.
                const bool nested = (i + w) % 2 == 0;
                if (nested) {
                    lock.writeLock();
                    lock.readLock();
                }
                const long seen = counter;
                std::this_thread::yield();
                if (writersInside.load() != 1 || readersInside.load() != 0) ++violations;
                counter = seen + 1;
                if (nested) {
                    lock.readUnlock();
                    lock.writeUnlock();
                }
                --writersInside;
                lock.writeUnlock();
            }
        });
    }
    for (int r = 0; r < READERS; ++r) {
        threads.emplace_back([&] {
            long last = 0;
            for (int i = 0; i < ROUNDS; ++i) {
                lock.readLock();
                ++readersInside;
                for (int check = 0; check < 3; ++check) {
                    if (writersInside.load() != 0) ++violations;
                    std::this_thread::yield();
                }
                if (counter < last) ++violations;
                last = counter;
                --readersInside;
                lock.readUnlock();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(counter, static_cast<long>(WRITERS) * ROUNDS);
    EXPECT_EQ(violations.load(), 0);
}

// The sole reader upgrades; a reader thread that arrives meanwhile must see the whole write.
TEST_F(RecursiveRWLockTest, UpgradedReaderExcludesOtherReaders) {
    RecursiveRWLock lock;
    int value = 0;  // guarded by lock
    Signal upgraded;
    const Clock::time_point deadline = Clock::now() + HANG_LIMIT;
    int seenByReader = -1;

    lock.readLock();
    lock.writeLock();
    std::thread reader([&] {
        upgraded.raise();
        lock.readLock();
        seenByReader = value;
        lock.readUnlock();
    });
    EXPECT_TRUE(upgraded.waitUntil(deadline));
    value = 1;
    std::this_thread::yield();
    value = 2;
    lock.writeUnlock();
    lock.readUnlock();
    reader.join();

    EXPECT_EQ(seenByReader, 2);
}

// A reader that upgrades waits until every other reader has left. The other reader stays until
// the upgrade has been asked for and then lingers a while before leaving, so an upgrade that
// did not wait would be writing while it still reads.
TEST_F(RecursiveRWLockTest, UpgradeWaitsForOtherReaders) {
    constexpr int LINGER_YIELDS = 1000;
    RecursiveRWLock lock;
    Signal otherReads;
    std::atomic<bool> upgradeAsked{false};
    std::atomic<bool> otherLeft{false};
    const Clock::time_point deadline = Clock::now() + HANG_LIMIT;

    lock.readLock();
    std::thread other([&] {
        lock.readLock();
        otherReads.raise();
        while (!upgradeAsked.load() && Clock::now() < deadline) std::this_thread::yield();
        for (int i = 0; i < LINGER_YIELDS; ++i) std::this_thread::yield();
        otherLeft = true;
        lock.readUnlock();
    });
    EXPECT_TRUE(otherReads.waitUntil(deadline));
    upgradeAsked = true;
    lock.writeLock();
    const bool otherHadLeft = otherLeft.load();
    lock.writeUnlock();
    lock.readUnlock();
    other.join();

    EXPECT_TRUE(otherHadLeft);
}

// Readers pass the read side among themselves so that it never falls free: a reader leaves
// only while another one is inside too (an atomic count that the leavers never take from 1 to
// 0), and takes it again at once, nesting a second read as handlers do. Without writer
// preference the writer would wait for good. With it, a waiting writer holds back every new
// read, so the last reader inside finds no company and, after a bounded number of tries,
// leaves alone and lets the writer in.
TEST_F(RecursiveRWLockTest, WaitingWriterIsNotStarvedByCyclingReaders) {
    constexpr int READERS = 4;
    constexpr int TRIES_BEFORE_LEAVING_ALONE = 20000;
    RecursiveRWLock lock;
    std::atomic<int> readersInside{0};
    std::atomic<bool> writerDone{false};
    std::atomic<bool> gaveUp{false};
    const Clock::time_point deadline = Clock::now() + HANG_LIMIT;

    // Leaves the count one lower unless that would make it 0; false when it would.
    auto leaveIfNotLast = [&readersInside] {
        int inside = readersInside.load();
        while (inside >= 2) {
            if (readersInside.compare_exchange_weak(inside, inside - 1)) return true;
        }
        return false;
    };
    std::vector<std::thread> readers;
    for (int r = 0; r < READERS; ++r) {
        readers.emplace_back([&] {
            while (!writerDone.load() && !gaveUp.load()) {
                lock.readLock();
                lock.readLock();
                ++readersInside;
                bool left = false;
                for (int i = 0; i < TRIES_BEFORE_LEAVING_ALONE && !left; ++i) {
                    left = leaveIfNotLast();
                    if (!left) std::this_thread::yield();
                }
                if (!left) --readersInside;
                lock.readUnlock();
                lock.readUnlock();
                if (Clock::now() > deadline) gaveUp = true;
            }
        });
    }
    std::thread writer([&] {
        // Wait only once the read side is busy, or the writer could walk straight in.
        while (readersInside.load() == 0 && !gaveUp.load()) std::this_thread::yield();
        lock.writeLock();
        writerDone = true;
        lock.writeUnlock();
    });
    for (std::thread& reader : readers) reader.join();
    writer.join();

    EXPECT_FALSE(gaveUp.load()) << "the writer did not get in while readers were cycling";
    EXPECT_TRUE(writerDone.load());
}

enum class Exit { SCOPE_END, EXCEPTION, EXPLICIT_UNLOCK, UNLOCK_TWICE, RELOCK };

// Takes `Holder` on `lock` and leaves its scope the way `exit` says; swallows its own exception.
template <typename Holder>
void holdAndLeave(RecursiveRWLock& lock, Exit exit) {
    try {
        Holder holder(lock);
        switch (exit) {
            case Exit::SCOPE_END:
                break;
            case Exit::EXCEPTION:
                throw std::runtime_error("leaving the scope");
            case Exit::EXPLICIT_UNLOCK:
                holder.unlock();
                break;
            case Exit::UNLOCK_TWICE:
                holder.unlock();
                holder.unlock();
                break;
            case Exit::RELOCK:
                holder.unlock();
                holder.lock();
                break;
        }
    } catch (const std::runtime_error&) {
    }
}

// The thread already holds the side once; a scoped holder adds one hold and must take back
// exactly that one however the scope ends, so one unlock remains and a second one throws.
TEST_F(ScopedRecursiveRWLockTest, ReleasesItsOwnHoldExactlyOnce) {
    struct Row {
        const char* name;
        bool write;
        Exit exit;
    };
    const Row rows[] = {
        {"read, scope end", false, Exit::SCOPE_END},
        {"write, scope end", true, Exit::SCOPE_END},
        {"read, exception", false, Exit::EXCEPTION},
        {"write, exception", true, Exit::EXCEPTION},
        {"read, unlock() then scope end", false, Exit::EXPLICIT_UNLOCK},
        {"write, unlock() then scope end", true, Exit::EXPLICIT_UNLOCK},
        {"read, unlock() twice", false, Exit::UNLOCK_TWICE},
        {"write, unlock() twice", true, Exit::UNLOCK_TWICE},
        {"read, unlock() then lock()", false, Exit::RELOCK},
        {"write, unlock() then lock()", true, Exit::RELOCK},
    };
    for (const Row& row : rows) {
        auto lock = std::make_shared<RecursiveRWLock>();
        auto unlockOnce = [&] { row.write ? lock->writeUnlock() : lock->readUnlock(); };
        if (row.write) {
            lock->writeLock();
            holdAndLeave<ScopedRecursiveWriteLock>(*lock, row.exit);
        } else {
            lock->readLock();
            holdAndLeave<ScopedRecursiveReadLock>(*lock, row.exit);
        }

        EXPECT_NO_THROW(unlockOnce()) << row.name;
        EXPECT_THROW(unlockOnce(), Poco::IllegalStateException) << row.name;
        EXPECT_TRUE(isFree(lock)) << row.name;
    }
}

// A holder alone on the lock leaves it free for other threads when its scope ends.
TEST_F(ScopedRecursiveRWLockTest, FreesTheLockForOtherThreads) {
    for (bool write : {false, true}) {
        auto lock = std::make_shared<RecursiveRWLock>();
        if (write) {
            ScopedRecursiveWriteLock holder(*lock);
        } else {
            ScopedRecursiveReadLock holder(*lock);
        }
        EXPECT_TRUE(isFree(lock)) << (write ? "write holder" : "read holder");
    }
}

}  // namespace
