#include "telemetry/CSVLogLoader.h"

#include "telemetry/InputFile.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace {
constexpr qint64 kMaxLineLength = 1 << 20;
constexpr qint64 kDayMs = 24 * 3600 * 1000;
// The export writes two decimals; a file edited elsewhere may carry more, up to this.
constexpr int kMaxDecimals = 6;

struct Column
{
    QString label;
    QString unit;
    std::vector<std::pair<qint32, double>> cells; // timestamp, number
    int decimals = 0;
    double largest = 0;
};

// Digits after the decimal mark of a number as written ("3.14" -> 2, "1e5" -> 0).
int fractionDigits(const QString &text)
{
    const int mark = text.indexOf(QLatin1Char('.'));
    if (mark < 0)
        return 0;
    int n = 0;
    for (int i = mark + 1; i < text.size() && text.at(i).isDigit(); ++i)
        ++n;
    return n;
}
} // namespace

CSVLogLoader::CSVLogLoader(SensorTable *sensors) : LogFileLoader(sensors) {}

void CSVLogLoader::splitHeader(const QString &header, QString *label, QString *unit)
{
    const QString h = header.trimmed();
    const int open = h.lastIndexOf(QLatin1Char('['));
    if (h.endsWith(QLatin1Char(']')) && open >= 0) {
        *label = h.left(open).trimmed();
        *unit = h.mid(open + 1, h.size() - open - 2).trimmed();
    } else {
        *label = h;
        unit->clear();
    }
}

qint64 CSVLogLoader::parseTime(const QString &text)
{
    const QString t = text.trimmed();
    const QStringList parts = t.split(QLatin1Char(':'));
    if (parts.size() != 3)
        return -1;
    const QString &h = parts.at(0);
    const QString &m = parts.at(1);
    const QStringList secondParts = parts.at(2).split(QLatin1Char('.'));
    if (secondParts.size() > 2)
        return -1;
    const QString &s = secondParts.at(0);
    const QString ms = secondParts.value(1);
    const auto digits = [](const QString &x, int minLength, int maxLength) {
        if (x.size() < minLength || x.size() > maxLength)
            return false;
        return std::all_of(x.begin(), x.end(),
                           [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); });
    };
    if (!digits(h, 1, 6) || !digits(m, 1, 2) || !digits(s, 1, 2) ||
        (secondParts.size() == 2 && !digits(ms, 1, 3)))
        return -1;
    const qint64 minutes = m.toLongLong();
    const qint64 seconds = s.toLongLong();
    if (minutes > 59 || seconds > 59)
        return -1;
    qint64 millis = ms.isEmpty() ? 0 : ms.toLongLong();
    for (int i = ms.size(); i < 3 && !ms.isEmpty(); ++i)
        millis *= 10;
    return ((h.toLongLong() * 60 + minutes) * 60 + seconds) * 1000 + millis;
}

