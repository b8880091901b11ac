/* tests/instructions/driver.c -- one path of a put, so many times: its instructions are counted from outside.
 *
 * driver filtered|file|area TIMES PREFIX */
#include <stdlib.h>
#include <string.h>

#include "ZEBULib2.h"

int main(int iCount, char** ppArguments)
{
    static const char szText[] = "a message of one hundred bytes, as long as those that applications write: "
                                 "..........................";
    const tagZEBU_LOGFILE_SPEC ring = {2000000000L, 2, iCount == 4 ? ppArguments[3] : NULL};
    if (!ring.pszFilePath || ZEBU2_Initialize(&ring, "instructions") != 0)
        return 2;
    ZEBU2_SetLogLevel(strcmp(ppArguments[1], "filtered") == 0 ? 0 : 1);
    ZEBU2_SetFileThreshold(strcmp(ppArguments[1], "file") == 0 ? 0 : ZEBU2_LEVEL_OFF);
    ZEBU2_SetShmThreshold(strcmp(ppArguments[1], "area") == 0 ? 1000 : ZEBU2_LEVEL_OFF);
    for (long i = atol(ppArguments[2]); i > 0; --i)
        if (ZEBU2_PutLine(1, szText) != 0)
            return 1;
    return ZEBU2_Finalize() == 0 ? 0 : 1;
}
