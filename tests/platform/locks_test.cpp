#include "platform/locks.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/process.h"

namespace {

bool attributes_fail = false;

}  // namespace

// Replaces the C library's function, which never fails.
extern "C" __attribute__((visibility("default"))) int pthread_rwlockattr_init(
    pthread_rwlockattr_t* attributes) noexcept {
  static auto* const real =
      reinterpret_cast<int (*)(pthread_rwlockattr_t*)>(dlsym(RTLD_NEXT, "pthread_rwlockattr_init"));
  return attributes_fail ? ENOMEM : real(attributes);
}

namespace velt::test {
namespace {

bool CanRead(RwMutex& mutex) {
  bool const taken = mutex.tryacquire_read() == 0;
  if (taken) mutex.release();
  return taken;
}

bool CanWrite(RwMutex& mutex) {
  bool const taken = mutex.tryacquire_write() == 0;
  if (taken) mutex.release();
  return taken;
}

template <typename Answer>
bool FromAnotherThread(Answer answer) {
  bool result = false;
  std::thread([&result, &answer] { result = answer(); }).join();
  return result;
}

TEST(LocksTest, AnIdleLockThatPrefersWritersCanBeReadAndWritten) {
  RwMutex mutex;

  PreferWriters(mutex);

  EXPECT_TRUE(CanRead(mutex));
  EXPECT_TRUE(CanWrite(mutex));
  EXPECT_TRUE(CanRead(mutex)) << "and again";
}

TEST(LocksTest, WithoutMemoryForThePreferenceTheLockStaysAsItIs) {
  RwMutex mutex;

  attributes_fail = true;
  PreferWriters(mutex);
  attributes_fail = false;

  EXPECT_TRUE(CanRead(mutex));
  EXPECT_TRUE(CanWrite(mutex));
}

TEST(LocksTest, ReadersShareALockThatPrefersWriters) {
  RwMutex mutex;
  PreferWriters(mutex);

  ReadLock const lock(mutex);

  EXPECT_TRUE(lock.locked());
  EXPECT_TRUE(FromAnotherThread([&mutex] { return CanRead(mutex); }));
  EXPECT_FALSE(FromAnotherThread([&mutex] { return CanWrite(mutex); }));
}

TEST(LocksTest, AWriterKeepsReadersAndWritersOut) {
  RwMutex mutex;
  PreferWriters(mutex);

  WriteLock const lock(mutex);

  EXPECT_TRUE(lock.locked());
  EXPECT_FALSE(FromAnotherThread([&mutex] { return CanRead(mutex); }));
  EXPECT_FALSE(FromAnotherThread([&mutex] { return CanWrite(mutex); }));
}

TEST(LocksTest, GuardsReleaseAtTheEndOfTheirBlock) {
  RwMutex mutex;
  PreferWriters(mutex);
  Mutex plain;

  { ReadLock const lock(mutex); }
  { WriteLock const lock(mutex); }
  { MutexLock const lock(plain); }

  EXPECT_TRUE(FromAnotherThread([&mutex] { return CanWrite(mutex); }));
  EXPECT_EQ(plain.tryacquire(), 0);
  plain.release();
}

TEST(LocksTest, AWaitingWriterKeepsNewReadersOutAndGetsInNext) {
  RwMutex mutex;
  PreferWriters(mutex);
  ASSERT_EQ(mutex.acquire_read(), 0);
  std::atomic<bool> written{false};

  std::thread writer([&mutex, &written] {
    WriteLock const lock(mutex);
    written = lock.locked();
  });
  bool const readers_held_back =
      WaitUntil([&mutex] { return !FromAnotherThread([&mutex] { return CanRead(mutex); }); });
  bool const written_too_early = written;
  mutex.release();
  writer.join();

  EXPECT_TRUE(readers_held_back);
  EXPECT_FALSE(written_too_early);
  EXPECT_TRUE(written);
  EXPECT_TRUE(CanRead(mutex));
}

// What readers and a writer share.
struct Shared {
  Shared() { PreferWriters(mutex); }

  void KeepReading() {
    for (bool counted = false; !stop; counted = true) {
      ReadLock const lock(mutex);
      if (value < 0) stop = true;  // read under the lock: without it a thread sanitizer reports a race
      if (!counted) ++reading;
    }
  }
  void Write(int times) {
    for (int i = 0; i < times; ++i) {
      WriteLock const lock(mutex);
      ++value;
    }
  }

  RwMutex mutex;
  int value = 0;  // under the lock
  std::atomic<bool> stop{false};
  std::atomic<int> reading{0};
};

TEST(LocksTest, AWriterGetsInWhileReadersKeepReading) {
  Shared shared;
  std::thread readers[4];
  for (auto& reader : readers) reader = std::thread([&shared] { shared.KeepReading(); });
  bool const all_reading = WaitUntil([&shared] { return shared.reading == 4; });

  std::thread([&shared] { shared.Write(20); }).join();

  shared.stop = true;
  for (auto& reader : readers) reader.join();
  EXPECT_TRUE(all_reading);
  EXPECT_EQ(shared.value, 20);
}

}  // namespace
}  // namespace velt::test
