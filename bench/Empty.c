#include "Empty.h"

int bench_Empty(int iLevel, const char* pszText)
{
    (void)iLevel;
    (void)pszText;
    return 0;
}
