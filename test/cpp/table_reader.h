// Reads a table back through the library's reader, for assertions.
#ifndef TARNTERMCHART_TABLE_READER_H
#define TARNTERMCHART_TABLE_READER_H

#include <string>
#include <vector>

// The values of the named fields of every live record ("?" for a missing
// field); empty when the table cannot be opened.
std::vector<std::vector<std::string>> ReadTable(const std::string &path,
                                                const std::vector<std::string> &fields);
// One field of every live record.
std::vector<std::string> ReadColumn(const std::string &path, const std::string &field);
// The record count of the table's header; -1 when it cannot be opened.
long HeaderCount(const std::string &path);

#endif
