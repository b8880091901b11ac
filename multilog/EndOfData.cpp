// multilog/EndOfData.cpp -- the mark behind the last line of a shared trace file, and its scanner.
#include "multilog/EndOfData.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

void ZEBU_PutEndOfData(char* pBuf)
{
    pBuf[0] = ZEBU_EOD_BYTE;
    memcpy(pBuf + 1, ZEBU_EOD_TEXT, ZEBU_EOD_LENGTH);
}

size_t ZEBUEndOfDataScan::examine(const char* pBlock, size_t uLength)
{
    size_t i = 0;
    for (; i < uLength && pBlock[i] != '\0'; ++i) {
        if (pBlock[i] == ZEBU_EOD_BYTE && eState == LINE_END) {
            eState = FOUND;
            return i;
        }
        if (pBlock[i] == '\r')
            eState = AFTER_CR;
        else if (pBlock[i] == '\n' && eState == AFTER_CR)
            eState = LINE_END;
        else
            eState = INSIDE_LINE;
    }
    return i;
}

long ZEBU_SearchEndOfData(int iFd)
{
    ZEBUEndOfDataScan scan;
    size_t uCount = 0;
    char szBlock[ZEBU_SCAN_BLOCK];
    ssize_t lRead;
    while ((lRead = read(iFd, szBlock, sizeof szBlock)) != 0) {
        if (lRead < 0 && errno == EINTR)
            continue;
        if (lRead < 0)
            return -1;
        uCount += scan.examine(szBlock, static_cast<size_t>(lRead));
        if (scan.found())
            return static_cast<long>(uCount);
    }
    return 0;
}
