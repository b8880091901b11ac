// logfile/LogSwapMsg.h -- the notice to syslog when a ring of one process leaves a full file.
//
// The mode is one for the whole process, instances included. Nothing here fails or records a failure.
#ifndef ZEBU_LOGFILE_LOGSWAPMSG_H
#define ZEBU_LOGFILE_LOGSWAPMSG_H

#include <atomic>

constexpr int ZEBU_SWAP_MSG_MAX = 255; // characters of a notice

// 0 off, 1 on. Not reset by finalisation.
extern constinit std::atomic<int> ZEBU_eSwapMsgMode;

// A notice: its text, in which a percent sign of the template is two, and what is logged of it.
struct tagZEBU_SWAP_MSG
{
    char szText[ZEBU_SWAP_MSG_MAX + 1];
    char szShown[ZEBU_SWAP_MSG_MAX + 1];
};

// Whether notices are on.
int ZEBU_IsEnableSwapMsg();

// Builds the notice from a template: %f is the file's name, %i its number, %a the application name as
// it is held, %% a percent sign; another character behind "%" is dropped with it. Cuts at
// ZEBU_SWAP_MSG_MAX characters. Returns the length of the text.
int ZEBU_BuildSwapMsg(tagZEBU_SWAP_MSG* pMsg, const char* pszTemplate, const char* pszAppName, int iNumber,
                      const char* pszFileName);

// The same, and logs it at LOG_INFO under the identity and facility that the process has set.
int ZEBU_FormatSwapMsgString(const char* pszTemplate, const char* pszAppName, int iNumber,
                             const char* pszFileName);

#endif
