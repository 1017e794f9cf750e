#include "SystemMemory.h"

void SystemMemory::returnUnused() {}
