#include "SystemMemory.h"

#include <malloc.h>

void SystemMemory::returnUnused() {
    malloc_trim(0);
}

void SystemMemory::keepLargeBlocksApart() {
    // glibc raises its threshold for mapping blocks of their own each time one
    // is freed, and overlay-sized images then come from the heap, where what
    // is freed stays resident (150 MB more for a moment on two screens when
    // drawing stops). A threshold set once stays where it is.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}
