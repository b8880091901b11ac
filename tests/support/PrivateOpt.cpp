// tests/support/PrivateOpt.cpp -- mount namespace with an empty /opt.
#include "support/PrivateOpt.h"

#include <sched.h>
#include <stdio.h>
#include <sys/mount.h>
#include <unistd.h>

static void writeOnce(const char* pszFile, const char* pszText)
{
    if (FILE* pFile = fopen(pszFile, "w")) {
        (void)fputs(pszText, pFile);
        (void)fclose(pFile);
    }
}

// Without privileges: root of a user namespace in which the caller keeps its files.
static bool enterAsOwnRoot()
{
    char szUser[32];
    char szGroup[32];
    (void)snprintf(szUser, sizeof szUser, "0 %u 1", geteuid());
    (void)snprintf(szGroup, sizeof szGroup, "0 %u 1", getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    writeOnce("/proc/self/setgroups", "deny");
    writeOnce("/proc/self/uid_map", szUser);
    writeOnce("/proc/self/gid_map", szGroup);
    return true;
}

bool enterPrivateOpt()
{
    if (unshare(CLONE_NEWNS) != 0 && !enterAsOwnRoot())
        return false;
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/opt", "tmpfs", 0, "mode=0755") == 0;
}
