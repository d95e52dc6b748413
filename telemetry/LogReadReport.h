#pragma once

#include <QtGlobal>

// What a reader could not read: so that a damaged or cut-off file does not pass for a whole one.
struct LogReadReport
{
    qint64 lines = 0;            // lines (XML: storages, descriptions and entities) looked at
    qint64 readLines = 0;        // of them, data read in full (headers and blank lines are neither)
    qint64 skippedLines = 0;     // damaged: skipped, or read only in part
    qint64 firstSkippedLine = 0; // line number of the first damaged one, from 1; 0 when none
    bool truncated = false;      // the input ends in the middle of a line (not counted as skipped)

    bool isClean() const { return skippedLines == 0 && !truncated; }
    void skip(qint64 line)
    {
        if (skippedLines++ == 0 || line < firstSkippedLine)
            firstSkippedLine = line;
    }
};
