// tools/forward/Message.h -- a trace line as a message of RFC 5424.
//
// The text of the message is the line as it stands in its file, without its last line end. What the fields
// of the header do not take, blanks and what is no ASCII above all, is replaced there: nothing is lost, as
// the line has it.
#ifndef ZEBU_TOOLS_FORWARD_MESSAGE_H
#define ZEBU_TOOLS_FORWARD_MESSAGE_H

#include <map>
#include <string>
#include <string_view>

constexpr size_t ZEBU_MESSAGE_MAX = size_t{64} * 1024; // unless the user names another size
constexpr size_t ZEBU_MESSAGE_MIN = 1024;              // a header leaves room for text
constexpr size_t ZEBU_MESSAGE_LIMIT = size_t{1024} * 1024;

// Which severity a message type has.
class ZEBUSeverities
{
public:
    // The table that is used when the user gives none.
    ZEBUSeverities();
    // From "TYPE=SEVERITY,...": a number 0 to 7 or a name such as err; "*" for all other types. False when it
    // is no such table.
    bool parse(const std::string& strTable);
    int of(std::string_view svType) const;

private:
    std::map<std::string, int, std::less<>> m_severities;
    int m_iOther;
};

// What a message is made of; an empty field was not to be had.
struct ZEBUMessage
{
    int iSeverity = -1;      // 0 to 7
    std::string_view svTime; // of RFC 3339
    std::string_view svHost;
    std::string_view svApp;
    std::string_view svPid;
    std::string_view svId;
    std::string_view svTid;
    std::string_view svType;
    std::string_view svCounter;
    std::string_view svSource;
    std::string_view svText;
};

// The message, at most `uMax` bytes of it: a text that is longer is cut, and says so at its end.
std::string ZEBU_FormatMessage(const ZEBUMessage& message, size_t uMax);

#endif
