#pragma once

#include "telemetry/TableSource.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

class QIODevice;

// Writes a sampled table as CSV: UTF-8, ";" between fields, a header line of the translated "Time" and
// the column headers, then per row the time as "H:mm:ss.zzz" and each number with two decimals (nothing
// for an empty cell).
class CsvTableWriter
{
    Q_DECLARE_TR_FUNCTIONS(CsvTableWriter)
public:
    // Replaces path only when the whole table is written; a failure or a cancel leaves whatever was
    // there before and no partial file.
    bool write(TableSource &table, const QString &path, const TableSource::Progress &progress = {});
    // The same text into an open device.
    bool write(TableSource &table, QIODevice *device, const TableSource::Progress &progress = {});

    bool wasCancelled() const { return m_cancelled; }
    QString errorString() const { return m_error; }

    // The row time as the file shows it: a time of day in the translated pattern "H:mm:ss.zzz".
    static QString timeText(qint64 ms);
    // Exactly QString::number(value, 'f', 2), nothing for not-a-number; appended as UTF-8.
    static void appendNumber(QByteArray &out, double value);

private:
    bool writeRows(TableSource &table, QIODevice *device, const TableSource::Progress &progress);
    bool fail(const QString &error);

    QString m_error;
    bool m_cancelled = false;
};
