/* instances.c -- the process log, an instance with a ring of its own, and one that shares its ring.
 *
 * usage: instances DIRECTORY
 */
#include <stdio.h>

#include "ZEBULib2.h"

static tagZEBU_LOGFILE_SPEC ring(char* pszPrefix, size_t uRoom, const char* pszDirectory, const char* pszName)
{
    tagZEBU_LOGFILE_SPEC description = {64 * 1024, 3, NULL};
    snprintf(pszPrefix, uRoom, "%s/%s", pszDirectory, pszName);
    description.pszFilePath = pszPrefix;
    return description;
}

int main(int argc, char** argv)
{
    char szMain[4000], szAudit[4000], szJobs[4000];
    tagZEBU_LOGFILE_SPEC mainRing, auditRing, jobsRing;
    ZEBU2_HINSTANCE hAudit = NULL, hJobs = NULL;
    if (argc < 2) {
        fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    mainRing = ring(szMain, sizeof szMain, argv[1], "main");
    auditRing = ring(szAudit, sizeof szAudit, argv[1], "audit");
    jobsRing = ring(szJobs, sizeof szJobs, argv[1], "jobs");

    if (ZEBU2_Initialize(&mainRing, "server") != 0 ||
        ZEBU2_CreateInstance(&hAudit, &auditRing, "audit") != 0 ||
        ZEBU2_CreateInstanceM(&hJobs, &jobsRing, "jobs", ZEBU2_OPT_NOFILL) != 0) {
        fprintf(stderr, "error 0x%08X\n", (unsigned)ZEBU2_GetLastError(NULL));
        return 1;
    }
    ZEBU2_SetInstanceLogLevel(hAudit, 100); /* the audit log takes every level up to 100 ... */
    ZEBU2_SetInstanceShmThreshold(hAudit, ZEBU2_LEVEL_OFF); /* ... and keeps it to its files */

    ZEBU2_PutLine(0, "server is up");
    ZEBU2_PutInstanceWithId(hAudit, 100, "LOGIN", "user 4711 from 192.0.2.7");
    ZEBU2_PutInstanceWithMsgType(hJobs, 0, NULL, "JOB0001", "I", "nightly run begins");

    if (ZEBU2_DeleteInstance(hJobs) != 0 || ZEBU2_DeleteInstance(hAudit) != 0 || ZEBU2_Finalize() != 0)
        return 1;
    return ZEBU2_EndLibrary();
}
