// logfile/LogSwapMsg.cpp -- mode, text and logging of the file-switch notice.

// With it syslog would become a call of another name, and a program that stands in for syslog would not see
// the notice. Nothing here is of a size that it could check.
#undef _FORTIFY_SOURCE

#include "logfile/LogSwapMsg.h"

#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include "ZEBULib2.h"

constinit std::atomic<int> ZEBU_eSwapMsgMode{0};

static_assert(sizeof(int) == 4);
static constexpr int cs_iNumberRoom = 12; // "-2147483648" and a NUL
static constexpr char cs_szPercent[] = "%%";

unsigned int ZEBU2_SetSwapMessageMode(unsigned int uMode)
{
    if (uMode <= 1)
        ZEBU_eSwapMsgMode.store(static_cast<int>(uMode), std::memory_order_relaxed);
    return static_cast<unsigned int>(ZEBU_eSwapMsgMode.load(std::memory_order_relaxed));
}

int ZEBU_IsEnableSwapMsg()
{
    return ZEBU_eSwapMsgMode.load(std::memory_order_relaxed) == 1 ? 1 : 0;
}

// Appends to one of the two texts of a notice, which is terminated after it; cuts what has no room.
static int fs_append(char (&szText)[ZEBU_SWAP_MSG_MAX + 1], int iEnd, const char* pszPiece)
{
    const size_t uLength = strnlen(pszPiece, static_cast<size_t>(ZEBU_SWAP_MSG_MAX - iEnd));
    memcpy(szText + iEnd, pszPiece, uLength);
    iEnd += static_cast<int>(uLength);
    szText[iEnd] = '\0';
    return iEnd;
}

// What a placeholder stands for: nothing when it is not known.
static const char* fs_replacement(char cPlaceholder, const char* pszAppName, const char* pszNumber,
                                  const char* pszFileName)
{
    switch (cPlaceholder) {
    case 'a':
        return pszAppName;
    case 'i':
        return pszNumber;
    case 'f':
        return pszFileName;
    case '%':
        return cs_szPercent;
    default:
        return "";
    }
}

int ZEBU_BuildSwapMsg(tagZEBU_SWAP_MSG* pMsg, const char* pszTemplate, const char* pszAppName, int iNumber,
                      const char* pszFileName)
{
    char szNumber[cs_iNumberRoom];
    (void)snprintf(szNumber, sizeof szNumber, "%d", iNumber);
    int iText = fs_append(pMsg->szText, 0, "");
    int iShown = fs_append(pMsg->szShown, 0, "");
    for (const char* psz = pszTemplate; *psz != '\0' && iText < ZEBU_SWAP_MSG_MAX; ++psz) {
        const char szCharacter[] = {*psz, '\0'};
        const char* pszPiece = szCharacter;
        if (*psz == '%') {
            if (*++psz == '\0')
                break;
            pszPiece = fs_replacement(*psz, pszAppName, szNumber, pszFileName);
        }
        // What is shown comes from the text, so that both are cut at the same place.
        const char* pszAppended = pMsg->szText + iText;
        iText = fs_append(pMsg->szText, iText, pszPiece);
        iShown = fs_append(pMsg->szShown, iShown, pszPiece == cs_szPercent ? "%" : pszAppended);
    }
    return iText;
}

int ZEBU_FormatSwapMsgString(const char* pszTemplate, const char* pszAppName, int iNumber,
                             const char* pszFileName)
{
    tagZEBU_SWAP_MSG msg;
    const int iLength = ZEBU_BuildSwapMsg(&msg, pszTemplate, pszAppName, iNumber, pszFileName);
    syslog(LOG_INFO, "%s", msg.szShown);
    return iLength;
}
