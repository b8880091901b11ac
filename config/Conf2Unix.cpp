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
        if (readLine(pszLine) == -1)
            break;
    }
    return 0;
}

int ZEBUConfigInf2::readLine(const char* pszLine)
{
    if (!ZEBU_IsCnfKey(pszLine, ZEBU_cs_pszCnfEntMsgString))
        return 0;
    const char* pszValue = strchr(pszLine + strlen(ZEBU_cs_pszCnfEntMsgString), '=');
    if (!pszValue)
        return -1;
    pszValue += pszValue[1] == ' ' ? 2 : 1;
    memset(szMsgString, 0, sizeof szMsgString);
    memcpy(szMsgString, pszValue, strnlen(pszValue, ZEBU_MSG_STRING_MAX));
    return 1;
}