bool CSVLogLoader::load(QIODevice *device, TelemetryDataPackage *package)
{
    m_skippedRows = 0;
    LogReadReport &r = report();
    r = LogReadReport();
    if (!device || !device->isOpen() || !package) {
        setError(tr("The input is not open"));
        return false;
    }
    const qint64 total = device->isSequential() ? -1 : device->size() - device->pos();
    if (total > kMaxBytes) {
        setError(tr("The file is too large for a data table export (%1 MB; at most %2 MB are read)")
                     .arg(total >> 20)
                     .arg(kMaxBytes >> 20));
        return false;
    }

    std::vector<Column> columns;
    bool haveHeader = false;
    qint64 consumed = 0;
    qint64 rows = 0;
    qint64 lastTime = -1;
    qint64 dayOffset = 0;
    QString firstBadRow;
    const auto skipRow = [&](qint64 lineNumber) {
        ++m_skippedRows;
        r.skip(lineNumber);
    };
    for (qint64 lineNumber = 1;; ++lineNumber) {
        QByteArray bytes = device->readLine(kMaxLineLength);
        if (bytes.isEmpty()) {
            if (device->isSequential() && !device->atEnd() && device->waitForReadyRead(30000))
                continue;
            break;
        }
        consumed += bytes.size();
        if (!bytes.endsWith('\n') && !device->atEnd()) {
            // Not a table row: drop the rest of the line.
            while (!bytes.isEmpty() && !bytes.endsWith('\n'))
                bytes = device->readLine(kMaxLineLength);
            r.lines = lineNumber;
            skipRow(lineNumber);
            continue;
        }
        r.lines = lineNumber;
        // The export ends every row; a last row without its line end that is also short or damaged
        // was cut off, and is reported as that rather than as a damaged row.
        const bool unterminated = !bytes.endsWith('\n');
        if (lineNumber == 1 && bytes.startsWith("\xEF\xBB\xBF"))
            bytes.remove(0, 3);
        const QString line = QString::fromUtf8(bytes).trimmed();
        if (line.isEmpty())
            continue;
        const QStringList cells = line.split(QLatin1Char(';'));
        if (!haveHeader) {
            // The first cell is "Time" in whatever language the table was exported in.
            if (parseTime(cells.at(0)) >= 0) {
                setError(
                    tr("Line %1: the header line (\"Time;label [unit];...\") is missing").arg(lineNumber));
                return false;
            }
            haveHeader = true;
            ++r.readLines;
            for (int c = 1; c < cells.size(); ++c) {
                Column column;
                splitHeader(cells.at(c), &column.label, &column.unit);
                columns.push_back(std::move(column));
            }
            continue;
        }
        qint64 time = parseTime(cells.at(0));
        if (time < 0) {
            if (firstBadRow.isEmpty())
                firstBadRow = tr("line %1: \"%2\" is not a time of the form H:mm:ss.zzz")
                                  .arg(lineNumber)
                                  .arg(cells.at(0).left(40));
            if (unterminated) {
                ++m_skippedRows;
                r.truncated = true;
            } else {
                skipRow(lineNumber);
            }
            continue;
        }
        // Row times are times of day: past 24 hours they start again at 0:00:00.000.
        time += dayOffset;
        if (lastTime >= 0 && time < lastTime && lastTime - time > kDayMs / 2) {
            dayOffset += kDayMs;
            time += kDayMs;
        }
        if ((lastTime >= 0 && time < lastTime) || time > std::numeric_limits<qint32>::max()) {
            skipRow(lineNumber);
            continue;
        }
        lastTime = time;
        ++rows;
        const qint32 ts = std::max(kEarliestMs, qint32(time));
        // Every row of the export has a cell per column, empty where there is no value.
        bool whole = cells.size() == int(columns.size()) + 1;
        for (int c = 1; c < cells.size() && c <= int(columns.size()); ++c) {
            QString text = cells.at(c).trimmed();
            if (text.isEmpty())
                continue;
            // A spreadsheet in a comma locale may have rewritten the decimal mark.
            text.replace(QLatin1Char(','), QLatin1Char('.'));
            bool ok = false;
            const double value = text.toDouble(&ok);
            if (!ok || !std::isfinite(value)) {
                whole = false;
                continue;
            }
            Column &column = columns[size_t(c - 1)];
            column.cells.emplace_back(ts, value);
            column.decimals = std::max(column.decimals, std::min(kMaxDecimals, fractionDigits(text)));
            column.largest = std::max(column.largest, std::fabs(value));
        }
        if (whole)
            ++r.readLines;
        else if (unterminated)
            r.truncated = true;
        else
            r.skip(lineNumber);
        if (rows % 4096 == 0 && !reportProgress(consumed, total))
            return false;
    }
    if (!haveHeader) {
        setError(tr("The file is empty: no header line"));
        return false;
    }
    if (rows == 0 && !firstBadRow.isEmpty()) {
        setError(tr("No table rows: %1").arg(firstBadRow));
        return false;
    }

    beginPackage(package, -1);
    describeDevice(package, kDeviceId, tr("Data table"));
    for (size_t c = 0; c < columns.size(); ++c) {
        Column &column = columns[c];
        const quint32 param = quint32(c + 1);
        describeParam(package, kDeviceId, param, column.label, column.unit);
        // As many decimals as the column was written with, as long as the largest value still fits.
        int decimals = column.decimals;
        while (decimals > 0 && column.largest * std::pow(10.0, decimals) > std::numeric_limits<qint32>::max())
            --decimals;
        const double scale = std::pow(10.0, decimals);
        QVector<TelemetryValue> &values = package->device(kDeviceId)->var(param)->values();
        values.reserve(values.size() + int(column.cells.size()));
        for (const auto &cell : column.cells) {
            TelemetryValue v;
            v.type = 12;
            v.decimals = quint32(decimals);
            v.value =
                qint32(std::clamp(std::round(cell.second * scale), double(std::numeric_limits<qint32>::min()),
                                  double(std::numeric_limits<qint32>::max())));
            v.timestamp = cell.first;
            values.append(v);
        }
        column.cells = {};
        if (!values.isEmpty())
            package->noteTimestamp(values.first().timestamp);
    }
    finishPackage(package);
    return true;
}

bool CSVLogLoader::readFile(const QString &path, TelemetryDataPackage *package, SensorTable *sensors,
                            QString *error, QString *warning)
{
    const auto fail = [error](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    QFile file(path);
    if (!InputFile::open(&file, error))
        return false;
    const QFileInfo info(path);
    package->setName(info.baseName());
    package->setRecordingDate(info.lastModified());
    CSVLogLoader loader(sensors);
    if (!loader.load(&file, package))
        return fail(tr("%1: %2").arg(path, loader.lastError()));
    if (warning)
        *warning = damageWarning(path, loader.readReport());
    return true;
}
