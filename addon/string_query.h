// The two-call buffer protocol of the text queries, apart from Node-API so
// that it can be exercised on its own; and the whole texts behind them, for
// the package's own use beside the module's ten functions.
#ifndef TARNTERMCHART_STRING_QUERY_H
#define TARNTERMCHART_STRING_QUERY_H

#include <string>

using StringQuery = int (*)(const char *chartDir, char *buffer, int bufferSize);

// A size query with no buffer, then a fill call with a buffer of exactly
// that size.  On success (fill call returned 0) result holds exactly the
// size's bytes, a terminator the library counted included, and error is
// empty; otherwise error holds the message of the call that decided, and
// *decided (when given) that call's answer.
void RunStringQuery(StringQuery query, const std::string &chartDir, std::string &result,
                    std::string &error, int *decided = nullptr);

// The texts whole, up to their first NUL: 0 with text set, or the query's
// failing answer.
//   ReadCycleText     the cycle value: buffers of growing size while the
//                     query answers -5 (value longer than the buffer), up to
//                     64 MB; a longer value stays -5
//   ReadLabelText     the period label, written into a buffer with ample room
//   ReadCoverageText  the region names: the size query, then a fill call of
//                     that size (its answer is the size again); a list that
//                     grew meanwhile is asked for again, a few times
int ReadCycleText(StringQuery query, const std::string &chartDir, std::string &text);
int ReadLabelText(StringQuery query, const std::string &chartDir, std::string &text);
int ReadCoverageText(StringQuery query, const std::string &chartDir, std::string &text);

#endif
