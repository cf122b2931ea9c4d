// Running a piece of a test in a forked child, for limits that must not
// touch the test process itself (file size, address space).
#ifndef TARNTERMCHART_TEST_FORK_UTIL_H
#define TARNTERMCHART_TEST_FORK_UTIL_H

#include <stdint.h>

#include <functional>

// Runs body in a forked child and returns its result, a code from -128 to
// 127, or kChildDied when the child did not exit normally.  The child
// leaves with _exit, so no test state is flushed twice.
enum { kChildDied = -1000 };
int RunInChild(const std::function<int()> &body);

// In a child run as root: becomes an unprivileged user, so that permission
// failures can be provoked (make the paths it needs reachable first).
void DropPrivileges();

// In a child: limits files to maxBytes and ignores SIGXFSZ, so writes past
// the limit fail instead of killing the process.
void LimitFileSize(uint64_t maxBytes);
// Whether address space limits can be used: not under AddressSanitizer,
// whose shadow memory needs far more than any such limit leaves.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSpaceLimitsWork = false;
#else
constexpr bool kAddressSpaceLimitsWork = true;
#endif
#define SKIP_WITHOUT_ADDRESS_SPACE_LIMITS() \
    if (!kAddressSpaceLimitsWork) GTEST_SKIP() << "address space limits do not work here"

// In a child: limits the address space to what is mapped now plus headroom.
void LimitAddressSpace(uint64_t headroomBytes);

// In a child: takes all memory the address space limit leaves, then gives
// back about keepBytes in pieces of 64 KiB, so that small allocations still
// succeed and any larger one fails.  Call after LimitAddressSpace.
void ExhaustMemory(uint64_t keepBytes);

#endif
