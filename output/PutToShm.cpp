// output/PutToShm.cpp -- copying raw bytes as a line into the trace area.
#include <string.h>

#include "frame/ErrPos.h"
#include "frame/GrobalVarUnix.h"
#include "output/PutMsg.h"

int ZEBU2_PutToShm(const void* pData, unsigned long ulLength)
{
    const ZEBUErrScope err(ZEBU_FUNC_PUT_TO_SHM);
    tagZEBU_TLS_VAR* pTls = err.context();
    if (!pTls)
        return -1;
    if (!pData && ulLength > 0)
        return err.fail(ZEBU_EPOS_PARAM);

    timeval time;
    (void)ZEBU_MakeupTraceMessageHeader(pTls->szLineBuf, ZEBU2_szAppName, pTls->szThreadId, 0, &time, pTls);
    const size_t uLength = ulLength < ZEBU2_TEXT_MAX ? ulLength : ZEBU2_TEXT_MAX;
    if (uLength > 0)
        memcpy(pTls->szLineBuf + ZEBU_COL_BODY, pData, uLength);
    memcpy(pTls->szLineBuf + ZEBU_COL_BODY + uLength, "\r\n", 3);
    return err.finish(ZEBU_PutMsgToMMap(pTls, pTls->szLineBuf, ZEBU_COL_BODY + uLength + 2, &time));
}
