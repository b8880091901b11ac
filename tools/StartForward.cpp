// tools/StartForward.cpp -- the forwarder is a program, and a package, of its own: it alone needs OpenSSL.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include "tools/Verbs.h"

static constexpr char cs_szProgram[] = "zebu2-forward";

int ZEBU_StartForward(const std::vector<std::string>& words)
{
    std::vector<char*> arguments = {const_cast<char*>(cs_szProgram)};
    for (const std::string& strWord : words)
        arguments.push_back(const_cast<char*>(strWord.c_str()));
    arguments.push_back(nullptr);
    // Beside this program before anywhere else: versions that belong together lie together.
    std::error_code error;
    const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", error);
    (void)execv((own.parent_path() / cs_szProgram).c_str(), arguments.data());
    (void)execvp(cs_szProgram, arguments.data());
    const int iErrno = errno;
    throw ZEBUFailure{
        std::string(cs_szProgram) + ": " +
        (iErrno == ENOENT ? "is not installed; it has a package of its own" : strerror(iErrno))};
}
