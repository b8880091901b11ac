/* crash_handler.c -- a last line from a process that is about to die.
 *
 * The line goes to the trace area, which has room while somebody drains it (zebu2 drain -f). Where it has
 * none the line goes to the standard error output.
 *
 * The handler runs on a stack of its own, so that an overflow of the ordinary stack can be told, too.
 * usage: crash_handler PREFIX
 */
#define _GNU_SOURCE
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "ZEBULib2.h"

static void onCrash(int iSignal)
{
    const char* pszText = iSignal == SIGSEGV ? "dying of SIGSEGV" : "dying of SIGABRT";
    if (ZEBU2_PutMsgSigSafe(pszText) != 0 && write(STDERR_FILENO, pszText, strlen(pszText)) > 0)
        (void)!write(STDERR_FILENO, "\n", 1);
    signal(iSignal, SIG_DFL); /* and die as before, with a core file where there is one */
    raise(iSignal);
}

int main(int argc, char** argv)
{
    static char stack[64 * 1024];
    stack_t alternate;
    struct sigaction action;
    tagZEBU_LOGFILE_SPEC ring = {64 * 1024, 2, NULL};
    volatile int* volatile pNowhere = NULL;
    if (argc < 2) {
        fprintf(stderr, "usage: %s PREFIX\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    if (ZEBU2_Initialize(&ring, "crash") != 0)
        return 1;

    memset(&alternate, 0, sizeof alternate);
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, NULL);
    memset(&action, 0, sizeof action);
    action.sa_handler = onCrash;
    action.sa_flags = SA_ONSTACK;
    sigaction(SIGSEGV, &action, NULL);
    sigaction(SIGABRT, &action, NULL);

    ZEBU2_PutLine(0, "about to crash");
    *pNowhere = 1;
    return 0;
}
