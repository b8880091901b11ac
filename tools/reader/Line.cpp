// tools/reader/Line.cpp -- recognises lines and headers by their columns.
#include "tools/reader/Line.h"

#include <stdint.h>
#include <string.h>

namespace {
constexpr size_t cs_uIdWidth = ZEBU_ID_WIDTH;
constexpr size_t cs_uTypedIdWidth = ZEBU_TYPED_ID_WIDTH;
constexpr size_t cs_uTypeColumn = ZEBU_COL_TYPE - ZEBU_COL_BODY; // within the body, as the next
constexpr size_t cs_uTextColumn = ZEBU_COL_TEXT - ZEBU_COL_BODY;

bool fs_isDigit(char c)
{
    return c >= '0' && c <= '9';
}
bool fs_isHex(char c)
{
    return fs_isDigit(c) || (c >= 'A' && c <= 'F');
}

// "d" stands for a digit, "x" for an upper-case hexadecimal digit, "?" for any byte.
bool fs_hasShape(std::string_view svText, std::string_view svShape)
{
    for (size_t i = 0; i < svShape.size(); ++i) {
        const bool bFits = svShape[i] == 'd'   ? fs_isDigit(svText[i])
                           : svShape[i] == 'x' ? fs_isHex(svText[i])
                                               : svShape[i] == '?' || svShape[i] == svText[i];
        if (!bFits)
            return false;
    }
    return true;
}

// Eight upper-case hexadecimal digits.
bool fs_parseHex(const char* pText, unsigned* puValue)
{
    *puValue = 0;
    bool bHex = true;
    for (int i = 0; i < ZEBU_HEX_WIDTH; ++i) {
        bHex = bHex && fs_isHex(pText[i]);
        *puValue =
            *puValue * 16 + static_cast<unsigned>(pText[i] <= '9' ? pText[i] - '0' : pText[i] - 'A' + 10);
    }
    return bHex;
}

// Eight bytes that are looked at at once; "d" stands for a digit, "?" for any byte.
struct Shape
{
    uint64_t uBits = 0;
    uint64_t uMask = 0; // bits that must be as the shape has them
    uint64_t uSix = 0;  // 6 for each digit

    consteval Shape(const char (&szShape)[9])
    {
        for (int i = 0; i < 8; ++i) {
            const bool bDigit = szShape[i] == 'd';
            uBits |= static_cast<uint64_t>(bDigit ? '0' : szShape[i]) << (8 * i);
            uMask |= uint64_t{bDigit ? 0xF0u : szShape[i] == '?' ? 0u : 0xFFu} << (8 * i);
            uSix |= uint64_t{bDigit ? 6u : 0u} << (8 * i);
        }
    }

    // Without the bits of the shape a digit is a number up to 9: neither it nor 6 more has a high half. Each
    // two that stand side by side make the number that fs_pair finds where the first one stands.
    bool fits(const char* pText, uint64_t* puPairs) const
    {
        uint64_t uText;
        memcpy(&uText, pText, sizeof uText);
        uText ^= uBits;
        *puPairs = uText * 10 + (uText >> 8);
        return ((uText | (uText + uSix)) & uMask) == 0;
    }
    bool fits(const char* pText) const
    {
        uint64_t uPairs;
        return fits(pText, &uPairs);
    }
};

// The number that the digits at a place and behind it are.
long fs_pair(uint64_t uPairs, int iPlace)
{
    return static_cast<long>(uPairs >> (8 * iPlace) & 0xFF);
}

bool fs_parseTime(std::string_view svTime, ZEBUTime* plTime)
{
    const char* p = svTime.data();
    *plTime = ZEBU_TIME_NONE;
    static constexpr Shape date("dddd/dd/");
    static constexpr Shape dayAndMinute("dd dd:dd");
    static constexpr Shape second("d:dd.ddd");
    uint64_t uDate, uMinute, uSecond;
    if (!date.fits(p, &uDate) || !dayAndMinute.fits(p + 8, &uMinute) || !second.fits(p + 15, &uSecond))
        return svTime == ZEBU_MASKED_TIME || svTime == ZEBU_NO_TIME;
    const long lMonth = fs_pair(uDate, 5);
    const long lDay = fs_pair(uMinute, 0);
    const long lHour = fs_pair(uMinute, 3);
    const long lMinute = fs_pair(uMinute, 6);
    const long lSecond = fs_pair(uSecond, 2);
    *plTime = (((fs_pair(uDate, 0) * 100 + fs_pair(uDate, 2)) * 100 + lMonth) * 100 + lDay) * 1000000000 +
              lHour * 10000000 + lMinute * 100000 + lSecond * 1000 + fs_pair(uSecond, 5) * 10 + (p[22] - '0');
    return lMonth >= 1 && lMonth <= 12 && lDay >= 1 && lDay <= 31 && lHour <= 23 && lMinute <= 59 &&
           lSecond <= 60;
}

std::string_view fs_withoutBlanks(std::string_view svField)
{
    return svField.substr(0, svField.find_last_not_of(' ') + 1);
}

bool fs_isWord(std::string_view svField)
{
    return !svField.empty() && svField.find(' ') == svField.npos;
}
} // namespace

