// Shows the thread wrappers: what they create threads with, what they free, and how the errors of
// the platform's calls come back. Those calls pass through this program, which counts them and
// makes them fail on demand.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "qmibtree.h"
#include "qmibtree_testkit/heap.hh"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

using namespace qmibtree_testkit;

namespace {

// The calls since the last test began, and the error that each is to answer instead of being made.
struct Platform {
  std::vector<std::string> calls;
  std::map<std::string, int> errors;
  const pthread_attr_t* used;  // the attributes that pthread_create got,
  int detach_state;            // and what they asked for
  size_t stack_size;
  void* result_of_failed_join;  // left in the result's place by a failing join
};
Platform& platform() {
  static auto* const the_platform = new Platform;
  return *the_platform;
}

const pthread_t tester = pthread_self();

// What a sanitizer's start of a thread calls must do without its instructions.
#define AT_THREAD_START __attribute__((no_sanitize_thread))

// Counts a call. Its error, or 0 when it is to be made. What a thread's own start calls (a
// sanitizer's does) is not counted.
AT_THREAD_START int enter(const char* name) {
  if (!pthread_equal(pthread_self(), tester)) return 0;
  platform().calls.emplace_back(name);
  const auto error = platform().errors.find(name);
  return error == platform().errors.end() ? 0 : error->second;
}

template <typename Function>
AT_THREAD_START Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

AT_THREAD_START int pthread_attr_init(pthread_attr_t* attr) {
  if (const int error = enter("attr_init")) return error;
  return real<int(pthread_attr_t*)>("pthread_attr_init")(attr);
}

AT_THREAD_START int pthread_attr_destroy(pthread_attr_t* attr) {
  if (const int error = enter("attr_destroy")) return error;
  return real<int(pthread_attr_t*)>("pthread_attr_destroy")(attr);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*),
                   void* arg) {
  if (const int error = enter("create")) return error;
  platform().used = attr;
  if (attr) {
    pthread_attr_getdetachstate(attr, &platform().detach_state);
    pthread_attr_getstacksize(attr, &platform().stack_size);
  }
  using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  return real<Create>("pthread_create")(thread, attr, start, arg);
}

int pthread_join(pthread_t thread, void** result) {
  if (const int error = enter("join")) {
    *result = platform().result_of_failed_join;
    return error;
  }
  return real<int(pthread_t, void**)>("pthread_join")(thread, result);
}

// qmalloc itself, past the recorder of the tests, which would wait for a qfree.
void* __real_qmalloc(size_t size, const char* tag);

}  // extern "C"

namespace {

// So large that it has pages of its own, which go when it is freed.
constexpr size_t kBlockSize = size_t{40} << 20;

bool is_freed(const void* block) {
#if defined(__SANITIZE_ADDRESS__)
  return __asan_address_is_poisoned(block);
#else
  int ends[2];
  if (pipe(ends) != 0) return false;
  const bool gone = write(ends[1], block, 1) == -1 && errno == EFAULT;
  close(ends[0]);
  close(ends[1]);
  return gone;
#endif
}

// Start routines.
void* return_null(void*) { return nullptr; }
void* set_flag(void* flag) {
  *static_cast<bool*>(flag) = true;
  return nullptr;
}
// Return a block, whose address they leave in `*place`.
void* return_malloc(void* place) {
  return *static_cast<void**>(place) = std::calloc(1, kBlockSize);
}
void* return_qmalloc(void* place) {
  return *static_cast<void**>(place) = __real_qmalloc(kBlockSize, "thread's result");
}
// Waits for the write end of a pipe to be closed, then sets the flag.
struct Wait {
  int read_end;
  bool done;
};
void* wait_for_close(void* arg) {
  auto* const wait = static_cast<Wait*>(arg);
  char byte;
  wait->done = read(wait->read_end, &byte, 1) == 0;
  return nullptr;
}
void* close_end(void* end) {
  close(*static_cast<int*>(end));
  return nullptr;
}

using Calls = std::vector<std::string>;

class Thread : public ::testing::Test {
 protected:
  void SetUp() override { platform() = {}; }
  void TearDown() override {
    platform().errors.clear();
    EXPECT_EQ(live_blocks(), blocks);
  }

