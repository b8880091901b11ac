/* threads.c -- several threads walk a directory tree and trace what they find.
 *
 * usage: threads PREFIX DIRECTORY [THREADS]
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "ZEBULib2.h"

enum { LEVEL_ERROR = 0, LEVEL_NOTICE = 10, LEVEL_FILE = 20 };

static int cs_iThreads = 4;
static const char* cs_pszRoot;

/* Traces every entry below a directory. Each thread takes the entries of the root whose turn is its own. */
static void walk(const char* pszDirectory, int iThread, int bRoot)
{
    DIR* pDirectory = opendir(pszDirectory);
    struct dirent* pEntry;
    int n = 0;
    if (!pDirectory) {
        ZEBU2_PutWithMsgType(LEVEL_ERROR, "walker", "OPENDIR", "E", pszDirectory);
        return;
    }
    while ((pEntry = readdir(pDirectory)) != NULL) {
        char szPath[4096], szText[4200];
        struct stat info;
        if (!strcmp(pEntry->d_name, ".") || !strcmp(pEntry->d_name, "..") ||
            (bRoot && n++ % cs_iThreads != iThread))
            continue;
        if (snprintf(szPath, sizeof szPath, "%s/%s", pszDirectory, pEntry->d_name) >= (int)sizeof szPath ||
            lstat(szPath, &info) != 0)
            continue;
        snprintf(szText, sizeof szText, "%10ld %s", (long)info.st_size, szPath);
        ZEBU2_PutWithId(LEVEL_FILE, S_ISDIR(info.st_mode) ? "DIRECTORY" : "FILE", szText);
        if (S_ISDIR(info.st_mode))
            walk(szPath, iThread, 0);
    }
    closedir(pDirectory);
}

static void* run(void* pThread)
{
    int iThread = (int)(long)pThread;
    ZEBU2_PutWithId(LEVEL_NOTICE, "START", "walker begins");
    walk(cs_pszRoot, iThread, 1);
    ZEBU2_PutWithId(LEVEL_NOTICE, "END", "walker is done");
    return NULL;
}

int main(int argc, char** argv)
{
    tagZEBU_LOGFILE_SPEC ring = {256 * 1024, 4, NULL};
    pthread_t threads[64];
    long i;
    int iResult, iCode;
    if (argc < 3) {
        fprintf(stderr, "usage: %s PREFIX DIRECTORY [THREADS]\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    cs_pszRoot = argv[2];
    if (argc > 3 && atoi(argv[3]) > 0 && atoi(argv[3]) <= 64)
        cs_iThreads = atoi(argv[3]);
    iResult = ZEBU2_Initialize(&ring, "threads");
    if (iResult != 0) {
        iCode = 0;
        fprintf(stderr, "start: result %d, error 0x%08X", iResult, (unsigned)ZEBU2_GetLastError(&iCode));
        fprintf(stderr, " (%s)\n", strerror(iCode));
        if (iResult == -1)
            return 1;
    }
    ZEBU2_SetLogLevel(LEVEL_FILE);       /* everything is written to the files ... */
    ZEBU2_SetShmThreshold(LEVEL_NOTICE); /* ... and what matters to the trace area, too */
    for (i = 0; i < cs_iThreads; ++i)
        pthread_create(&threads[i], NULL, run, (void*)i);
    for (i = 0; i < cs_iThreads; ++i)
        pthread_join(threads[i], NULL);
    iResult = ZEBU2_Finalize();
    ZEBU2_EndLibrary();
    return iResult == 0 ? 0 : 1;
}
