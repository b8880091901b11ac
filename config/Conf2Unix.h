// config/Conf2Unix.h -- the template of the file-switch notice, read by every ring of one process.
#ifndef ZEBU_CONFIG_CONF2UNIX_H
#define ZEBU_CONFIG_CONF2UNIX_H

constexpr int ZEBU_MSG_STRING_MAX = 255; // characters of a template that are kept

constexpr char ZEBU_cs_pszCnfEntMsgString[] = "MsgString";

class ZEBUConfigInf2 final
{
public:
    char szMsgString[ZEBU_MSG_STRING_MAX + 1]; // may end in a line feed; empty when there is none

    // Reads the file that the environment names, if it is allowed, else the standard file.
    ZEBUConfigInf2();

    // Returns 0, or -1 when the file cannot be opened. Records no failure.
    int loadCnf();

    // Takes the template that a line gives, if it is one of the key. Returns 1, 0 for any other line, or -1
    // for one without "=", which ends the reading.
    int readLine(const char* pszLine);
};

#endif
