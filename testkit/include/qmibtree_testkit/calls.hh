// The system calls of the library under test control: each call of these functions by the library,
// and by the program, passes here (--wrap=NAME, which linking the kit brings along).
//
//   fail_call("fopen", 2);                     the third fopen from now on fails
//   EXPECT_EQ(qmibtree_save_config(inst), -1);
//   EXPECT_TRUE(calls_work());                 it had come to that
#ifndef QMIBTREE_TESTKIT_CALLS_HH
#define QMIBTREE_TESTKIT_CALLS_HH

#include <string>
#include <vector>

namespace qmibtree_testkit {

// The functions that can be made to fail, by name. How each of them fails, with errno set:
//   fopen, popen, gmtime_r, XML_ParserCreate  null
//   open, read, fseek, socket, ioctl, stat, fork, system, pclose, ftell  -1
//   fwrite, fread   half of what is asked for, rounded down
//   fflush, fclose  EOF
//   pthread_create  EAGAIN
// fclose and pclose have closed the stream all the same.
const std::vector<std::string>& faultable_calls();

// Lets `n` more calls of the function succeed and fails the one after them, once. One failure at a
// time is due: a further call replaces it.
void fail_call(const std::string& name, int n);

// Takes an injected failure back. True when it had struck.
bool calls_work();

// Calls of the function since the program started, failed ones included.
long calls_made(const std::string& name);

// Calls, of any function, that were made to fail.
long calls_failed();

}  // namespace qmibtree_testkit

#endif
