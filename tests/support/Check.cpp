#include "support/Check.h"

#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#include <vector>

void checkFailed(const char* pszCondition, const char* pszFile, int iLine)
{
    (void)fprintf(stderr, "%s:%d: process %d: not true: %s\n", pszFile, iLine, getpid(), pszCondition);
    _exit(1);
}

pid_t startChild(const std::function<void()>& body)
{
    (void)fflush(nullptr);
    const pid_t iChild = fork();
    if (iChild != 0)
        return iChild;
    body();
    (void)fflush(nullptr);
    _exit(0);
}

int waitForChild(pid_t iChild)
{
    int iStatus = 0;
    if (waitpid(iChild, &iStatus, 0) != iChild)
        return -1;
    return WIFSIGNALED(iStatus) ? 128 + WTERMSIG(iStatus) : WEXITSTATUS(iStatus);
}

void inThreads(int iCount, const std::function<void(int)>& body)
{
    std::vector<std::jthread> threads;
    for (int t = 0; t < iCount; ++t)
        threads.emplace_back(body, t);
}
