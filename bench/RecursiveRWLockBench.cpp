#include <benchmark/benchmark.h>

#include "Util/RecursiveRWLock.h"

namespace {

using Kivo::Util::RecursiveRWLock;
using Kivo::Util::ScopedRecursiveReadLock;

// One thread takes and releases the read side: the cost every property read pays.
void BM_ReadLockUnlock(benchmark::State& state) {
    RecursiveRWLock lock;
    for (auto _ : state) {
        lock.readLock();
        lock.readUnlock();
    }
}
BENCHMARK(BM_ReadLockUnlock);

void BM_WriteLockUnlock(benchmark::State& state) {
    RecursiveRWLock lock;
    for (auto _ : state) {
        lock.writeLock();
        lock.writeUnlock();
    }
}
BENCHMARK(BM_WriteLockUnlock);

// A read taken by the thread that already writes, as a handler inside a setter does; the
// write side stays held, so only the re-entry is measured.
void BM_ReadUnderWrite(benchmark::State& state) {
    RecursiveRWLock lock;
    lock.writeLock();
    for (auto _ : state) {
        lock.readLock();
        lock.readUnlock();
    }
    lock.writeUnlock();
}
BENCHMARK(BM_ReadUnderWrite);

// A nested read: the thread already reads, so only the thread-local depth changes.
void BM_ReadUnderRead(benchmark::State& state) {
    RecursiveRWLock lock;
    lock.readLock();
    for (auto _ : state) {
        lock.readLock();
        lock.readUnlock();
    }
    lock.readUnlock();
}
BENCHMARK(BM_ReadUnderRead);

void BM_ScopedReadLock(benchmark::State& state) {
    RecursiveRWLock lock;
    for (auto _ : state) {
        ScopedRecursiveReadLock holder(lock);
    }
}
BENCHMARK(BM_ScopedReadLock);

// Two threads read the same lock at once: both contend for the internal mutex on every first
// entry, though neither ever waits for the other to leave.
RecursiveRWLock g_sharedLock;

void BM_ContendedReadLockUnlock(benchmark::State& state) {
    for (auto _ : state) {
        g_sharedLock.readLock();
        g_sharedLock.readUnlock();
    }
}
BENCHMARK(BM_ContendedReadLockUnlock)->Threads(2)->UseRealTime();

}  // namespace
