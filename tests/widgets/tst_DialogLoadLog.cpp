#include "database/DatabaseManager.h"
#include "database/ModelFolderTree.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestSamples.h"
#include "widgets/models/DialogLoadLog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>
#include <QtTest>

namespace {
constexpr quint32 kRx = 0x00110022;

// One receiver voltage sampled at the given milliseconds (a native log has no samples at 0): the
// recording spans first to last.
TelemetryDataPackage flight(const QString &name, const QVector<qint32> &times)
{
    TelemetryDataPackage p;
    p.setName(name);
    p.setRecordingDate(QDateTime(QDate(2024, 5, 17), QTime(9, 0)));
    const int d = p.addDevice(kRx, QStringLiteral("Rx"));
    TelemetryVar v(kRx, 1, QStringLiteral("Voltage"), QStringLiteral("V"));
    for (int i = 0; i < times.size(); ++i)
        v.values() << sample(times.at(i), 500 + i, 2);
    p.devices()[d].vars() << v;
    return p;
}
} // namespace

class tst_DialogLoadLog : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void storesEachFileAndNamesTheDamagedOne();
    void okNeedsAModel();
    void storesTheOpenLog();

private:
    QString writeFile(const QString &name, const QByteArray &bytes, const QDateTime &modified);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ModelLibrary> m_lib;
    int m_extra = -1;
    int m_yak = -1;
    std::unique_ptr<ScriptedPrompter> m_prompter;
};

void tst_DialogLoadLog::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_db = std::make_unique<DatabaseManager>(m_dir->filePath("db"));
    QVERIFY(m_db->openAndInitialise());
    m_lib = std::make_unique<ModelLibrary>(m_db.get());
    m_extra = m_lib->createModel("Extra 300");
    m_yak = m_lib->createModel("Yak");
    QVERIFY(m_extra > 0 && m_yak > 0);
    m_prompter = std::make_unique<ScriptedPrompter>();
}

void tst_DialogLoadLog::cleanup()
{
    m_lib.reset();
    m_db.reset();
    m_dir.reset();
    m_prompter.reset();
}

QString tst_DialogLoadLog::writeFile(const QString &name, const QByteArray &bytes, const QDateTime &modified)
{
    const QString path = m_dir->filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size() || !f.flush())
        return QString();
    f.setFileTime(modified, QFileDevice::FileModificationTime);
    return path;
}

