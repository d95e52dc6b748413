#include "telemetry/XlsxTableWriter.h"
#include "telemetry/AtomicFile.h"

#include "telemetry/XlsxLibrary.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryFile>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {
constexpr double kMsPerDay = 86400000.0;
constexpr qint64 kProgressRows = 2048;

// Column widths in characters: wide enough for the header, never absurd.
double widthFor(const QString &header)
{
    return std::clamp(double(header.size()) + 2.0, 10.0, 40.0);
}
} // namespace

bool XlsxTableWriter::fail(const QString &error)
{
    m_error = error;
    return false;
}

bool XlsxTableWriter::write(TableSource &table, const QString &path, const TableSource::Progress &progress)
{
    m_error.clear();
    m_cancelled = false;
    const QString name = QDir::toNativeSeparators(path);
    const int columns = table.tableColumns();
    const qint64 rows = table.tableRows();
    if (QFileInfo(path).isDir())
        return fail(tr("%1 is a folder.").arg(name));
    if (rows > kMaxRows)
        return fail(
            tr("The table has %1 rows; an Excel sheet holds at most %2. Choose a longer sampling period.")
                .arg(rows)
                .arg(kMaxRows));
    if (columns > kMaxColumns)
        return fail(
            tr("The table has %1 columns; an Excel sheet holds at most %2.").arg(columns).arg(kMaxColumns));

    const XlsxLibrary &lxw = XlsxLibrary::get();
    if (!lxw.isUsable())
        return fail(tr("The Excel writer could not be loaded: %1").arg(lxw.error()));

    // Opened first so that an unwritable destination is reported before any work is done.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(tr("%1: %2").arg(name, file.errorString()));

    // The library writes to a file name of its own choosing; the finished workbook is then copied into
    // the save file, which replaces the destination in one step.
    QTemporaryFile temporary(QDir::temp().filePath(QStringLiteral("vexo-table-XXXXXX.xlsx")));
    if (!temporary.open())
        return fail(
            tr("%1: %2").arg(QDir::toNativeSeparators(temporary.fileTemplate()), temporary.errorString()));
    temporary.close();
    const QByteArray temporaryName = QFile::encodeName(temporary.fileName());

    lxw_workbook_options options = {};
    options.constant_memory = LXW_TRUE;
    // The zip container's 4 GB limit is within reach of a sheet of about 50 million cells.
    options.use_zip64 = double(rows) * (columns + 1) > 50e6 ? LXW_TRUE : LXW_FALSE;
    lxw_workbook *workbook = lxw.workbookNewOpt(temporaryName.constData(), &options);
    if (!workbook)
        return fail(
            tr("Unable to create the workbook in %1.").arg(QDir::toNativeSeparators(QDir::tempPath())));
    lxw_worksheet *sheet = lxw.workbookAddWorksheet(workbook, nullptr);

    lxw_format *headerFormat = lxw.workbookAddFormat(workbook);
    lxw.formatSetBold(headerFormat);
    lxw.formatSetBottom(headerFormat, LXW_BORDER_THIN);
    lxw_format *timeFormat = lxw.workbookAddFormat(workbook);
    lxw.formatSetNumFormat(timeFormat, kTimeFormat);

    const QString timeHeader = tr("Time");
    lxw.worksheetSetColumn(sheet, 0, 0, widthFor(timeHeader), nullptr);
    for (int c = 0; c < columns; ++c)
        lxw.worksheetSetColumn(sheet, lxw_col_t(c + 1), lxw_col_t(c + 1), widthFor(table.columnHeader(c)),
                               nullptr);
    // The header stays in view while scrolling through a long flight.
    lxw.worksheetFreezePanes(sheet, 1, 0);

    lxw_error error = lxw.worksheetWriteString(sheet, 0, 0, timeHeader.toUtf8().constData(), headerFormat);
    for (int c = 0; c < columns && error == LXW_NO_ERROR; ++c)
        error = lxw.worksheetWriteString(sheet, 0, lxw_col_t(c + 1),
                                         table.columnHeader(c).toUtf8().constData(), headerFormat);

    // Packing the workbook at the end takes about half as long again as the rows, with no word from
    // the library meanwhile: the progress counts it as half as many rows more.
    const qint64 total = rows + rows / 2;
    const auto report = [&](qint64 done) { return !progress || progress(done, total); };
    m_cancelled = !report(0);
    std::vector<double> values(size_t(std::max(columns, 1)));
    for (qint64 r = 0; r < rows && error == LXW_NO_ERROR && !m_cancelled; ++r) {
        table.readRow(r, values.data());
        const lxw_row_t row = lxw_row_t(r + 1);
        error = lxw.worksheetWriteNumber(sheet, row, 0, double(table.rowTimeMs(r)) / kMsPerDay, timeFormat);
        for (int c = 0; c < columns && error == LXW_NO_ERROR; ++c) {
            const double v = values[size_t(c)];
            if (std::isfinite(v))
                error = lxw.worksheetWriteNumber(sheet, row, lxw_col_t(c + 1), v, nullptr);
        }
        if ((r + 1) % kProgressRows == 0 && r + 1 < rows)
            m_cancelled = !report(r + 1);
    }
    if (error != LXW_NO_ERROR || m_cancelled) {
        // Drops the workbook without assembling it.
        lxw.workbookFree(workbook);
        if (m_cancelled)
            return fail(tr("The export was cancelled."));
        return fail(tr("%1: %2").arg(name, QString::fromUtf8(lxw.strError(error))));
    }
    if (!report(rows)) {
        lxw.workbookFree(workbook);
        m_cancelled = true;
        return fail(tr("The export was cancelled."));
    }
    error = lxw.workbookClose(workbook);
    if (error != LXW_NO_ERROR)
        return fail(tr("%1: %2").arg(name, QString::fromUtf8(lxw.strError(error))));
    if (!report(total)) {
        m_cancelled = true;
        return fail(tr("The export was cancelled."));
    }

    QFile finished(temporary.fileName());
    if (!finished.open(QIODevice::ReadOnly))
        return fail(tr("%1: %2").arg(QDir::toNativeSeparators(finished.fileName()), finished.errorString()));
    QByteArray chunk;
    while (!(chunk = finished.read(1 << 20)).isEmpty()) {
        if (file.write(chunk) != chunk.size())
            return fail(tr("%1: %2").arg(name, file.errorString()));
    }
    if (finished.error() != QFileDevice::NoError)
        return fail(tr("%1: %2").arg(QDir::toNativeSeparators(finished.fileName()), finished.errorString()));
    if (!AtomicFile::commit(file))
        return fail(tr("%1: %2").arg(name, file.errorString()));
    return true;
}