bool ZEBU_ParseLine(std::string_view svText, ZEBULine* pLine)
{
    static constexpr Shape counter("dddd ???");
    static constexpr Shape behindTime("     ???");
    const char* p = svText.data();
    uint64_t uCounter;
    if (svText.size() < ZEBU_LINE_HEADER || !counter.fits(p, &uCounter) ||
        !behindTime.fits(p + ZEBU_COL_TIME + ZEBU_TIME_TEXT) || p[ZEBU_COL_PID - 1] != ' ' ||
        p[ZEBU_COL_TID - 1] != ' ' || p[ZEBU_COL_BODY - 1] != ' ' ||
        !fs_parseHex(p + ZEBU_COL_PID, &pLine->uPid))
        return false;
    pLine->svTime = svText.substr(ZEBU_COL_TIME, ZEBU_TIME_TEXT);
    if (!fs_parseTime(pLine->svTime, &pLine->lTime))
        return false;
    pLine->iCounter = static_cast<int>(fs_pair(uCounter, 0) * 100 + fs_pair(uCounter, 2));
    pLine->svApp = fs_withoutBlanks(svText.substr(ZEBU_COL_APP, ZEBU_APP_NAME));
    pLine->svTid = fs_withoutBlanks(svText.substr(ZEBU_COL_TID, ZEBU_HEX_WIDTH));
    pLine->svBody = ZEBU_WithoutLineEnd(svText.substr(ZEBU_LINE_HEADER));
    return true;
}

ZEBUPiece ZEBU_ClassifyPiece(std::string_view svPiece, ZEBULine* pLine)
{
    ZEBULine line;
    if (ZEBU_ParseLine(svPiece, pLine ? pLine : &line))
        return ZEBUPiece::Trace;
    if (svPiece.starts_with(ZEBU_CAPTION))
        return ZEBUPiece::Caption;
    if (!svPiece.starts_with(ZEBU_HEADER_MARK))
        return ZEBUPiece::Text;
    const std::string_view svLine = ZEBU_WithoutLineEnd(svPiece);
    ZEBUTime lTime;
    if (svLine.size() == ZEBU_FILE_LINE && svLine[ZEBU_FILE_COL_TIME - 1] == ' ' &&
        fs_parseTime(svLine.substr(ZEBU_FILE_COL_TIME), &lTime))
        return ZEBUPiece::FileHeader;
    if (svLine.size() == ZEBU_START_LINE &&
        fs_hasShape(svLine.substr(ZEBU_START_COL_PID - 1), " xxxxxxxx dddddddddd dddd xxxxxxxx"))
        return ZEBUPiece::StartHeader;
    return ZEBUPiece::Text;
}

std::string_view ZEBU_FindFileHeader(std::string_view svText)
{
    std::string_view svPiece = svText.substr(0, svText.find('\n') + 1);
    if (ZEBU_ClassifyPiece(svPiece) == ZEBUPiece::StartHeader) {
        svText.remove_prefix(svPiece.size());
        svPiece = svText.substr(0, svText.find('\n') + 1);
    }
    return ZEBU_ClassifyPiece(svPiece) == ZEBUPiece::FileHeader ? svPiece : std::string_view();
}

