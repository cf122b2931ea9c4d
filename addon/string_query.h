// The two-call buffer protocol of the text queries, apart from Node-API so
// that it can be exercised on its own.
#ifndef TARNTERMCHART_STRING_QUERY_H
#define TARNTERMCHART_STRING_QUERY_H

#include <string>

using StringQuery = int (*)(const char *chartDir, char *buffer, int bufferSize);

// A size query with no buffer, then a fill call with a buffer of exactly
// that size.  On success (fill call returned 0) result holds exactly the
// size's bytes, a terminator the library counted included, and error is
// empty; otherwise error holds the message of the call that decided.
void RunStringQuery(StringQuery query, const std::string &chartDir, std::string &result,
                    std::string &error);

#endif
