/* hello.c -- the least that a program does: start, say which levels count, put, stop.
 *
 * usage: hello PREFIX
 */
#include <stdio.h>

#include "ZEBULib2.h"

int main(int argc, char** argv)
{
    tagZEBU_LOGFILE_SPEC ring = {1024 * 1024, 4, NULL}; /* four files of 1 MiB */
    int iResult;
    if (argc < 2) {
        fprintf(stderr, "usage: %s PREFIX\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    iResult = ZEBU2_Initialize(&ring, "hello");
    if (iResult != 0) /* 1: no files, 2: no trace area; such a log can be used all the same */
        fprintf(stderr, "result %d, error 0x%08X\n", iResult, (unsigned)ZEBU2_GetLastError(NULL));
    if (iResult == -1)
        return 1;

    ZEBU2_SetLogLevel(10); /* at first only level 0 passes */
    ZEBU2_PutLine(0, "hello");
    ZEBU2_PutWithId(10, "NET-17", "a line with a message id");
    if (ZEBU2_PutLine(10, "a put returns 0 once its line is with the kernel") != 0)
        fprintf(stderr, "line lost, error 0x%08X\n", (unsigned)ZEBU2_GetLastError(NULL));

    ZEBU2_Finalize();
    ZEBU2_EndLibrary();
    return 0;
}
