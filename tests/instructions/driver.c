/* tests/instructions/driver.c -- one path of a put, so many times: its instructions are counted from outside.
 *
 * driver filtered|file|area TIMES DIRECTORY */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ZEBULib2.h"

int main(int iCount, char** ppArguments)
{
    static const char szText[] = "a message of one hundred bytes, as long as those that applications write: "
                                 "..........................";
    char szPrefix[512], szConfig[512];
    tagZEBU_LOGFILE_SPEC ring = {2000000000L, 2, szPrefix};
    FILE* pConfig;
    long i;
    if (iCount != 4)
        return 2;
    snprintf(szPrefix, sizeof szPrefix, "%s/app", ppArguments[3]);
    snprintf(szConfig, sizeof szConfig, "%s/test.cnf", ppArguments[3]);
    pConfig = fopen(szConfig, "w");
    if (!pConfig)
        return 2;
    fprintf(pConfig, "LogFile = %s/log\nMapSize = 16777216\n", ppArguments[3]); /* room for all lines */
    fclose(pConfig);
    setenv("ZEBU2_TRACECNF_FILE", szConfig, 1);
    if (ZEBU2_Initialize(&ring, "instructions") != 0)
        return 2;
    ZEBU2_SetLogLevel(strcmp(ppArguments[1], "filtered") == 0 ? 0 : 1);
    ZEBU2_SetFileThreshold(strcmp(ppArguments[1], "file") == 0 ? 0 : ZEBU2_LEVEL_OFF);
    ZEBU2_SetShmThreshold(strcmp(ppArguments[1], "area") == 0 ? 1000 : ZEBU2_LEVEL_OFF);
    for (i = atol(ppArguments[2]); i > 0; --i) {
        if (ZEBU2_PutLine(1, szText) != 0)
            return 1;
    }
    return ZEBU2_Finalize() == 0 ? 0 : 1;
}
