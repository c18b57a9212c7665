// The public header is valid C++11 too.
#include "header_c99.c"
