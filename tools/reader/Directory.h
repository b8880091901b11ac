// tools/reader/Directory.h -- the rings of a directory.
#ifndef ZEBU_TOOLS_READER_DIRECTORY_H
#define ZEBU_TOOLS_READER_DIRECTORY_H

#include <string>
#include <vector>

// The prefixes of the rings whose files lie in a directory, sorted. Empty, with errno, when it cannot be
// read.
std::vector<std::string> ZEBU_RingsIn(const std::string& strDirectory);

// Sources with each directory among them replaced by its rings. One without a ring, such as the one that
// holds the management files, is left out when there are other sources.
std::vector<std::string> ZEBU_WithoutDirectories(const std::vector<std::string>& sources);

// What to use instead for a file that holds no lines: a trace area or a management file. Else an empty text.
std::string ZEBU_OtherUse(const std::string& strPath);

#endif