void tst_DialogLoadLog::storesEachFileAndNamesTheDamagedOne()
{
    int folder = -1;
    QVERIFY(m_lib->folderForPath(m_extra, "2024", &folder));
    const int earlier = m_lib->storeLog(flight("earlier", {10, 20}), m_extra, folder, "earlier.log");
    QVERIFY(earlier > 0);
    const QDateTime modified(QDate(2024, 5, 17), QTime(10, 23, 45));
    const QString a = writeFile("a.log", LogFileWriter::write(flight("a", {100, 1100, 4600})), modified);
    const QString bad = writeFile("bad.log", QByteArray(), modified);
    const QString b = writeFile("b.log", LogFileWriter::write(flight("b", {200, 3000, 7200})), modified);
    QVERIFY(!a.isEmpty() && !bad.isEmpty() && !b.isEmpty());
    const TelemetryDataPackage open = flight("open", {10, 20});

    DialogLoadLog dialog(m_lib.get(), m_extra, {a, bad, b, a}, &open);
    dialog.setPrompter(m_prompter.get());
    QCOMPARE(dialog.selectedModel(), m_extra);
    auto *list = dialog.findChild<QTreeWidget *>("files");
    QCOMPARE(list->topLevelItemCount(), 3);
    QCOMPARE(list->topLevelItem(0)->text(1), QStringLiteral("17-5-2024 10:23:45"));
    // With files to store, the open log is offered but not chosen.
    QVERIFY(!dialog.findChild<QCheckBox *>("openLog")->isChecked());

    // A log picked in the tree stands for its folder.
    auto *folders = dialog.findChild<QTreeView *>("folders");
    auto *tree = qobject_cast<ModelFolderTree *>(folders->model());
    QCOMPARE(dialog.selectedFolder(), -1);
    folders->setCurrentIndex(tree->indexOf(ModelFolderTree::LogItem, earlier));
    QCOMPARE(dialog.selectedFolder(), folder);

    QSignalSpy stored(&dialog, &DialogLoadLog::logsStored);
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(stored, (QList<QVariantList>{{m_extra}}));
    QCOMPARE(dialog.storedCount(), 2);

    const QString text = m_prompter->only();
    QVERIFY2(text.startsWith("warning|" + dialog.windowTitle() + "|Stored 2 logs under model Extra 300.") &&
                 text.contains(QDir::toNativeSeparators(bad) + ": ") && !text.contains("a.log") &&
                 !text.contains("b.log"),
             qPrintable(text));

    const QVector<DatabaseManager::LogRow> logs = m_db->logsInFolder(folder);
    QCOMPARE(logs.size(), 3);
    // Each file under its own name, dated by its modification time, as long as its recording.
    QStringList rows;
    const QHash<int, qint64> lengths = m_db->logLengths(m_extra);
    for (const DatabaseManager::LogRow &row : logs) {
        if (row.id != earlier)
            rows << row.filename + ' ' + QString::number(lengths.value(row.id)) + ' ' +
                        row.dateCreated.toString(Qt::ISODate);
    }
    rows.sort();
    QCOMPARE(rows, (QStringList{"a.log 4500 2024-05-17T10:23:45", "b.log 7000 2024-05-17T10:23:45"}));
    QVERIFY(m_db->topLevelLogs().isEmpty());
}

void tst_DialogLoadLog::okNeedsAModel()
{
    const int active = 999; // a model that is gone
    const QString a =
        writeFile("a.log", LogFileWriter::write(flight("a", {10, 100})), QDateTime::currentDateTime());
    DialogLoadLog dialog(m_lib.get(), active, {a});
    dialog.setPrompter(m_prompter.get());
    auto *ok = dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok);
    auto *hint = dialog.findChild<QLabel *>("hint");
    QCOMPARE(dialog.selectedModel(), -1);
    QVERIFY(!ok->isEnabled() && hint->isVisibleTo(&dialog));
    QCOMPARE(hint->text(), QStringLiteral("Hint: Select a model first."));
    dialog.accept();
    QCOMPARE(dialog.storedCount(), 0);
    QVERIFY(m_prompter->asked.isEmpty());

    auto *models = dialog.findChild<QListView *>("models");
    models->setCurrentIndex(models->model()->index(1, 0));
    QCOMPARE(dialog.selectedModel(), m_yak);
    QVERIFY(ok->isEnabled() && !hint->isVisibleTo(&dialog));
}

void tst_DialogLoadLog::storesTheOpenLog()
{
    const TelemetryDataPackage open = flight("evening", {10, 250, 500, 750, 1000});
    DialogLoadLog dialog(m_lib.get(), m_yak, {}, &open);
    dialog.setPrompter(m_prompter.get());
    auto *box = dialog.findChild<QCheckBox *>("openLog");
    QCOMPARE(box->text(), QStringLiteral("The open log: evening"));
    QVERIFY(box->isChecked());
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(m_prompter->only(), "information|" + dialog.windowTitle() + "|Stored 1 log under model Yak.");

    const QVector<DatabaseManager::LogRow> logs = m_db->topLevelLogs();
    QVERIFY(logs.size() == 1 && logs.at(0).modelId == m_yak);
    TelemetryDataPackage back;
    QVERIFY2(m_lib->readLog(logs.at(0).id, &back), qPrintable(m_lib->lastError()));
    QCOMPARE(back.sampleCount(), qint64(5));
    QCOMPARE(back.recordingDate(), open.recordingDate());
}

QTEST_MAIN(tst_DialogLoadLog)
#include "tst_DialogLoadLog.moc"