  const int blocks = live_blocks();
  pthread_t thread = {};
};

// --- qthread_create ---

TEST_F(Thread, CreateRunsTheRoutineWithItsArgument) {
  bool ran = false;
  ASSERT_EQ(qthread_create(&thread, set_flag, &ran), 0);
  ASSERT_EQ(qthread_join(thread), 0);
  EXPECT_TRUE(ran);
}

TEST_F(Thread, CreateMakesItsThreeCallsInOrder) {
  ASSERT_EQ(qthread_create(&thread, return_null, nullptr), 0);
  EXPECT_EQ(platform().calls, (Calls{"attr_init", "create", "attr_destroy"}));
  qthread_join(thread);
}

TEST_F(Thread, CreateHandsOverDefaultAttributes) {
  pthread_attr_t defaults;
  size_t stack_size = 0;
  ASSERT_EQ(pthread_attr_init(&defaults), 0);
  ASSERT_EQ(pthread_attr_getstacksize(&defaults, &stack_size), 0);
  ASSERT_EQ(pthread_attr_destroy(&defaults), 0);

  ASSERT_EQ(qthread_create(&thread, return_null, nullptr), 0);
  EXPECT_NE(platform().used, nullptr);
  EXPECT_EQ(platform().detach_state, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(platform().stack_size, stack_size);
  qthread_join(thread);
}

TEST_F(Thread, CreateDoesNotWaitForTheThread) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Wait wait = {ends[0], false};
  ASSERT_EQ(qthread_create(&thread, wait_for_close, &wait), 0);
  close(ends[1]);  // the thread cannot end before this
  EXPECT_EQ(qthread_join(thread), 0);
  EXPECT_TRUE(wait.done);
  close(ends[0]);
}

TEST_F(Thread, CreateStopsWhenTheAttributesFail) {
  platform().errors["attr_init"] = ENOMEM;
  EXPECT_EQ(qthread_create(&thread, return_null, nullptr), ENOMEM);
  EXPECT_EQ(platform().calls, Calls{"attr_init"});
}

// Deliberate: the attributes of a thread that could not be created are not destroyed.
TEST_F(Thread, CreateStopsAtOnceWhenTheThreadFails) {
  platform().errors["create"] = EAGAIN;
  EXPECT_EQ(qthread_create(&thread, return_null, nullptr), EAGAIN);
  EXPECT_EQ(platform().calls, (Calls{"attr_init", "create"}));
}

TEST_F(Thread, CreateAnswersTheResultOfDestroyingTheAttributes) {
  platform().errors["attr_destroy"] = EINVAL;
  EXPECT_EQ(qthread_create(&thread, return_null, nullptr), EINVAL);
  EXPECT_EQ(platform().calls, (Calls{"attr_init", "create", "attr_destroy"}));
  EXPECT_EQ(qthread_join(thread), 0);  // it runs all the same
}

// --- qthread_join ---

TEST_F(Thread, JoinTakesANullResult) {
  ASSERT_EQ(qthread_create(&thread, return_null, nullptr), 0);
  EXPECT_EQ(qthread_join(thread), 0);
}

TEST_F(Thread, JoinWaitsForTheThread) {
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  Wait wait = {gate[0], false};
  pthread_t opener;
  ASSERT_EQ(qthread_create(&thread, wait_for_close, &wait), 0);
  ASSERT_EQ(qthread_create(&opener, close_end, &gate[1]), 0);
  EXPECT_EQ(qthread_join(thread), 0);
  EXPECT_TRUE(wait.done);
  EXPECT_EQ(qthread_join(opener), 0);
  close(gate[0]);
}

TEST_F(Thread, JoinFreesABlockFromMalloc) {
  void* block = nullptr;
  ASSERT_EQ(qthread_create(&thread, return_malloc, &block), 0);
  ASSERT_EQ(qthread_join(thread), 0);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(is_freed(block));
}

TEST_F(Thread, JoinFreesABlockFromQmalloc) {
  void* block = nullptr;
  ASSERT_EQ(qthread_create(&thread, return_qmalloc, &block), 0);
  ASSERT_EQ(qthread_join(thread), 0);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(is_freed(block));
}

TEST_F(Thread, JoinJoinsOnce) {
  ASSERT_EQ(qthread_create(&thread, return_null, nullptr), 0);
  platform().calls.clear();
  ASSERT_EQ(qthread_join(thread), 0);
  EXPECT_EQ(platform().calls, Calls{"join"});
}

// Not every C library survives a second join; the platform's answer to it is given in its place.
TEST_F(Thread, SecondJoinAnswersTheErrorAndFreesNothing) {
  void* const block = std::calloc(1, kBlockSize);
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(qthread_create(&thread, return_null, nullptr), 0);
  ASSERT_EQ(qthread_join(thread), 0);

  platform().errors["join"] = ESRCH;
  platform().result_of_failed_join = block;
  EXPECT_EQ(qthread_join(thread), ESRCH);
  EXPECT_FALSE(is_freed(block));
  std::free(block);
}

}  // namespace
