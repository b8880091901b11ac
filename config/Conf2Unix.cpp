// config/Conf2Unix.cpp -- finding the template among the lines of the configuration file.
#include "config/Conf2Unix.h"

#include <string.h>

#include "config/ConfFile.h"

ZEBUConfigInf2::ZEBUConfigInf2()
{
    memset(szMsgString, 0, sizeof szMsgString);
    (void)loadCnf();
}

int ZEBUConfigInf2::loadCnf()
{
    const char* pszOverride = ZEBU_GetCnfOverride();
    ZEBUConfFile file(pszOverride ? pszOverride : ZEBU_cs_pszCnfFileName);
    if (!file.isOpen())
        return -1;
    while (const char* pszLine = file.nextLine()) {
        if (!ZEBU_IsCnfKey(pszLine, ZEBU_cs_pszCnfEntMsgString))
            continue;
        const char* pszValue = strchr(pszLine + strlen(ZEBU_cs_pszCnfEntMsgString), '=');
        if (!pszValue)
            break; // a line without "=" ends the reading
        pszValue += pszValue[1] == ' ' ? 2 : 1;
        memset(szMsgString, 0, sizeof szMsgString);
        memcpy(szMsgString, pszValue, strnlen(pszValue, ZEBU_MSG_STRING_MAX));
    }
    return 0;
}
