// output/ltostr.h -- fixed-width text, the pieces that trace lines and file headers are built of.
//
// Every function writes exactly the width it names at the position it is given, and no terminator.
// Widths are in bytes. No lock, no allocation, no library call: safe in a signal handler.
// IntToStr is laid out anew wherever it is used, as so many stores where the width is a number in the code.
#ifndef ZEBU_OUTPUT_LTOSTR_H
#define ZEBU_OUTPUT_LTOSTR_H

// "00" to "99": two digits for one division.
#pragma GCC visibility push(hidden)
extern const char ZEBU_szDigitPairs[];
#pragma GCC visibility pop

// Writes the lowest `iWidth` decimal digits of `iValue` (not negative), zero-filled on the left:
// 7 in width 3 is "007", 123 in width 2 is "23". A width below 1 writes nothing. Returns `pBuf`.
[[gnu::always_inline]] inline char* ZEBU2_IntToStr(char* pBuf, int iValue, int iWidth)
{
    auto uValue = static_cast<unsigned int>(iValue);
    for (; iWidth > 1; iWidth -= 2, uValue /= 100)
        __builtin_memcpy(pBuf + iWidth - 2, &ZEBU_szDigitPairs[2UL * (uValue % 100)], 2);
    if (iWidth == 1)
        pBuf[0] = static_cast<char>('0' + uValue % 10);
    return pBuf;
}

// Writes `uValue` as eight upper-case hexadecimal digits.
void ZEBU_PutHex8(char* pBuf, unsigned int uValue);

// Writes `pszText` left-aligned in `iWidth` columns, cut or blank-padded to fit. Null is all blanks.
void ZEBU_PutField(char* pBuf, const char* pszText, int iWidth);

#endif
