// tools/forward/Frame.h -- the frames of RELP: number, command, length and data, ended by a line feed.
//
// What comes from the server is untrusted: numbers, lengths and commands are bounded before they are used.
#ifndef ZEBU_TOOLS_FORWARD_FRAME_H
#define ZEBU_TOOLS_FORWARD_FRAME_H

#include <string>
#include <string_view>

constexpr unsigned ZEBU_FRAME_NUMBER_MAX = 999'999'999;   // and then 1 again
constexpr size_t ZEBU_FRAME_DATA_MAX = size_t{64} * 1024; // of an answer; they are a few words long

struct ZEBUFrame
{
    unsigned uNumber = 0;
    std::string_view svCommand;
    std::string_view svData;
};

enum class ZEBUFrameState { Whole, Partial, Broken };

void ZEBU_AppendFrame(std::string& strOut, unsigned uNumber, std::string_view svCommand,
                      std::string_view svData);

// Reads the frame that the bytes begin with. Whole: `*puTaken` is its length, and the views of `*pFrame`
// point into the bytes. Partial: it needs more of them. Broken: this is no frame, and nothing behind it can
// be found.
ZEBUFrameState ZEBU_ReadFrame(std::string_view svBytes, ZEBUFrame* pFrame, size_t* puTaken);

// The code that the data of an answer begin with, such as 200; 0 when there is none.
int ZEBU_AnswerCode(std::string_view svData);

#endif
