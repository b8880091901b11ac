/* levels.c -- which message goes where.
 *
 * Level 0 is the most important. Three settings, all 0 at first, decide: the log level (what is above it
 * is dropped at once), the file threshold (the files get this level AND ABOVE) and the threshold of the
 * trace area (it gets this level AND BELOW). -1 switches off.
 * usage: levels PREFIX
 */
#include <stdio.h>

#include "ZEBULib2.h"

/* Puts a message of each level from 0 to 6 under the settings given. */
static void show(int iLogLevel, int iFile, int iArea)
{
    int iLevel;
    ZEBU2_SetLogLevel(iLogLevel);
    ZEBU2_SetFileThreshold(iFile);
    ZEBU2_SetShmThreshold(iArea);
    for (iLevel = 0; iLevel <= 6; ++iLevel) {
        char szText[80];
        snprintf(szText, sizeof szText, "level %d with log level %d, files %d, area %d", iLevel, iLogLevel,
                 iFile, iArea);
        ZEBU2_PutLine(iLevel, szText);
    }
}

int main(int argc, char** argv)
{
    tagZEBU_LOGFILE_SPEC ring = {64 * 1024, 2, NULL};
    if (argc < 2) {
        fprintf(stderr, "usage: %s PREFIX\n", argv[0]);
        return 2;
    }
    ring.pszFilePath = argv[1];
    if (ZEBU2_Initialize(&ring, "levels") == -1)
        return 1;

    show(0, 0, 0);  /* the start: level 0, to both */
    show(5, 0, 0);  /* 0 to 5 to the files, 0 to the area */
    show(5, 3, 4);  /* 0 to 2 to the area, 3 and 4 to both, 5 to the files */
    show(5, -1, 5); /* 0 to 5 to the area alone */
    show(-1, 0, 5); /* nothing to anywhere */

    ZEBU2_Finalize();
    ZEBU2_EndLibrary();
    return 0;
}
