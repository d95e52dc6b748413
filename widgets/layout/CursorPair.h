#pragma once

#include <QMetaType>
#include <QtGlobal>

#include <algorithm>

// The two measuring cursors A and B (times in ms, the store's unit), shared by the graphs and the data
// table. Either may be unset; the pair measures only when both are set.
struct CursorPair
{
    bool hasA = false;
    bool hasB = false;
    qint64 a = 0;
    qint64 b = 0;

    bool isComplete() const { return hasA && hasB; }
    bool isEmpty() const { return !hasA && !hasB; }
    // The measured range in time order, whichever way round the pair was placed.
    qint64 low() const { return std::min(a, b); }
    qint64 high() const { return std::max(a, b); }

    bool operator==(const CursorPair &o) const
    {
        return hasA == o.hasA && hasB == o.hasB && (!hasA || a == o.a) && (!hasB || b == o.b);
    }
    bool operator!=(const CursorPair &o) const { return !(*this == o); }
};

Q_DECLARE_METATYPE(CursorPair)