ZEBUTime ZEBU_HeaderTime(std::string_view svPiece)
{
    ZEBUTime lTime = ZEBU_TIME_NONE;
    if (svPiece.size() < ZEBU_FILE_LINE ||
        !fs_parseTime(svPiece.substr(ZEBU_FILE_COL_TIME, ZEBU_TIME_TEXT), &lTime))
        return ZEBU_TIME_NONE;
    return lTime;
}

std::string_view ZEBU_HeaderHost(std::string_view svPiece)
{
    const std::string_view svHost =
        fs_withoutBlanks(svPiece.substr(ZEBU_FILE_COL_HOST, ZEBU_HOST_NAME_WIDTH));
    return svHost == "Unknown" ? std::string_view() : svHost;
}

std::string_view ZEBU_HeaderZone(std::string_view svPiece)
{
    const std::string_view svZone =
        fs_withoutBlanks(svPiece.substr(ZEBU_FILE_COL_ZONE, ZEBU_TIME_ZONE_WIDTH));
    if (!svZone.starts_with("TZ="))
        return {};
    return svZone.size() > 3 ? svZone.substr(3) : "UTC";
}

size_t ZEBU_FindLineHeader(std::string_view svText)
{
    ZEBULine line;
    for (size_t u = 0; u + ZEBU_LINE_HEADER <= svText.size(); ++u)
        if (fs_isDigit(svText[u]) && ZEBU_ParseLine(svText.substr(u), &line))
            return u;
    return svText.npos;
}

bool ZEBU_CutBody(std::string_view svBody, ZEBUForm eForm, ZEBUBody* pOut)
{
    *pOut = {.eForm = eForm, .svId = {}, .svType = {}, .svText = svBody};
    if (eForm == ZEBUForm::Plain)
        return true;
    if (svBody.size() < cs_uTextColumn || svBody[cs_uIdWidth] != ' ')
        return false;
    pOut->svText = svBody.substr(cs_uTextColumn);
    if (eForm == ZEBUForm::Id) {
        pOut->svId = fs_withoutBlanks(svBody.substr(0, cs_uIdWidth));
        return true;
    }
    pOut->svId = fs_withoutBlanks(svBody.substr(0, cs_uTypedIdWidth));
    pOut->svType = fs_withoutBlanks(svBody.substr(cs_uTypeColumn, ZEBU_TYPE_WIDTH));
    return svBody[cs_uTypedIdWidth] == ' ';
}

bool ZEBU_IsLikelyId(const ZEBUBody& body)
{
    const bool bTyped = body.eForm == ZEBUForm::Type;
    if (bTyped && body.svType.find(' ') != body.svType.npos)
        return false;
    return fs_isWord(body.svId) ||
           (!body.svId.empty() && body.svId.size() < (bTyped ? cs_uTypedIdWidth : cs_uIdWidth));
}

ZEBUBody ZEBU_ReadBody(std::string_view svBody, ZEBUForm eForm)
{
    ZEBUBody told;
    if (eForm != ZEBUForm::Unknown && ZEBU_CutBody(svBody, eForm, &told))
        return told;
    ZEBUBody id;
    ZEBUBody typed;
    const bool bId = ZEBU_CutBody(svBody, ZEBUForm::Id, &id);
    const bool bTyped = ZEBU_CutBody(svBody, ZEBUForm::Type, &typed) && fs_isWord(typed.svType);
    if (bId && fs_isWord(id.svId) && id.svId.size() < cs_uIdWidth)
        return id;
    if (bTyped && fs_isWord(typed.svId) && typed.svId.size() < cs_uTypedIdWidth)
        return typed;
    if ((bId && (id.svId.empty() || ZEBU_IsLikelyId(id))) || (bTyped && ZEBU_IsLikelyId(typed)))
        return {};
    return {.eForm = ZEBUForm::Plain, .svId = {}, .svType = {}, .svText = svBody};
}

std::string_view ZEBU_WithoutLineEnd(std::string_view svText)
{
    if (svText.ends_with("\r\n"))
        return svText.substr(0, svText.size() - 2);
    if (svText.ends_with('\n'))
        return svText.substr(0, svText.size() - 1);
    return svText;
}
