/* threads.c -- several threads trace what they find in a directory.
 *
 * usage: threads PREFIX [DIRECTORY [THREADS]]
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "ZEBULib2.h"

enum { LEVEL_NOTICE = 10, LEVEL_FILE = 20, THREADS_MAX = 64 };

static DIR* cs_pDirectory;
static pthread_mutex_t cs_mutex = PTHREAD_MUTEX_INITIALIZER;

static const char* nextName(char* pszName, size_t uRoom)
{
    pthread_mutex_lock(&cs_mutex);
    struct dirent* pEntry = readdir(cs_pDirectory);
    if (pEntry)
        snprintf(pszName, uRoom, "%s", pEntry->d_name);
    pthread_mutex_unlock(&cs_mutex);
    return pEntry ? pszName : NULL;
}

static void* run(void* pNothing)
{
    char szName[256], szText[300];
    struct stat info;
    ZEBU2_PutWithId(LEVEL_NOTICE, "START", "a thread begins");
    while (nextName(szName, sizeof szName)) {
        if (fstatat(dirfd(cs_pDirectory), szName, &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        snprintf(szText, sizeof szText, "%10ld %s", (long)info.st_size, szName);
        ZEBU2_PutWithId(LEVEL_FILE, S_ISDIR(info.st_mode) ? "DIRECTORY" : "FILE", szText);
    }
    ZEBU2_PutWithId(LEVEL_NOTICE, "END", "a thread is done");
    return pNothing;
}

int main(int argc, char** argv)
{
    tagZEBU_LOGFILE_SPEC ring = {256 * 1024, 4, argv[1]};
    int iThreads = argc > 3 ? atoi(argv[3]) : 4;
    pthread_t threads[THREADS_MAX];
    if (argc < 2) {
        fprintf(stderr, "usage: %s PREFIX [DIRECTORY [THREADS]]\n", argv[0]);
        return 2;
    }
    cs_pDirectory = opendir(argc > 2 ? argv[2] : ".");
    if (!cs_pDirectory || iThreads < 1 || iThreads > THREADS_MAX || ZEBU2_Initialize(&ring, "threads") == -1)
        return 1;
    ZEBU2_SetLogLevel(LEVEL_FILE);       /* everything is written to the files ... */
    ZEBU2_SetShmThreshold(LEVEL_NOTICE); /* ... and what matters to the trace area, too */
    for (int i = 0; i < iThreads; ++i)
        pthread_create(&threads[i], NULL, run, NULL);
    for (int i = 0; i < iThreads; ++i)
        pthread_join(threads[i], NULL);
    return ZEBU2_Finalize() == 0 && closedir(cs_pDirectory) == 0 ? 0 : 1;
}
