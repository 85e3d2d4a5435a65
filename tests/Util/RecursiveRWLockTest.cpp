#include "Util/RecursiveRWLock.h"

#include <atomic>
#include <cctype>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

namespace {

using Kivo::Util::RecursiveRWLock;
using Kivo::Util::ScopedRecursiveReadLock;
using Kivo::Util::ScopedRecursiveRWLock;
using Kivo::Util::ScopedRecursiveWriteLock;
using Clock = std::chrono::steady_clock;
using LockPtr = std::shared_ptr<RecursiveRWLock>;

// How long a step may take before the test calls it a hang; reaching it never means "too slow".
constexpr std::chrono::seconds HANG_LIMIT(20);

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

// Whether another thread can take and release the write side (then no thread holds either
// side) or the read side (then no thread holds the write side).
bool othersCanTake(const LockPtr& lock, bool write) {
    return finishesOnAnotherThread([lock, write] { ScopedRecursiveRWLock holder(*lock, write); });
}

// Counts `arrived` up and waits until it reaches `count`; false if that takes past `deadline`.
bool meet(std::atomic<int>& arrived, int count, Clock::time_point deadline) {
    ++arrived;
    while (arrived.load() < count) {
        if (Clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

// Whether `unlock` throws Poco::IllegalStateException.
bool refuses(const std::function<void()>& unlock) {
    try {
        unlock();
    } catch (const Poco::IllegalStateException&) {
        return true;
    }
    return false;
}

// A scoped holder of the read side ('s', 'x', 'u', 'l') or of the write side (the same in upper
// case), left at scope end, by an exception ('x'), after unlock() twice ('u'), or after unlock()
// and lock() ('l').
void holdScoped(RecursiveRWLock& lock, char how) {
    try {
        ScopedRecursiveRWLock holder(lock, std::isupper(how) != 0);
        const char kind = static_cast<char>(std::tolower(how));
        if (kind == 'x') throw std::runtime_error("leaving the scope");
        if (kind == 'u' || kind == 'l') holder.unlock();
        if (kind == 'u') holder.unlock();
        if (kind == 'l') holder.lock();
    } catch (const std::runtime_error&) {
    }
}

// Applies `steps` on the calling thread: 'r' readLock, 'R' readUnlock, 'w' writeLock, 'W'
// writeUnlock, after '!' the step must throw; scoped holders as holdScoped; 'o' checks that
// another thread can read now, '?' that another thread's readUnlock and writeUnlock throw. Then
// checks that the lock is free and the thread holds nothing, so every holder and refused unlock
// left exactly the holds it found. Returns what went wrong.
std::string runSequence(const LockPtr& lock, const std::string& steps) {
    const std::function<void()> calls[] = {[&] { lock->readLock(); }, [&] { lock->readUnlock(); },
                                           [&] { lock->writeLock(); },
                                           [&] { lock->writeUnlock(); }};
    bool mustThrow = false;
    for (const char step : steps) {
        const std::size_t call = std::string("rRwW").find(step);
        if (step == '!') {
            mustThrow = true;
        } else if (call != std::string::npos) {
            if (mustThrow && !refuses(calls[call])) return std::string("no throw at ") + step;
            if (!mustThrow) calls[call]();
            mustThrow = false;
        } else if (std::string("sxulSXUL").find(step) != std::string::npos) {
            holdScoped(*lock, step);
        } else if (step == 'o' && !othersCanTake(lock, false)) {
            return "others could not read";
        } else if (step == '?' && !finishesOnAnotherThread([lock] {
                       EXPECT_TRUE(refuses([lock] { lock->readUnlock(); }));
                       EXPECT_TRUE(refuses([lock] { lock->writeUnlock(); }));
                   })) {
            return "another thread's unlock hung";
        }
    }
    if (RecursiveRWLock::isAnyHeldByCallingThread()) return "the thread still counts a hold";
    if (!othersCanTake(lock, true)) return "the lock is still held after the sequence";
    if (!refuses(calls[1]) || !refuses(calls[3])) return "a hold survived the sequence";
    return "";
}

TEST(RecursiveRWLock, SequencesOnOneThreadLeaveNothingHeldAndMisuseThrows) {
    const char* const rows[] = {
        "rrorRRR",    // read three deep
        "wwwWWW",     // write three deep
        "wrWoR",      // the writer keeps reading after writeUnlock
        "wrrWoRR",    // ... two deep
        "rwrrWoRRR",  // ... beside the read hold it upgraded from
        "wrRrWoR",    // reads under write taken, released, taken again
        "wrwrWWRoR",  // nested write and read, released crosswise
        "rrwrRWoRR",  // a nested reader upgrades and reads under write
        "!R!W",       // unlocking without any hold
        "r!WR",       // writeUnlock while only reading
        "w!RW",       // readUnlock while only writing
        "rr?RR",      // another thread unlocks a reader's lock
        "wr?RW",      // another thread unlocks a writer's lock
        "sxulSXUL",   // scoped holders alone
        "rsxulR",     // scoped read holders inside a read hold
        "wSXULsxW",   // scoped holders of both sides inside a write hold
    };
    for (const std::string steps : rows) {
        auto lock = std::make_shared<RecursiveRWLock>();
        auto problem = std::make_shared<std::string>();
        // A wrong lock could block the thread on its own hold, so the sequence runs bounded.
        EXPECT_TRUE(finishesOnAnotherThread([lock, problem, steps] {
            *problem = runSequence(lock, steps);
        })) << steps;
        EXPECT_EQ(*problem, "") << steps;
    }
}

// Two threads each read more locks at once than a thread has bookkeeping slots for, nested,
// and meet while holding them all. Then one upgrades a lock its slots could not hold: it must
// wait until the other, lingering a while, has left. Holds beyond the slots must behave as the
// others: re-entry, upgrade, release in any order, misuse.
TEST(RecursiveRWLock, ThreadsHoldMoreLocksThanTheirSlots) {
    constexpr int LOCKS = 40;
    std::vector<LockPtr> locks;
    for (int i = 0; i < LOCKS; ++i) locks.push_back(std::make_shared<RecursiveRWLock>());
    auto arrived = std::make_shared<std::atomic<int>>(0);
    auto otherLeft = std::make_shared<std::atomic<bool>>(false);
    const Clock::time_point deadline = Clock::now() + HANG_LIMIT;
    auto holdAll = [locks, arrived, otherLeft, deadline](bool upgrade) {
        EXPECT_FALSE(RecursiveRWLock::isAnyHeldByCallingThread());
        for (const LockPtr& lock : locks) lock->readLock();
        for (const LockPtr& lock : locks) lock->readLock();
        EXPECT_TRUE(RecursiveRWLock::isAnyHeldByCallingThread());
        EXPECT_TRUE(meet(*arrived, 2, deadline)) << "both threads read every lock at once";
        for (int i = 0; i < LOCKS; ++i) locks[i]->readUnlock();
        EXPECT_TRUE(meet(*arrived, 4, deadline));
        if (upgrade) {
            locks.back()->writeLock();
            EXPECT_TRUE(otherLeft->load()) << "wrote while another thread still read";
            locks.back()->readLock();
            locks.back()->writeUnlock();  // the read taken under write joins the held ones
            locks.back()->readUnlock();
        } else {
            for (int i = 0; i < 1000; ++i) std::this_thread::yield();
            *otherLeft = true;
        }
        for (int i = LOCKS - 1; i >= 0; --i) locks[i]->readUnlock();
        for (const LockPtr& lock : locks) {
            EXPECT_THROW(lock->readUnlock(), Poco::IllegalStateException);
        }
        EXPECT_FALSE(RecursiveRWLock::isAnyHeldByCallingThread());
    };
    std::thread other([holdAll] { holdAll(false); });
    EXPECT_TRUE(finishesOnAnotherThread([holdAll] { holdAll(true); }));
    other.join();
    for (const LockPtr& lock : locks) EXPECT_TRUE(othersCanTake(lock, true));
}

// Readers pass the read side among themselves so that it never falls free: a reader leaves
// only while another one is inside too, and takes it again at once, nesting a second read as
// handlers do. Without writer preference the writer would wait for good. With it, a waiting
// writer holds back every new read, so the last reader inside, after a bounded number of tries,
// leaves alone and lets the writer in.
TEST(RecursiveRWLock, WaitingWriterIsNotStarvedByCyclingReaders) {
    constexpr int READERS = 4;
    constexpr int TRIES_BEFORE_LEAVING_ALONE = 20000;
    RecursiveRWLock lock;
    std::atomic<int> readersInside{0};
    std::atomic<bool> writerDone{false}, gaveUp{false};
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
                ScopedRecursiveReadLock outer(lock);
                ScopedRecursiveReadLock inner(lock);
                ++readersInside;
                bool left = false;
                for (int i = 0; i < TRIES_BEFORE_LEAVING_ALONE && !left; ++i) {
                    left = leaveIfNotLast();
                    if (!left) std::this_thread::yield();
                }
                if (!left) --readersInside;
                if (Clock::now() > deadline) gaveUp = true;
            }
        });
    }
    std::thread writer([&] {
        // Wait only once the read side is busy, or the writer could walk straight in.
        while (readersInside.load() == 0 && !gaveUp.load()) std::this_thread::yield();
        ScopedRecursiveWriteLock write(lock);
        writerDone = true;
    });
    for (std::thread& reader : readers) reader.join();
    writer.join();
    EXPECT_FALSE(gaveUp.load()) << "the writer did not get in while readers were cycling";
}

}  // namespace
