#include "tools/forward/Frame.h"

#include <algorithm>

namespace {
constexpr size_t cs_uDigitsMax = 9; // of a number or a length
constexpr size_t cs_uCommandMax = 32;

bool fs_isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Takes a decimal number off the front. Partial when the digits reach the end of the bytes.
ZEBUFrameState fs_takeNumber(std::string_view* psvBytes, unsigned* puValue)
{
    size_t uDigits = 0;
    *puValue = 0;
    for (; uDigits < psvBytes->size() && fs_isDigit((*psvBytes)[uDigits]); ++uDigits) {
        if (uDigits == cs_uDigitsMax)
            return ZEBUFrameState::Broken;
        *puValue = *puValue * 10 + static_cast<unsigned>((*psvBytes)[uDigits] - '0');
    }
    if (uDigits == psvBytes->size())
        return ZEBUFrameState::Partial;
    psvBytes->remove_prefix(uDigits);
    return uDigits > 0 ? ZEBUFrameState::Whole : ZEBUFrameState::Broken;
}

// Takes the blank, the command and the blank behind it.
ZEBUFrameState fs_takeCommand(std::string_view* psvBytes, std::string_view* psvCommand)
{
    if (psvBytes->front() != ' ')
        return ZEBUFrameState::Broken;
    const size_t uEnd = psvBytes->find(' ', 1);
    if (std::min(uEnd, psvBytes->size()) > cs_uCommandMax + 1 || uEnd == 1)
        return ZEBUFrameState::Broken;
    if (uEnd == psvBytes->npos)
        return ZEBUFrameState::Partial;
    *psvCommand = psvBytes->substr(1, uEnd - 1);
    psvBytes->remove_prefix(uEnd + 1);
    return ZEBUFrameState::Whole;
}

// Takes the data and the line feed. Without data their blank may be missing.
ZEBUFrameState fs_takeData(std::string_view* psvBytes, unsigned uLength, std::string_view* psvData)
{
    const bool bBlank = psvBytes->front() == ' ';
    if (uLength > ZEBU_FRAME_DATA_MAX || (uLength > 0 && !bBlank))
        return ZEBUFrameState::Broken;
    if (bBlank)
        psvBytes->remove_prefix(1);
    if (psvBytes->size() <= uLength)
        return ZEBUFrameState::Partial;
    *psvData = psvBytes->substr(0, uLength);
    psvBytes->remove_prefix(uLength);
    if (psvBytes->front() != '\n')
        return ZEBUFrameState::Broken;
    psvBytes->remove_prefix(1);
    return ZEBUFrameState::Whole;
}
} // namespace

void ZEBU_AppendFrame(std::string& strOut, unsigned uNumber, std::string_view svCommand,
                      std::string_view svData)
{
    strOut.append(std::to_string(uNumber)).append(1, ' ').append(svCommand).append(1, ' ');
    strOut.append(std::to_string(svData.size()));
    if (!svData.empty())
        strOut.append(1, ' ').append(svData);
    strOut.append(1, '\n');
}

ZEBUFrameState ZEBU_ReadFrame(std::string_view svBytes, ZEBUFrame* pFrame, size_t* puTaken)
{
    std::string_view svRest = svBytes;
    unsigned uLength = 0;
    ZEBUFrameState eState = fs_takeNumber(&svRest, &pFrame->uNumber);
    if (eState == ZEBUFrameState::Whole)
        eState = fs_takeCommand(&svRest, &pFrame->svCommand);
    if (eState == ZEBUFrameState::Whole)
        eState = fs_takeNumber(&svRest, &uLength);
    if (eState == ZEBUFrameState::Whole)
        eState = fs_takeData(&svRest, uLength, &pFrame->svData);
    *puTaken = svBytes.size() - svRest.size();
    return eState;
}

int ZEBU_AnswerCode(std::string_view svData)
{
    const bool bCode = svData.size() >= 3 && fs_isDigit(svData[0]) && fs_isDigit(svData[1]) &&
                       fs_isDigit(svData[2]) && (svData.size() == 3 || !fs_isDigit(svData[3]));
    return bCode ? (svData[0] - '0') * 100 + (svData[1] - '0') * 10 + (svData[2] - '0') : 0;
}
