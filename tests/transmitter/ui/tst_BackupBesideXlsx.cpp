#include "telemetry/TableSource.h"
#include "telemetry/XlsxTableWriter.h"
#include "tests/support/TestFiles.h"
#include "transmitter/BackupWorker.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>

// The studio links QuaZip (backups) and libxlsxwriter (spreadsheet export), whose bundled minizip share
// symbol names. This test links what the studio links and uses both in one process, in both orders.
namespace {
class OneRow : public TableSource
{
public:
    int tableColumns() const override { return 1; }
    QString columnHeader(int) const override { return QStringLiteral("Voltage [V]"); }
    qint64 tableRows() const override { return 1; }
    qint64 rowTimeMs(qint64) const override { return 0; }
    void readRow(qint64, double *out) override { *out = 7.25; }
};

// Every entry read to its end, so a wrong CRC shows; entry name to content.
QMap<QString, QByteArray> entries(const QString &path)
{
    QMap<QString, QByteArray> out;
    QuaZip zip(path);
    if (!zip.open(QuaZip::mdUnzip))
        return out;
    for (bool more = zip.goToFirstFile(); more; more = zip.goToNextFile()) {
        QuaZipFile file(&zip);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QByteArray bytes = file.readAll();
        file.close();
        if (file.getZipError() != UNZ_OK)
            return {};
        out.insert(zip.getCurrentFileName(), bytes);
    }
    return out;
}
} // namespace

class tst_BackupBesideXlsx : public QObject
{
    Q_OBJECT

    static bool backup(const QString &root, const QString &target)
    {
        BackupWorker::Request request;
        request.root = root;
        request.files = QStringList{QStringLiteral("config/config.jsn"), QStringLiteral("Model/m.bin")};
        request.targetFile = target;
        BackupWorker worker(request);
        QSignalSpy errors(&worker, &BackupWorker::error);
        worker.doWork();
        return errors.isEmpty();
    }

private slots:
    void bothWork()
    {
        QTemporaryDir dir;
        const QString root = dir.filePath(QStringLiteral("drive"));
        QVERIFY(QDir().mkpath(root + QStringLiteral("/config")));
        QVERIFY(QDir().mkpath(root + QStringLiteral("/Model")));
        QVERIFY(writeFile(root + QStringLiteral("/config/config.jsn"), "{\"hw\":674}"));
        QByteArray model(100000, 'x');
        for (int i = 0; i < model.size(); i += 7)
            model[i] = char(i);
        QVERIFY(writeFile(root + QStringLiteral("/Model/m.bin"), model));
        const QMap<QString, QByteArray> expected{{QStringLiteral("config/config.jsn"), "{\"hw\":674}"},
                                                 {QStringLiteral("Model/m.bin"), model}};

        QVERIFY(backup(root, dir.filePath(QStringLiteral("before.zip"))));
        OneRow table;
        XlsxTableWriter writer;
        QVERIFY2(writer.write(table, dir.filePath(QStringLiteral("table.xlsx"))),
                 qPrintable(writer.errorString()));
        QVERIFY(backup(root, dir.filePath(QStringLiteral("after.zip"))));

        QCOMPARE(entries(dir.filePath(QStringLiteral("before.zip"))), expected);
        QCOMPARE(entries(dir.filePath(QStringLiteral("after.zip"))), expected);
        const QByteArray sheet = entries(dir.filePath(QStringLiteral("table.xlsx")))
                                     .value(QStringLiteral("xl/worksheets/sheet1.xml"));
        QVERIFY(sheet.contains("7.25"));
    }
};

QTEST_MAIN(tst_BackupBesideXlsx)
#include "tst_BackupBesideXlsx.moc"
