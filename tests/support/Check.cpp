#include "support/Check.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

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

int inChild(const std::function<void()>& body)
{
    return waitForChild(startChild(body));
}

Gate::Gate()
{
    if (pipe(m_pipe) != 0)
        abort();
}

Gate::~Gate()
{
    (void)close(m_pipe[0]);
    (void)close(m_pipe[1]);
}

void Gate::open()
{
    CHECK(write(m_pipe[1], "g", 1) == 1);
}

void Gate::wait()
{
    char cGo = 0;
    CHECK(read(m_pipe[0], &cGo, 1) == 1);
    CHECK(write(m_pipe[1], &cGo, 1) == 1); // the gate stays open for the next
}
