// The tool's reading of one line: views stay within the text they came from.
#include "tools/reader/Line.h"
#include "Fuzz.h"

static bool isWithin(std::string_view part, std::string_view whole)
{
    return part.empty() ||
           (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize)
{
    const std::string copy(fuzzText(pData, uSize)); // on the heap: what follows is poisoned
    const std::string_view text = copy;
    (void)ZEBU_HeaderTime(text);
    const size_t uHeader = ZEBU_FindLineHeader(text);
    FUZZ_CHECK(uHeader == std::string_view::npos || uHeader + ZEBU_LINE_HEADER <= text.size());
    ZEBULine line;
    if (!ZEBU_ParseLine(text, &line)) {
        FUZZ_CHECK(ZEBU_ClassifyPiece(text) != ZEBUPiece::Trace);
        return 0;
    }
    FUZZ_CHECK(isWithin(line.svTime, text) && isWithin(line.svApp, text) && isWithin(line.svTid, text));
    FUZZ_CHECK(isWithin(line.svBody, text) && isWithin(ZEBU_WithoutLineEnd(text), text));
    const ZEBUBody body = ZEBU_ReadBody(line.svBody);
    FUZZ_CHECK(isWithin(body.svId, text) && isWithin(body.svType, text) && isWithin(body.svText, text));
    for (const ZEBUForm eForm : {ZEBUForm::Plain, ZEBUForm::Id, ZEBUForm::Type}) {
        ZEBUBody cut;
        if (ZEBU_CutBody(line.svBody, eForm, &cut))
            FUZZ_CHECK(isWithin(cut.svId, text) && isWithin(cut.svText, text));
    }
    return 0;
}
