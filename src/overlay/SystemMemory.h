#pragma once

// The C library's side of memory use.
namespace SystemMemory {
// Gives memory that the allocator keeps for reuse back to the system, where
// the C library can (glibc); elsewhere nothing.
void returnUnused();
// Keeps large blocks (images) apart from the heap, so that freeing one gives
// its pages back at once; elsewhere nothing.
void keepLargeBlocksApart();
} // namespace SystemMemory
