/* fork.c -- a parent and its child, each with its own process id in its lines.
 *
 * A shared ring is open in the child as in the parent, and its puts work there at once; but lines carry
 * the process id of the last initialisation, so the child finalises and initialises anew. A ring of one
 * process stays the parent's: a child would give a prefix of its own.
 * usage: fork PREFIX
 */
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ZEBULib2.h"

static tagZEBU_LOGFILE_SPEC ring = {64 * 1024, 3, NULL};

static int child(void)
{
    ZEBU2_PutLine(0, "child, still under the id of the parent");
    ZEBU2_Finalize();
    if (ZEBU2_InitializeM(&ring, "child", 0) == -1)
        return 1;
    ZEBU2_PutLine(0, "child, under its own id");
    return ZEBU2_Finalize() == 0 ? 0 : 1;
}

int main(int argc, char** argv)
{
    int iStatus = 1;
    pid_t iChild;
    if (argc < 2) {
        fprintf(stderr, "usage: %s PREFIX\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    if (ZEBU2_InitializeM(&ring, "parent", 0) == -1) {
        fprintf(stderr, "error 0x%08X\n", (unsigned)ZEBU2_GetLastError(NULL));
        return 1;
    }
    ZEBU2_PutLine(0, "parent before the fork");
    iChild = fork();
    if (iChild == 0)
        _exit(child());
    if (iChild == -1 || waitpid(iChild, &iStatus, 0) != iChild)
        return 1;
    ZEBU2_PutLine(0, "parent after the child");
    ZEBU2_Finalize();
    ZEBU2_EndLibrary();
    return iStatus == 0 ? 0 : 1;
}
