// tests/support/Check.h -- checks in child processes, where the test framework does not see them.
#ifndef ZEBU_TESTS_SUPPORT_CHECK_H
#define ZEBU_TESTS_SUPPORT_CHECK_H

#include <sys/types.h>

#include <functional>

// Ends the process with status 1 when the condition does not hold, and says where.
#define CHECK(condition) ((condition) ? (void)0 : checkFailed(#condition, __FILE__, __LINE__))
[[noreturn]] void checkFailed(const char* pszCondition, const char* pszFile, int iLine);

// Runs `body` in a child process, which ends with status 0 when `body` returns.
pid_t startChild(const std::function<void()>& body);

// Waits for a child: its exit status, or 128 and the signal that killed it.
int waitForChild(pid_t iChild);

// Both in one.
inline int inChild(const std::function<void()>& body)
{
    return waitForChild(startChild(body));
}

// Runs `body(0)` to `body(iCount - 1)` in a thread each.
void inThreads(int iCount, const std::function<void(int)>& body);

#endif
