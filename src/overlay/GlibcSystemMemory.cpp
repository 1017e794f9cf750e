#include "SystemMemory.h"

#include <malloc.h>

void SystemMemory::returnUnused() {
    malloc_trim(0);
}
