// logfile/FileHeader.h -- the two header lines of a trace file, the same for both file engines.
#ifndef ZEBU_LOGFILE_FILEHEADER_H
#define ZEBU_LOGFILE_FILEHEADER_H

#include "output/LineFormat.h"

struct tagZEBU_FILE_HEADER
{
    const char* pszSystem;    // at most 60 characters
    const char* pszHostName;  // at most 16 characters
    const char* pszTimeZone;  // exactly 32 characters
    const char* pszStartTime; // exactly 23 characters
    const char* pszLang;      // at most 78 characters
};

// Builds the two lines, without a terminator. Returns their length.
int ZEBU_BuildFileHeader(char (&szHeader)[ZEBU_FILE_HEADER_MAX], const tagZEBU_FILE_HEADER& fields);

// Fill the fields of a header from the machine and the environment. "Unknown" stands for what cannot be
// had, and for a variable that is not set.
void ZEBU_FormatSystem(char (&szSystem)[ZEBU_SYSTEM_WIDTH]);
void ZEBU_FormatHostName(char (&szHostName)[ZEBU_HOST_NAME_WIDTH]);
void ZEBU_FormatTimeZone(char (&szTimeZone)[ZEBU_TIME_ZONE_WIDTH + 1]);
void ZEBU_FormatLang(char (&szLang)[ZEBU_LANG_MAX + 1]);

#endif
