/* shared_ring.c -- several processes write one ring; a copy of it shows that every line arrived.
 *
 * usage: shared_ring PREFIX WRITERS LINES
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ZEBULib2.h"

/* One writer: joins the ring, writes its lines, leaves. Returns how many were not written. */
static int writer(const tagZEBU_LOGFILE_SPEC* pRing, int iNumber, int iLines)
{
    char szText[64];
    int i, iLost = 0;
    if (ZEBU2_InitializeM(pRing, "writer", ZEBU2_OPT_NOFILL) == -1)
        return iLines;
    for (i = 1; i <= iLines; ++i) {
        sprintf(szText, "writer %d, line %d", iNumber, i);
        iLost += ZEBU2_PutLine(0, szText) != 0;
    }
    ZEBU2_Finalize();
    return iLost;
}

int main(int argc, char** argv)
{
    tagZEBU_LOGFILE_SPEC ring = {64 * 1024, 16, NULL};
    char szCopy[4096], szLine[8192];
    int i, iStatus, iFound = 0, iFailed = 0;
    FILE* pCopy;
    if (argc < 4) {
        fprintf(stderr, "usage: %s PREFIX WRITERS LINES\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    sprintf(szCopy, "%.4000s.backup", argv[1]);

    ZEBU2_SetLockRetryTimes(1000); /* wait up to a second for the others instead of 20 milliseconds */
    for (i = 1; i <= atoi(argv[2]); ++i) {
        if (fork() == 0)
            _exit(writer(&ring, i, atoi(argv[3])) != 0);
    }
    while (wait(&iStatus) > 0)
        iFailed += iStatus != 0;

    if (ZEBU2_InitializeM(&ring, "reader", ZEBU2_OPT_NOFILL) == -1 || ZEBU2_TraceBackupM(szCopy, 0) != 0) {
        fprintf(stderr, "error 0x%08X\n", (unsigned)ZEBU2_GetLastError(NULL));
        return 1;
    }
    ZEBU2_Finalize();
    pCopy = fopen(szCopy, "r");
    while (pCopy && fgets(szLine, sizeof szLine, pCopy))
        iFound += strstr(szLine, " writer ") && strstr(szLine, ", line ");
    printf("%d writers, %d failed, %d lines of %d found in %s\n", atoi(argv[2]), iFailed, iFound,
           atoi(argv[2]) * atoi(argv[3]), szCopy);
    return iFailed || iFound != atoi(argv[2]) * atoi(argv[3]);
}
