#pragma once

// The C library's side of memory use.
namespace SystemMemory {
// Gives memory that the allocator keeps for reuse back to the system, where
// the C library can (glibc); elsewhere nothing.
void returnUnused();
} // namespace SystemMemory
