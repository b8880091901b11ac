// output/LineFormat.h -- the columns of a trace line and of the header lines, and what stands in them.
//
// Facts alone, for whoever writes or reads lines: the library, the tool and the benchmark. Columns count
// from 0; widths and lengths are in bytes.
#ifndef ZEBU_OUTPUT_LINEFORMAT_H
#define ZEBU_OUTPUT_LINEFORMAT_H

#include "ZEBULib2.h"

// ---- Fields --------------------------------------------------------------------------------------

constexpr int ZEBU_COUNT_WIDTH = 4;
constexpr int ZEBU_SECOND_TEXT = 20; // "yyyy/mm/dd hh:mm:ss."
constexpr int ZEBU_TIME_TEXT = 23;   // the same and three digits for the milliseconds
constexpr int ZEBU_APP_NAME = ZEBU2_APP_NAME_LENGTH;
constexpr int ZEBU_HEX_WIDTH = 8;
constexpr int ZEBU_PROCESS_ID = ZEBU_HEX_WIDTH + 1; // and a blank
constexpr int ZEBU_THREAD_ID = ZEBU_HEX_WIDTH + 1;  // and a blank
constexpr int ZEBU_ID_WIDTH = 21;
constexpr int ZEBU_TYPED_ID_WIDTH = 16; // of an id with a type behind it
constexpr int ZEBU_TYPE_WIDTH = 4;

// In place of the time: where it is masked, and where there is none to print.
constexpr char ZEBU_MASKED_TIME[] = "****/**/** **:**:**.***";
constexpr char ZEBU_NO_TIME[] = "----/--/-- --:--:--.---";
static_assert(sizeof ZEBU_MASKED_TIME == ZEBU_TIME_TEXT + 1 && sizeof ZEBU_NO_TIME == ZEBU_TIME_TEXT + 1);

// ---- A trace line --------------------------------------------------------------------------------

enum {
    ZEBU_COL_COUNT = 0,
    ZEBU_COL_TIME = 5,
    ZEBU_COL_APP = 33,
    ZEBU_COL_PID = 50,
    ZEBU_COL_TID = 59,
    ZEBU_COL_BODY = 68,
    ZEBU_COL_TYPE = 85, // of a body with a message type
    ZEBU_COL_TEXT = 90  // of a body with a message id
};
static_assert(ZEBU_COL_PID + ZEBU_PROCESS_ID == ZEBU_COL_TID &&
              ZEBU_COL_TID + ZEBU_THREAD_ID == ZEBU_COL_BODY);
static_assert(ZEBU_COL_BODY + ZEBU_ID_WIDTH + 1 == ZEBU_COL_TEXT);
static_assert(ZEBU_COL_BODY + ZEBU_TYPED_ID_WIDTH + 1 == ZEBU_COL_TYPE);
static_assert(ZEBU_COL_TYPE + ZEBU_TYPE_WIDTH + 1 == ZEBU_COL_TEXT);

constexpr int ZEBU_LINE_HEADER = ZEBU_COL_BODY; // columns before the body
constexpr int ZEBU_LINE_MAX = 4187;             // the longest line, CR LF included
constexpr int ZEBU_LINE_BUFFER = ZEBU_LINE_MAX + 1;
static_assert(ZEBU_COL_BODY + ZEBU2_TEXT_MAX + 2 == ZEBU_LINE_MAX);
static_assert(ZEBU_COL_TEXT + ZEBU2_ID_TEXT_MAX + 2 == ZEBU_LINE_MAX);

// ---- Header lines --------------------------------------------------------------------------------

constexpr char ZEBU_HEADER_MARK[] = "**** "; // both first lines begin with it

// First line at the start of a file.
constexpr int ZEBU_SYSTEM_WIDTH = 61;
constexpr int ZEBU_HOST_NAME_WIDTH = 17;
constexpr int ZEBU_TIME_ZONE_WIDTH = 32;
enum {
    ZEBU_FILE_COL_SYSTEM = 5,
    ZEBU_FILE_COL_HOST = ZEBU_FILE_COL_SYSTEM + ZEBU_SYSTEM_WIDTH,
    ZEBU_FILE_COL_ZONE = ZEBU_FILE_COL_HOST + ZEBU_HOST_NAME_WIDTH,
    ZEBU_FILE_COL_TIME = ZEBU_FILE_COL_ZONE + ZEBU_TIME_ZONE_WIDTH + 1,
    ZEBU_FILE_LINE = ZEBU_FILE_COL_TIME + ZEBU_TIME_TEXT // its length, without CR LF
};
static_assert(sizeof ZEBU_HEADER_MARK - 1 == ZEBU_FILE_COL_SYSTEM && ZEBU_FILE_LINE == 139);

// Second line: its words stand over the columns of a trace line. The language text follows.
constexpr char ZEBU_CAPTION[] =
    "     yyyy/mm/dd hh:mm:ss.sss                      pid      tid      message-id            ";
constexpr int ZEBU_LANG_MAX = 78;
static_assert(sizeof ZEBU_CAPTION - 1 == ZEBU_COL_TEXT);

// The longest header of a file, CR LF of both lines included.
constexpr int ZEBU_FILE_HEADER_MAX = ZEBU_FILE_LINE + 2 + ZEBU_COL_TEXT + ZEBU_LANG_MAX + 2;
static_assert(ZEBU_FILE_HEADER_MAX == 311);

// First line at the start of a process on a shared ring; the header of a file follows.
constexpr int ZEBU_SIZE_WIDTH = 10; // decimal digits
constexpr int ZEBU_FILES_WIDTH = 4; // decimal digits
enum {
    ZEBU_START_COL_APP = 5,
    ZEBU_START_COL_PID = 22,
    ZEBU_START_COL_SIZE = 31,
    ZEBU_START_COL_FILES = 42,
    ZEBU_START_COL_OPTION = 47,
    ZEBU_START_LINE = ZEBU_START_COL_OPTION + ZEBU_HEX_WIDTH // its length, without CR LF
};
static_assert(ZEBU_START_COL_APP + ZEBU_APP_NAME + 1 == ZEBU_START_COL_PID);
static_assert(ZEBU_START_COL_PID + ZEBU_HEX_WIDTH + 1 == ZEBU_START_COL_SIZE);
static_assert(ZEBU_START_COL_SIZE + ZEBU_SIZE_WIDTH + 1 == ZEBU_START_COL_FILES);
static_assert(ZEBU_START_COL_FILES + ZEBU_FILES_WIDTH + 1 == ZEBU_START_COL_OPTION && ZEBU_START_LINE == 55);

#endif
