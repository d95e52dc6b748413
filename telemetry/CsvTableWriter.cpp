#include "telemetry/CsvTableWriter.h"
#include "telemetry/AtomicFile.h"

#include <QDir>
#include <QFileInfo>
#include <QIODevice>
#include <QSaveFile>
#include <QTime>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {
constexpr qint64 kMsPerDay = 86400000;
// Rows between progress reports: often enough for a responsive Cancel, rare enough to cost nothing.
constexpr qint64 kProgressRows = 2048;
constexpr int kFlushBytes = 1 << 20;
constexpr char kDefaultTimePattern[] = "H:mm:ss.zzz";

// The longest text a number can take: QString::number(-DBL_MAX, 'f', 2) has 312 characters.
constexpr int kMaxNumberChars = 320;
constexpr int kMaxTimeChars = 64;

char *putDigits(char *end, quint64 value, int minDigits)
{
    do {
        *--end = char('0' + value % 10);
        value /= 10;
        --minDigits;
    } while (value != 0 || minDigits > 0);
    return end;
}

char *putText(char *p, const QByteArray &text, int limit)
{
    const int n = std::min(text.size(), limit);
    std::memcpy(p, text.constData(), size_t(n));
    return p + n;
}

QString timePattern()
{
    return CsvTableWriter::tr("H:mm:ss.zzz");
}

// The untranslated pattern by hand: QTime::toString costs more than the rest of a row.
char *putTime(char *p, qint64 ms, bool defaultPattern, const QString &pattern)
{
    ms %= kMsPerDay;
    if (ms < 0 || !defaultPattern)
        return putText(p, QTime::fromMSecsSinceStartOfDay(int(ms)).toString(pattern).toUtf8(), kMaxTimeChars);
    char buffer[16];
    char *const end = buffer + sizeof buffer;
    char *b = putDigits(end, quint64(ms % 1000), 3);
    *--b = '.';
    b = putDigits(b, quint64(ms / 1000 % 60), 2);
    *--b = ':';
    b = putDigits(b, quint64(ms / 60000 % 60), 2);
    *--b = ':';
    b = putDigits(b, quint64(ms / 3600000), 1);
    const size_t n = size_t(end - b);
    std::memcpy(p, b, n);
    return p + n;
}

// Writes QString::number(value, 'f', 2), nothing for not-a-number. Rounding the scaled value is exact
// unless it lies within the product's rounding error of a tie; those, the signs of values that round to
// zero, and huge or infinite values go to Qt itself.
char *putNumber(char *p, double value)
{
    if (std::isnan(value))
        return p;
    const double magnitude = std::fabs(value);
    if (magnitude < 1e7) {
        const double scaled = magnitude * 100.0;
        const double whole = std::floor(scaled);
        const double fraction = scaled - whole;
        const quint64 cents = quint64(whole) + (fraction > 0.5 ? 1 : 0);
        if (std::fabs(fraction - 0.5) > 1e-6 && !(value < 0 && cents == 0)) {
            char buffer[24];
            char *const end = buffer + sizeof buffer;
            char *b = putDigits(end, cents % 100, 2);
            *--b = '.';
            b = putDigits(b, cents / 100, 1);
            if (value < 0)
                *--b = '-';
            const size_t n = size_t(end - b);
            std::memcpy(p, b, n);
            return p + n;
        }
    }
    return putText(p, QString::number(value, 'f', 2).toUtf8(), kMaxNumberChars);
}
} // namespace

QString CsvTableWriter::timeText(qint64 ms)
{
    const QString pattern = timePattern();
    char buffer[kMaxTimeChars];
    const char *end = putTime(buffer, ms, pattern == QLatin1String(kDefaultTimePattern), pattern);
    return QString::fromUtf8(buffer, int(end - buffer));
}

void CsvTableWriter::appendNumber(QByteArray &out, double value)
{
    char buffer[kMaxNumberChars];
    const char *end = putNumber(buffer, value);
    out.append(buffer, int(end - buffer));
}

bool CsvTableWriter::fail(const QString &error)
{
    m_error = error;
    return false;
}

bool CsvTableWriter::write(TableSource &table, const QString &path, const TableSource::Progress &progress)
{
    m_error.clear();
    m_cancelled = false;
    const QString name = QDir::toNativeSeparators(path);
    if (QFileInfo(path).isDir())
        return fail(tr("%1 is a folder.").arg(name));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(tr("%1: %2").arg(name, file.errorString()));
    if (!writeRows(table, &file, progress)) {
        file.cancelWriting();
        if (!m_cancelled)
            m_error = tr("%1: %2").arg(name, m_error);
        return false;
    }
    if (!AtomicFile::commit(file))
        return fail(tr("%1: %2").arg(name, file.errorString()));
    return true;
}

bool CsvTableWriter::write(TableSource &table, QIODevice *device, const TableSource::Progress &progress)
{
    m_error.clear();
    m_cancelled = false;
    return writeRows(table, device, progress);
}

bool CsvTableWriter::writeRows(TableSource &table, QIODevice *device, const TableSource::Progress &progress)
{
    const int columns = table.tableColumns();
    const qint64 rows = table.tableRows();
    const QString pattern = timePattern();
    const bool defaultPattern = pattern == QLatin1String(kDefaultTimePattern);

    QByteArray header = tr("Time").toUtf8();
    for (int c = 0; c < columns; ++c) {
        header.append(';');
        header.append(table.columnHeader(c).toUtf8());
    }
    header.append('\n');
    if (device->write(header) != header.size())
        return fail(device->errorString());

    // Rows are formatted straight into one buffer, flushed whenever the next row might not fit.
    const qint64 rowRoom = kMaxTimeChars + qint64(columns) * (kMaxNumberChars + 1) + 1;
    QByteArray buffer(int(std::max<qint64>(kFlushBytes, 2 * rowRoom)), Qt::Uninitialized);
    char *const begin = buffer.data();
    char *const flushAt = begin + buffer.size() - rowRoom;
    char *p = begin;
    const auto flush = [&]() {
        const qint64 n = p - begin;
        if (n > 0 && device->write(begin, n) != n)
            return fail(device->errorString());
        p = begin;
        return true;
    };
    const auto report = [&](qint64 done) {
        if (progress && !progress(done, rows)) {
            m_cancelled = true;
            m_error = tr("The export was cancelled.");
            return false;
        }
        return true;
    };

    if (!report(0))
        return false;
    std::vector<double> values(size_t(std::max(columns, 1)));
    for (qint64 r = 0; r < rows; ++r) {
        table.readRow(r, values.data());
        p = putTime(p, table.rowTimeMs(r), defaultPattern, pattern);
        for (int c = 0; c < columns; ++c) {
            *p++ = ';';
            p = putNumber(p, values[size_t(c)]);
        }
        *p++ = '\n';
        if (p >= flushAt && !flush())
            return false;
        if ((r + 1) % kProgressRows == 0 && r + 1 < rows && !report(r + 1))
            return false;
    }
    if (!flush())
        return false;
    return report(rows);
}
