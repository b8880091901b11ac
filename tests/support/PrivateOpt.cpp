// tests/support/PrivateOpt.cpp -- mount namespace with an empty /opt.
#include "support/PrivateOpt.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

// Without privileges: root of a user namespace in which the caller keeps its files.
static bool enterAsOwnRoot()
{
    const uid_t iUser = geteuid();
    const gid_t iGroup = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << iUser << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << iGroup << " 1";
    return true;
}

bool enterPrivateOpt()
{
    if (unshare(CLONE_NEWNS) != 0 && !enterAsOwnRoot())
        return false;
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/opt", "tmpfs", 0, "mode=0755") == 0;
}
