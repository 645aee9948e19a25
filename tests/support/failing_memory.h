// SPDX-License-Identifier: Apache-2.0
// Allocations that fail on request. failing_memory.cpp replaces operator new of the program that it is linked into.
#ifndef VELTRA_TESTS_SUPPORT_FAILING_MEMORY_H
#define VELTRA_TESTS_SUPPORT_FAILING_MEMORY_H

namespace TestSupport {

// The `nth` allocation from now on fails, on whichever thread; 0: none does.
void FailAllocation(long nth);
// While `isThread` returns true on a thread, all its allocations fail; null: none does.
void FailAllocationsOf(bool (*isThread)());
// Whether an allocation has failed since the last FailAllocation.
bool HasAllocationFailed();

}  // namespace TestSupport

#endif
