// output/PMsgSig.h -- what the signal-safe put is built of. No library call, no lock, no allocation.
#ifndef ZEBU_OUTPUT_PMSGSIG_H
#define ZEBU_OUTPUT_PMSGSIG_H

// Builds columns 0 to 67 of a line, with placeholders for time and thread id. Returns 0.
int ZEBU_MakeupTraceMessageHeader_SigSafe(char* pszLine, const char* pszAppName);

// As the functions of C without _r; null arguments copy nothing and give null (length 0).
char* ZEBU_strcpy_r(char* pszTo, const char* pszFrom);
// Copies up to a NUL or `iCount` bytes, whichever comes first; does not fill up with NULs.
char* ZEBU_strncpy_r(char* pszTo, const char* pszFrom, int iCount);
int ZEBU_strlen_r(const char* pszText);
void* ZEBU_memset_r(void* pTo, int iByte, unsigned long ulCount);

#endif
