// output/ltostr.cpp -- fixed-width text, for lines and headers. Runs in signal handlers.
#include "output/ltostr.h"

const char ZEBU_szDigitPairs[] = "00010203040506070809101112131415161718192021222324"
                                 "25262728293031323334353637383940414243444546474849"
                                 "50515253545556575859606162636465666768697071727374"
                                 "75767778798081828384858687888990919293949596979899";

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
