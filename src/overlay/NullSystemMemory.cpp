#include "SystemMemory.h"

void SystemMemory::returnUnused() {}

void SystemMemory::keepLargeBlocksApart() {}
