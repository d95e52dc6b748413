#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestFiles.h"
#include "tests/support/ZipBuilder.h"
#include "transmitter/BackupsModel.h"
#include "transmitter/ui/BackupPages.h"
#include "transmitter/ui/CheckableFileSystemModel.h"
#include "transmitter/ui/IntroPage.h"
#include "transmitter/ui/ManageBackupsPages.h"
#include "transmitter/ui/NotAvailablePage.h"
#include "transmitter/ui/RestorePages.h"
#include "transmitter/ui/TransmitterWizard.h"

#include <QDir>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTreeView>
#include <QtTest>

#include <memory>

namespace {
// The intro page's rows, in their order.
enum Tool
{
    Backup,
    ViewBackups,
    LuaApps,
    Update,
    SyncLogs,
    Recover
};

QByteArray randomBytes(int size, quint32 seed)
{
    QByteArray bytes(size, '\0');
    QRandomGenerator generator(seed);
    for (char &b : bytes)
        b = char(generator.bounded(256));
    return bytes;
}

QString titleAndText(const ScriptedPrompter &p)
{
    return p.asked.size() == 1 ? p.asked[0].title + QLatin1Char('|') + p.asked[0].text : QString();
}
} // namespace

class tst_TransmitterWizard : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Logger> m_logger;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ScriptedPrompter> m_prompter;
    QString m_drive;

    void put(const QString &relative, const QByteArray &bytes)
    {
        const QString path = QDir(m_drive).filePath(relative);
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QVERIFY(writeFile(path, bytes));
    }

    std::unique_ptr<TransmitterWizard> wizard()
    {
        TransmitterInfo t;
        t.rootPath = m_drive;
        t.driveLetter = m_drive.at(0).toLatin1();
        t.hwId = 674;
        t.versionMajor = 4;
        t.versionMinor = 22;
        t.modelName = QStringLiteral("Vexo HC-6");
        auto w = std::make_unique<TransmitterWizard>(t, m_db.get(), m_prompter.get());
        w->show();
        return w;
    }

    static void choose(TransmitterWizard *w, Tool tool)
    {
        auto *intro = qobject_cast<IntroPage *>(w->currentPage());
        QVERIFY(intro);
        intro->tools()->setCurrentRow(tool);
        w->next();
    }

    static void clickNext(TransmitterWizard *w) { w->button(QWizard::NextButton)->click(); }

    // Through the backup pages up to the information page, with the Minimal scope.
    static BackupInformationPage *toInformation(TransmitterWizard *w)
    {
        choose(w, Backup);
        w->next();
        w->next();
        return qobject_cast<BackupInformationPage *>(w->currentPage());
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_drive = m_dir->filePath(QStringLiteral("drive"));
        QVERIFY(QDir().mkpath(m_drive));
        const QString data = m_dir->filePath(QStringLiteral("data"));
        QVERIFY(QDir().mkpath(data));
        m_logger = std::make_unique<Logger>(QDir(data).filePath(QStringLiteral("Application.log")));
        m_db = std::make_unique<DatabaseManager>(data, m_logger.get());
        QVERIFY(m_db->openAndInitialise());
        m_prompter = std::make_unique<ScriptedPrompter>();
    }
    void cleanup()
    {
        m_db.reset();
        m_logger.reset();
        m_dir.reset();
    }

    void frameAndTools()
    {
        auto w = wizard();
        QCOMPARE(w->windowTitle(), QStringLiteral("Vexo Transmitter Wizard"));
        QCOMPARE(w->button(QWizard::CancelButton)->text(), QStringLiteral("Exit"));
        QVERIFY(!w->windowIcon().isNull());
        const QStringList rows = {
            "Transmitter Backup\nHelps you to create a backup of your transmitter.",
            "View backups\nBrowse and remove transmitter backups in database.",
            "Lua App Manager\nManage Lua applications in your HC/HS transmitter.",
            "Transmitter Update\nUpdate your transmitter to the latest version.",
            "Synchronize log files\nSynchronize the transmitter log files with Vexo Studio.",
            "Recover the Transmitter\nHelps you to restore your transmitter from a backup.",
        };
        auto *intro = qobject_cast<IntroPage *>(w->currentPage());
        QVERIFY(intro);
        QCOMPARE(intro->tools()->count(), rows.size());
        for (int i = 0; i < rows.size(); ++i) {
            QCOMPARE(intro->tools()->item(i)->text(), rows.at(i));
            QVERIFY(!intro->tools()->item(i)->icon().isNull());
        }
        // Each row opens its own page set.
        const QList<QPair<Tool, int>> opens = {
            {Backup, TransmitterWizard::BackupIntroId}, {ViewBackups, TransmitterWizard::ManageBackupsId},
            {LuaApps, TransmitterWizard::AppManagerId}, {Update, TransmitterWizard::UpdateIntroId},
            {SyncLogs, TransmitterWizard::SyncIntroId}, {Recover, TransmitterWizard::RestoreIntroId}};
        for (const auto &o : opens) {
            w->restart();
            choose(w.get(), o.first);
            QCOMPARE(w->currentId(), o.second);
            if (auto *na = qobject_cast<NotAvailablePage *>(w->currentPage()))
                QVERIFY(na->text().startsWith(rows.at(o.first).section(QLatin1Char('\n'), 0, 0)));
        }
    }

    // The checks of the information page, in their order, with the size edges.
    void informationChecks_data()
    {
        QTest::addColumn<bool>("toDatabase");
        QTest::addColumn<QString>("name");
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("file"); // below the temporary folder
        QTest::addColumn<int>("answer");
        QTest::addColumn<QString>("asked"); // "title|text", or empty when nothing is asked
        QTest::addColumn<bool>("ok");

        const QString large = QStringLiteral("Large backup.|It's recommended to keep the backup size in "
                                             "database under 8 MB but size of selected "
                                             "files is actually %1. Do you want to continue?");
        const QString tooLarge = QStringLiteral(
            "Backup too large.|Size of selected files is more than 34 MB. Maximum allowed backup size for a "
            "database storage is 34 MB. Deselect unnecessary files or save backup to a file.");
        const int yes = QMessageBox::Yes, no = QMessageBox::No;
        QTest::newRow("no name comes before the size")
            << true << "" << qint64(40000000) << "" << yes << "Information|Please enter the backup name."
            << false;
        QTest::newRow("blank name") << true << "  " << qint64(10) << "" << yes
                                    << "Information|Please enter the backup name." << false;
        QTest::newRow("8388608 without a question")
            << true << "b" << qint64(8388608) << "" << no << "" << true;
        QTest::newRow("8388609 asks, no stays")
            << true << "b" << qint64(8388609) << "" << no << large.arg("8 MB") << false;
        QTest::newRow("8388609 asks, yes goes")
            << true << "b" << qint64(8388609) << "" << yes << large.arg("8 MB") << true;
        QTest::newRow("33554432 still asks")
            << true << "b" << qint64(33554432) << "" << no << large.arg("34 MB") << false;
        QTest::newRow("33554433 refused")
            << true << "b" << qint64(33554433) << "" << yes << tooLarge << false;
        QTest::newRow("file: size is no matter")
            << false << "" << qint64(40000000) << "my backup.zip" << no << "" << true;
        QTest::newRow("file: missing folder") << false << "" << qint64(10) << "missing/b.zip" << no
                                              << "Information|Invalid file location entered." << false;
        QTest::newRow("file: .zip.bak") << false << "" << qint64(10) << "backup.zip.bak" << no
                                        << "Information|Invalid file name entered." << false;
        QTest::newRow("file: umlaut") << false << "" << qint64(10) << QString::fromUtf8("zäloha.zip") << no
                                      << "Information|Invalid file name entered." << false;
    }
    void informationChecks()
    {
        QFETCH(bool, toDatabase);
        QFETCH(QString, name);
        QFETCH(qint64, size);
        QFETCH(QString, file);
        QFETCH(int, answer);
        QFETCH(QString, asked);
        QFETCH(bool, ok);
        // One sparse file of the size under a folder the Minimal scope takes.
        put(QStringLiteral("Config/big.bin"), QByteArray());
        {
            QFile big(QDir(m_drive).filePath(QStringLiteral("Config/big.bin")));
            QVERIFY(big.resize(size));
        }
        auto w = wizard();
        BackupInformationPage *info = toInformation(w.get());
        QVERIFY(info);
        QCOMPARE(info->contents()->count(), 1);
        QCOMPARE(w->button(QWizard::NextButton)->text(), QStringLiteral("Back up"));
        (toDatabase ? info->databaseChoice() : info->fileChoice())->setChecked(true);
        info->nameField()->setText(name);
        info->pathField()->setText(m_dir->filePath(file));
        m_prompter->buttons.enqueue(QMessageBox::StandardButton(answer));
        if (ok) {
            QVERIFY(info->validate());
        } else {
            // Next runs the checks instead of moving on.
            clickNext(w.get());
            QCOMPARE(w->currentId(), int(TransmitterWizard::BackupInformationId));
        }
        QCOMPARE(titleAndText(*m_prompter), asked);
    }

    // A backup made through the pages, then written back over a changed drive, to a file and through
    // the database, each worker on its thread.
    void backupThenRecover_data()
    {
        QTest::addColumn<bool>("toDatabase");
        QTest::newRow("file") << false;
        QTest::newRow("database") << true;
    }
    void backupThenRecover()
    {
        QFETCH(bool, toDatabase);
        // A backup is valid by the entry "config/config.jsn" as stored, so the drive spells it so.
        const QByteArray config = "{\"hw\":674,\"version\":\"4.22\"}";
        const QByteArray model = randomBytes(70000, 7);
        put(QStringLiteral("config/config.jsn"), config);
        put(QStringLiteral("Model/m.bin"), model);
        put(QStringLiteral("Export/x.txt"), "export");
        put(QStringLiteral("Log/a.log"), "not in the minimal scope");
        const QString zip = m_dir->filePath(QStringLiteral("backup.zip"));

        auto w = wizard();
        BackupInformationPage *info = toInformation(w.get());
        QVERIFY(info);
        QCOMPARE(info->nameField()->text(), QStringLiteral("Vexo-HC-6_V4.22"));
        if (toDatabase) {
            info->databaseChoice()->setChecked(true);
        } else {
            info->fileChoice()->setChecked(true);
            info->pathField()->setText(zip);
        }
        clickNext(w.get());
        QCOMPARE(w->currentId(), int(TransmitterWizard::BackupProgressId));
        QTRY_COMPARE_WITH_TIMEOUT(w->currentId(), int(TransmitterWizard::BackupFinishId), 30000);
        QCOMPARE(m_prompter->asked.size(), 0);
        QCOMPARE(QFileInfo::exists(zip), !toDatabase);
        w.reset();

        put(QStringLiteral("Model/m.bin"), "changed");
        QVERIFY(QFile::remove(QDir(m_drive).filePath(QStringLiteral("Export/x.txt"))));
        put(QStringLiteral("Log/a.log"), "kept");

        w = wizard();
        choose(w.get(), Recover);
        w->next();
        auto *selection = qobject_cast<RestoreSelectionPage *>(w->currentPage());
        QVERIFY(selection);
        QCOMPARE(w->button(QWizard::NextButton)->text(), QStringLiteral("Recover"));
        if (toDatabase) {
            QCOMPARE(selection->backups()->model()->rowCount(), 1);
            selection->backups()->setCurrentIndex(selection->backups()->model()->index(0, 0));
            QStringList contents;
            for (int i = 0; i < selection->contentsList()->count(); ++i)
                contents << selection->contentsList()->item(i)->text();
            QCOMPARE(contents, (QStringList{"config/config.jsn", "Export/x.txt", "Model/m.bin"}));
        } else {
            selection->fileChoice()->setChecked(true);
            selection->pathField()->setText(zip);
        }
        // Asked first; No writes nothing and stays.
        m_prompter->buttons.enqueue(QMessageBox::No);
        clickNext(w.get());
        QCOMPARE(w->currentId(), int(TransmitterWizard::RestoreSelectionId));
        QCOMPARE(readAll(QDir(m_drive).filePath(QStringLiteral("Model/m.bin"))), QByteArray("changed"));
        clickNext(w.get());
        QCOMPARE(w->currentId(), int(TransmitterWizard::RestoreProgressId));
        QTRY_COMPARE_WITH_TIMEOUT(w->currentId(), int(TransmitterWizard::RestoreFinishId), 30000);
        QCOMPARE(w->currentPage()->objectName(), QStringLiteral("restore-successful"));
        QCOMPARE(m_prompter->asked.size(), 2);
        QCOMPARE(m_prompter->asked[1].kind, QStringLiteral("question"));
        QCOMPARE(m_prompter->asked[1].title, QStringLiteral("Confirmation"));
        // Same model: no word of another transmitter.
        QVERIFY(!m_prompter->asked[1].text.contains(QStringLiteral("connected transmitter is")));
        QCOMPARE(readAll(QDir(m_drive).filePath(QStringLiteral("Model/m.bin"))), model);
        QCOMPARE(readAll(QDir(m_drive).filePath(QStringLiteral("Export/x.txt"))), QByteArray("export"));
        QCOMPARE(readAll(QDir(m_drive).filePath(QStringLiteral("Log/a.log"))), QByteArray("kept"));
    }

    // The recovery page's checks, in their order.
    void recoverChecks_data()
    {
        QTest::addColumn<bool>("toDatabase");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("asked");
        QTest::newRow("no file") << false << ""
                                 << "No file selected|Please select a valid file.";
        QTest::newRow("missing file") << false << "nothing.zip"
                                      << "No file selected|Please select a valid file.";
        QTest::newRow("no backup chosen") << true << ""
                                          << "No backup selected|Please select backup.";
        QTest::newRow("not a backup")
            << false << "plain.zip"
            << "Invalid file|Selected file is not a valid backup. Please select a valid backup.";
    }
    void recoverChecks()
    {
        QFETCH(bool, toDatabase);
        QFETCH(QString, file);
        QFETCH(QString, asked);
        // A zip without "config/config.jsn": the stored name is "Config/Config.jsn" in other case (the
        // program's own backups always store the exact name, so this one is made by hand).
        {
            QFile plain(m_dir->filePath(QStringLiteral("plain.zip")));
            QVERIFY(plain.open(QIODevice::WriteOnly));
            plain.write(ZipBuilder::build({{"Config/Config.jsn", "{}"}}));
        }
        auto w = wizard();
        choose(w.get(), Recover);
        w->next();
        auto *selection = qobject_cast<RestoreSelectionPage *>(w->currentPage());
        (toDatabase ? selection->databaseChoice() : selection->fileChoice())->setChecked(true);
        selection->pathField()->setText(file.isEmpty() ? QString() : m_dir->filePath(file));
        clickNext(w.get());
        QCOMPARE(w->currentId(), int(TransmitterWizard::RestoreSelectionId));
        QCOMPARE(titleAndText(*m_prompter), asked);
    }

    // A backup of another model is named in the confirmation, and No leaves the drive as it was.
    void otherModelNamed()
    {
        put(QStringLiteral("config/config.jsn"), "{\"hw\":674,\"version\":\"4.22\"}");
        const QString zip = m_dir->filePath(QStringLiteral("hc8.zip"));
        {
            QFile f(zip);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(ZipBuilder::build({{"config/config.jsn", "{\"hw\":678,\"version\":\"5.1\"}"}}));
        }
        auto w = wizard();
        choose(w.get(), Recover);
        w->next();
        auto *selection = qobject_cast<RestoreSelectionPage *>(w->currentPage());
        selection->fileChoice()->setChecked(true);
        selection->pathField()->setText(zip);
        m_prompter->buttons.enqueue(QMessageBox::No);
        clickNext(w.get());
        QCOMPARE(w->currentId(), int(TransmitterWizard::RestoreSelectionId));
        QCOMPARE(m_prompter->asked.size(), 1);
        QVERIFY(m_prompter->asked[0].text.contains(QStringLiteral("made on a Vexo HC-8 (firmware 5.1)")));
        QVERIFY(m_prompter->asked[0].text.contains(QStringLiteral("is a Vexo HC-6 (firmware 4.22)")));
        QCOMPARE(readAll(QDir(m_drive).filePath(QStringLiteral("config/config.jsn"))),
                 QByteArray("{\"hw\":674,\"version\":\"4.22\"}"));
    }

    void cancelAsksFirst()
    {
        put(QStringLiteral("Config/Config.jsn"), "{}");
        auto w = wizard();
        BackupInformationPage *info = toInformation(w.get());
        info->databaseChoice()->setChecked(true);
        clickNext(w.get());
        auto *progress = qobject_cast<WorkerProgressPage *>(w->currentPage());
        QVERIFY(progress);
        // No event has been handled since the start: the worker's end, if it came, is still queued.
        QVERIFY(progress->isRunning());
        const QString question =
            QStringLiteral("Confirmation|Do you really want to cancel the backup process?");
        m_prompter->buttons.enqueue(QMessageBox::No);
        w->reject();
        QCOMPARE(titleAndText(*m_prompter), question);
        QVERIFY(w->isVisible());
        QVERIFY(progress->statusText().isEmpty());
        m_prompter->buttons.enqueue(QMessageBox::Yes);
        w->reject();
        QCOMPARE(m_prompter->asked.size(), 2);
        QCOMPARE(progress->statusText(), QStringLiteral("Canceled."));
        QTRY_VERIFY_WITH_TIMEOUT(!progress->isRunning(), 30000);
        // A canceled run neither reports an error nor moves on.
        QCOMPARE(m_prompter->asked.size(), 2);
        QCOMPARE(w->currentId(), int(TransmitterWizard::BackupProgressId));
        QCOMPARE(progress->statusText(), QStringLiteral("Canceled."));
        // Nothing runs now: Exit closes without a question.
        w->reject();
        QVERIFY(!w->isVisible());
        QCOMPARE(m_prompter->asked.size(), 2);
    }

    // A file gone between choosing and backing up: the worker's error is shown, the page stays with the
    // details open, and no backup file appears.
    void workerErrorStays()
    {
        put(QStringLiteral("Config/Config.jsn"), "{}");
        put(QStringLiteral("Model/m.bin"), "m");
        const QString zip = m_dir->filePath(QStringLiteral("b.zip"));
        auto w = wizard();
        BackupInformationPage *info = toInformation(w.get());
        info->fileChoice()->setChecked(true);
        info->pathField()->setText(zip);
        QVERIFY(QFile::remove(QDir(m_drive).filePath(QStringLiteral("Model/m.bin"))));
        clickNext(w.get());
        auto *progress = qobject_cast<WorkerProgressPage *>(w->currentPage());
        QVERIFY(progress);
        QVERIFY(!progress->detailsShown());
        QTRY_VERIFY_WITH_TIMEOUT(!progress->isRunning(), 30000);
        QCOMPARE(m_prompter->asked.size(), 1);
        QCOMPARE(m_prompter->asked[0].title, QStringLiteral("Error"));
        QVERIFY(m_prompter->asked[0].text.contains(QStringLiteral("Unable to open the file")));
        QCOMPARE(w->currentId(), int(TransmitterWizard::BackupProgressId));
        QVERIFY(progress->detailsShown());
        QVERIFY(progress->detailsText().contains(QStringLiteral("Unable to open the file")));
        QVERIFY(progress->statusText() != QStringLiteral("Finished."));
        QVERIFY(!QFileInfo::exists(zip));
    }

    void driveRemovedReloadsSelection()
    {
        put(QStringLiteral("Config/Config.jsn"), "{}");
        put(QStringLiteral("Model/m.bin"), "m");
        auto w = wizard();
        choose(w.get(), Backup);
        w->next();
        auto *selection = qobject_cast<BackupSelectionPage *>(w->currentPage());
        QCOMPARE(selection->model()->checkedFiles(), (QStringList{"Config/Config.jsn", "Model/m.bin"}));
        QVERIFY(QDir(QDir(m_drive).filePath(QStringLiteral("Model"))).removeRecursively());
        w->onTransmitterRemoved(m_drive + QStringLiteral("-other"));
        QCOMPARE(selection->model()->checkedFiles().size(), 2);
        QTest::ignoreMessage(QtDebugMsg, "Transmitter removed!");
        w->onTransmitterRemoved(m_drive);
        QCOMPARE(selection->model()->checkedFiles(), QStringList{"Config/Config.jsn"});
    }

    void viewer()
    {
        QVERIFY(m_db->insertBackup(674, QStringLiteral("first"), QStringLiteral("one"), 1500, "a", "zip") >
                0);
        QVERIFY(m_db->insertBackup(680, QStringLiteral("second"), QStringLiteral("two"), 2500000, "b",
                                   "zip") > 0);
        auto w = wizard();
        choose(w.get(), ViewBackups);
        auto *page = qobject_cast<ManageBackupsPage *>(w->currentPage());
        QVERIFY(page);
        QCOMPARE(page->title(), QStringLiteral("Backups viewer"));
        QCOMPARE(w->button(QWizard::FinishButton)->text(), QStringLiteral("Close"));
        QAbstractItemModel *model = page->backups()->model();
        QStringList headers;
        for (int c = 0; c < model->columnCount(); ++c)
            headers << model->headerData(c, Qt::Horizontal).toString();
        QCOMPARE(headers, (QStringList{"Backup name", "Creation date", "Transmitter", "Size"}));
        QCOMPARE(model->rowCount(), 2);
        // Same second: the later id first.
        const int second = 0, first = 1;
        QCOMPARE(model->index(second, BackupsModel::TransmitterColumn).data().toString(),
                 QStringLiteral("Unknown Transmitter"));
        QCOMPARE(model->index(first, BackupsModel::TransmitterColumn).data().toString(),
                 QStringLiteral("Vexo HC-6"));
        QCOMPARE(model->index(first, BackupsModel::SizeColumn).data().toString(), QStringLiteral("2 kB"));
        QCOMPARE(model->index(second, BackupsModel::SizeColumn).data().toString(), QStringLiteral("3 MB"));
        page->backups()->setCurrentIndex(model->index(first, 0));
        QCOMPARE(page->descriptionBox()->toPlainText(), QStringLiteral("one"));

        QSqlQuery q(QSqlDatabase::database(m_db->connectionName()));
        QVERIFY(q.exec(QStringLiteral(
            "create trigger keep before delete on backups begin select raise(abort, 'kept'); end")));
        QVERIFY(!page->deleteCurrentBackup());
        QCOMPARE(titleAndText(*m_prompter),
                 QStringLiteral("Error|There was an error while removing the backup."));
        QCOMPARE(model->rowCount(), 2);
        QVERIFY(q.exec(QStringLiteral("drop trigger keep")));
        QVERIFY(page->deleteCurrentBackup());
        QCOMPARE(model->rowCount(), 1);
        QCOMPARE(model->index(0, 0).data().toString(), QStringLiteral("second"));
    }
};

QTEST_MAIN(tst_TransmitterWizard)
#include "tst_TransmitterWizard.moc"
