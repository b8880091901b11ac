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

long fs_digits(std::string_view svText)
{
    long lValue = 0;
    for (const char c : svText)
        if (fs_isDigit(c))
            lValue = lValue * 10 + (c - '0');
    return lValue;
}

// Eight bytes that are looked at at once; "d" stands for a digit.
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
            uMask |= uint64_t{bDigit ? 0xF0u : 0xFFu} << (8 * i);
            uSix |= uint64_t{bDigit ? 6u : 0u} << (8 * i);
        }
    }

    // Without the bits of the shape a digit is a number up to 9: neither it nor 6 more has a high half.
    bool fits(const char* pText) const
    {
        uint64_t uText;
        memcpy(&uText, pText, sizeof uText);
        uText ^= uBits;
        return ((uText | (uText + uSix)) & uMask) == 0;
    }
};

bool fs_parseTime(std::string_view svTime, ZEBUTime* plTime)
{
    const char* p = svTime.data();
    *plTime = ZEBU_TIME_NONE;
    static constexpr Shape date("dddd/dd/");
    static constexpr Shape dayAndMinute("dd dd:dd");
    static constexpr Shape second("d:dd.ddd");
    if (!date.fits(p) || !dayAndMinute.fits(p + 8) || !second.fits(p + 15))
        return svTime == ZEBU_MASKED_TIME || svTime == ZEBU_NO_TIME;
    const auto pair = [&](size_t u) { return (p[u] - '0') * 10L + (p[u + 1] - '0'); };
    const long lMonth = pair(5);
    const long lDay = pair(8);
    const long lHour = pair(11);
    const long lMinute = pair(14);
    const long lSecond = pair(17);
    *plTime = (((pair(0) * 100 + pair(2)) * 100 + lMonth) * 100 + lDay) * 1000000000 + lHour * 10000000 +
              lMinute * 100000 + lSecond * 1000 + pair(20) * 10 + (p[22] - '0');
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
    if (svText.size() < ZEBU_LINE_HEADER || !fs_hasShape(svText, "dddd ") ||
        memcmp(svText.data() + ZEBU_COL_TIME + ZEBU_TIME_TEXT, "     ", 5) != 0 ||
        svText[ZEBU_COL_PID - 1] != ' ' || svText[ZEBU_COL_TID - 1] != ' ' ||
        svText[ZEBU_COL_BODY - 1] != ' ' || !fs_hasShape(svText.substr(ZEBU_COL_PID), "xxxxxxxx"))
        return false;
    pLine->svTime = svText.substr(ZEBU_COL_TIME, ZEBU_TIME_TEXT);
    if (!fs_parseTime(pLine->svTime, &pLine->lTime))
        return false;
    pLine->iCounter = static_cast<int>(fs_digits(svText.substr(ZEBU_COL_COUNT, ZEBU_COUNT_WIDTH)));
    pLine->svApp = fs_withoutBlanks(svText.substr(ZEBU_COL_APP, ZEBU_APP_NAME));
    pLine->uPid = 0;
    for (const char c : svText.substr(ZEBU_COL_PID, ZEBU_HEX_WIDTH))
        pLine->uPid = pLine->uPid * 16 + static_cast<unsigned>(fs_isDigit(c) ? c - '0' : c - 'A' + 10);
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
