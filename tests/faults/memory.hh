// The memory below qmalloc: the library's calls of malloc, of which all but one are qmalloc's, and
// the XML parser's.
#ifndef TESTS_FAULTS_MEMORY_HH
#define TESTS_FAULTS_MEMORY_HH

// Lets `n` more allocations succeed and fails the one after them, once.
void fail_plain_memory(int n);
void fail_parser_memory(int n);

// Takes the failure back. True when it had struck.
bool plain_memory_works();
bool parser_memory_works();

#endif
