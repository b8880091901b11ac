// config/ConfFile.h -- the configuration file: which one is read, and its lines.
//
// Shared by the two configuration classes, each of which picks its own keys out of the lines.
#ifndef ZEBU_CONFIG_CONFFILE_H
#define ZEBU_CONFIG_CONFFILE_H

#include <stdio.h>

constexpr char ZEBU_cs_pszCnfFileName[] = "/opt/kelvora/ZEBULib2/etc/D002zebu2.cnf";
constexpr char ZEBU1_cs_pszCnfFileName[] = "/opt/kelvora/ZEBULib/etc/D001zebu.cnf"; // of the first generation
constexpr char ZEBU_cs_pszCnf2Env[] = "ZEBU2_TRACECNF_FILE";

constexpr int ZEBU_CNF_PATH_MAX = 4096;  // characters of a path that the configuration may name
constexpr int ZEBU_CNF_LINE_ROOM = 4160; // a longer line is read in pieces of one byte less

// Returns the file that the environment names in place of ZEBU_cs_pszCnfFileName, or null when it names
// none or one that is not allowed: not 1 to 4096 characters, not absolute, one of the two standard
// files in any spelling, or not an existing regular file. Null too in a program that runs with more rights
// than its user: the environment is not the program's own there.
const char* ZEBU_GetCnfOverride();

// A configuration file opened for reading; closed with the object. The open never waits, not even for
// the writer of a FIFO.
class ZEBUConfFile final
{
public:
    explicit ZEBUConfFile(const char* pszName);
    ~ZEBUConfFile();
    ZEBUConfFile(const ZEBUConfFile&) = delete;
    ZEBUConfFile& operator=(const ZEBUConfFile&) = delete;

    bool isOpen() const { return pStream != nullptr; }

    // Reads the next line, with its line feed, or piece of one. Returns null at the end of the file and
    // when reading fails. The text lives until the next call.
    const char* nextLine();

    // The number, from 1, of the line that the last text is of, and whether it is a later piece of it.
    int line() const { return iLine; }
    bool isLaterPiece() const { return bLaterPiece; }

private:
    FILE* pStream;
    int iLine = 0;
    bool bLaterPiece = false;
    bool bGoesOn = false; // the last text was a piece that is not the last of its line
    char szLine[ZEBU_CNF_LINE_ROOM];
};

// Whether a line belongs to a key: it begins with the key's name, whatever follows.
bool ZEBU_IsCnfKey(const char* pszLine, const char* pszKey);

#endif
