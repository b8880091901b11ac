// tools/reader/Line.h -- the columns of a trace line and the lines of a file header.
//
// Views point into the text that was parsed. Nothing here allocates, fails loudly or looks behind the
// end of its argument: the text may be any bytes.
#ifndef ZEBU_TOOLS_READER_LINE_H
#define ZEBU_TOOLS_READER_LINE_H

#include <string_view>

#include "output/LineFormat.h"

// A point in local time as a number that sorts: yyyymmddhhmmssmmm, 17 decimal digits.
using ZEBUTime = long;
constexpr ZEBUTime ZEBU_TIME_NONE = -1; // masked, or not to be had when the line was written

struct ZEBULine
{
    int iCounter = 0;
    ZEBUTime lTime = ZEBU_TIME_NONE;
    std::string_view svTime; // the 23 columns as they stand
    std::string_view svApp;  // without the blanks behind it, as all fields
    unsigned uPid = 0;
    std::string_view svTid;
    std::string_view svBody; // to the end of the text, without the last line end
};

enum class ZEBUPiece {
    Trace,       // begins with the header of a trace line
    StartHeader, // first line of a process-start header
    FileHeader,  // first line of a file-start header
    Caption,     // last line of both headers
    Text         // anything else: goes on with what stands before it
};

enum class ZEBUForm { Unknown, Plain, Id, Type };

struct ZEBUBody
{
    ZEBUForm eForm = ZEBUForm::Unknown; // Unknown: the fields below are empty
    std::string_view svId;
    std::string_view svType;
    std::string_view svText;
};

// Parses a text that begins with a trace line. Returns false when it does not; `*pLine` is then undefined.
bool ZEBU_ParseLine(std::string_view svText, ZEBULine* pLine);

// Tells what a line is; of a Trace `*pLine`, if it is not null, is what was parsed.
ZEBUPiece ZEBU_ClassifyPiece(std::string_view svPiece, ZEBULine* pLine = nullptr);

// The time that stands in a file-start header line.
ZEBUTime ZEBU_HeaderTime(std::string_view svPiece);

// The file-start header line in a text that begins with a header; empty when there is none.
std::string_view ZEBU_FindFileHeader(std::string_view svText);

// The host of a file-start header line, and what TZ was set to when it was written; empty when unknown.
std::string_view ZEBU_HeaderHost(std::string_view svPiece);
std::string_view ZEBU_HeaderZone(std::string_view svPiece);

// The position of the first trace line header in a text, or npos.
size_t ZEBU_FindLineHeader(std::string_view svText);

// Cuts a body into the fields of a form; false when the columns between the fields are not blank, so that
// the body cannot have been written in that form.
bool ZEBU_CutBody(std::string_view svBody, ZEBUForm eForm, ZEBUBody* pOut);

// Whether what was cut out looks like an id: a single word, or a text that ends before its columns do.
bool ZEBU_IsLikelyId(const ZEBUBody& body);

// Reads a body in a form, or, where it cannot be cut so or none is told, in the one that the columns tell of.
// An id is taken for one when it is a single word that ends at least one blank before its column does, a type
// when it is a word or blank; a body that could as well be a plain text (a first word that fills the id's
// columns to the last, an id of blanks or with some in it) is Unknown.
ZEBUBody ZEBU_ReadBody(std::string_view svBody, ZEBUForm eForm = ZEBUForm::Unknown);

// The text without the line end (CR LF or LF) at its end.
std::string_view ZEBU_WithoutLineEnd(std::string_view svText);

#endif
