/* cleanup.c -- removing what rings have left behind.
 *
 * A ring bounds itself; this is for rings whose prefix changes, say with a date or a process id.
 * usage: cleanup DIRECTORY
 */
#include <stdio.h>

#include "ZEBULib2.h"

int main(int argc, char** argv)
{
    char szPattern[4096];
    char szPrefix[4000];
    tagZEBU_LOGFILE_SPEC ring = {4096, 1, szPrefix};
    int i, iCode = 0;
    if (argc < 2) {
        fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }

    for (i = 0; i < 5; ++i) { /* five runs, each with a ring of its own */
        snprintf(szPrefix, sizeof szPrefix, "%s/run-%d-", argv[1], i);
        if (ZEBU2_Initialize(&ring, "cleanup") == -1)
            return 1;
        ZEBU2_PutLine(0, "a run");
        ZEBU2_Finalize();
    }

    snprintf(szPattern, sizeof szPattern, "%s/run-*.log", argv[1]);
    if (ZEBU2_LogFileClear(szPattern, ZEBU2_CLEAR_BY_AGE, 7 * 24 * 3600) != 0 || /* a week old */
        ZEBU2_LogFileClear(szPattern, ZEBU2_CLEAR_BY_NUMBER, 2) != 0) {          /* all but the last two */
        fprintf(stderr, "error 0x%08X", (unsigned)ZEBU2_GetLastError(&iCode));
        fprintf(stderr, ", errno %d\n", iCode);
        return 1;
    }
    ZEBU2_EndLibrary();
    return 0;
}
