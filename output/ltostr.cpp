// output/ltostr.cpp -- fixed-width text, for lines and headers. Runs in signal handlers.
#include "output/ltostr.h"

void ZEBU_PutHex8(char* pBuf, unsigned int uValue)
{
    for (int i = 7; i >= 0; --i, uValue >>= 4)
        pBuf[i] = "0123456789ABCDEF"[uValue & 15];
}

void ZEBU_PutField(char* pBuf, const char* pszText, int iWidth)
{
    int i = 0;
    for (; pszText && i < iWidth && pszText[i] != '\0'; ++i)
        pBuf[i] = pszText[i];
    for (; i < iWidth; ++i)
        pBuf[i] = ' ';
}
