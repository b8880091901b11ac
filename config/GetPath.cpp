// config/GetPath.cpp -- lexical normalisation: split, drop, join.
#include "config/GetPath.h"

#include <stdlib.h>
#include <string.h>

namespace {

struct tagZEBU_COMPONENT
{
    const char* pszName;
    size_t uLength;
};

bool fs_isName(const tagZEBU_COMPONENT& component, const char* pszName)
{
    return component.uLength == strlen(pszName) && memcmp(component.pszName, pszName, component.uLength) == 0;
}

size_t fs_countSlashes(const char* psz)
{
    size_t uCount = 0;
    for (; *psz != '\0'; ++psz)
        uCount += *psz == '/' ? 1 : 0;
    return uCount;
}

// Stores the components of `src` that are left after "." and ".." took effect; returns their number.
size_t fs_split(const char* src, tagZEBU_COMPONENT* pTable)
{
    size_t uCount = 0;
    while (*src != '\0') {
        ++src; // the "/" before the component
        const tagZEBU_COMPONENT component = {src, strcspn(src, "/")};
        src += component.uLength;
        if (component.uLength == 0 || fs_isName(component, "."))
            continue;
        if (!fs_isName(component, ".."))
            pTable[uCount++] = component;
        else if (uCount > 0)
            --uCount;
    }
    return uCount;
}

int fs_join(const tagZEBU_COMPONENT* pTable, size_t uCount, char* dst, size_t max)
{
    size_t uEnd = 0;
    dst[0] = '\0';
    for (size_t i = 0; i < uCount; ++i) {
        const size_t uLength = pTable[i].uLength;
        if (uLength + 1 > max - uEnd)
            return -1;
        dst[uEnd] = '/';
        memcpy(dst + uEnd + 1, pTable[i].pszName, uLength);
        uEnd += uLength + 1;
        dst[uEnd] = '\0';
    }
    if (uEnd == 0)
        memcpy(dst, "/", 2);
    return 0;
}

} // namespace

int ZEBU_GetAbsolutePath(const char* src, char* dst, size_t max)
{
    if (src[0] != '/')
        return -1;
    // At most one component behind each "/".
    auto* pTable = static_cast<tagZEBU_COMPONENT*>(calloc(fs_countSlashes(src), sizeof(tagZEBU_COMPONENT)));
    if (!pTable)
        return -1;
    const int iResult = fs_join(pTable, fs_split(src, pTable), dst, max);
    free(pTable);
    return iResult;
}

int ZEBU_GetParentPath(const char* src, char* dst, size_t max)
{
    if (ZEBU_GetAbsolutePath(src, dst, max) != 0)
        return -1;
    char* pszLast = strrchr(dst, '/');
    pszLast[pszLast == dst ? 1 : 0] = '\0';
    return 0;
}
