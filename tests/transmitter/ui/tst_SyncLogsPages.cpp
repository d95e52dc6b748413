#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestFiles.h"
#include "transmitter/LogSyncStore.h"
#include "transmitter/TransmitterLogsModel.h"
#include "transmitter/ui/CheckBoxHeader.h"
#include "transmitter/ui/IntroPage.h"
#include "transmitter/ui/SyncLogsPages.h"
#include "transmitter/ui/TransmitterWizard.h"

#include <QDir>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTreeView>
#include <QtTest>

#include <memory>

namespace {
constexpr int kSyncRow = 4; // "Synchronize log files" on the intro page
constexpr int kWait = 30000;

// A native log as the transmitter writes it: two header lines (model, description), one device with one
// parameter, and samples from 100 ms to 100 + lengthms.
QByteArray nativeLog(const QString &model, int lengthms)
{
    QByteArray log = "# " + model.toUtf8() + "\n# club field\n";
    log += "000000000;0256100001;0;Receiver; \n000000000;0256100001;1;Voltage;V\n";
    for (int ts = 100; ts <= 100 + lengthms; ts += 500)
        log += QByteArray::number(ts).rightJustified(9, '0') + ";0256100001;1;1;2;" +
               QByteArray::number(700 + ts % 7) + "\n";
    return log;
}
} // namespace

class tst_SyncLogsPages : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Logger> m_logger;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ScriptedPrompter> m_prompter;
    QString m_drive;

    QString onDrive(const QString &relative) const { return QDir(m_drive).filePath(relative); }

    void put(const QString &relative, const QByteArray &bytes)
    {
        QVERIFY(QDir().mkpath(QFileInfo(onDrive(relative)).path()));
        QVERIFY(writeFile(onDrive(relative), bytes));
    }

    std::unique_ptr<TransmitterWizard> wizard()
    {
        TransmitterInfo t;
        t.rootPath = m_drive;
        t.driveLetter = m_drive.at(0).toLatin1();
        t.hwId = 674;
        t.modelName = QStringLiteral("Vexo HC-6");
        auto w = std::make_unique<TransmitterWizard>(t, m_db.get(), m_prompter.get());
        w->show();
        return w;
    }

    // Intro, tool intro, selection.
    static SyncLogsSelectionPage *toSelection(TransmitterWizard *w)
    {
        auto *intro = qobject_cast<IntroPage *>(w->currentPage());
        intro->tools()->setCurrentRow(kSyncRow);
        w->next();
        w->next();
        return qobject_cast<SyncLogsSelectionPage *>(w->currentPage());
    }

    static void clickNext(TransmitterWizard *w) { w->button(QWizard::NextButton)->click(); }

    // Checks every log and starts the run.
    static SyncLogsProgressPage *startAll(TransmitterWizard *w)
    {
        SyncLogsSelectionPage *selection = toSelection(w);
        if (!selection)
            return nullptr;
        selection->model()->setAllChecked(true);
        clickNext(w);
        return qobject_cast<SyncLogsProgressPage *>(w->currentPage());
    }

    // Every stored log as "model|folder path|file name|length", sorted.
    QStringList storedLogs() const
    {
        QSqlQuery q(QSqlDatabase::database(m_db->connectionName()));
        const bool ok = q.exec(QStringLiteral(
            "select m.name, f1.name || '/' || f2.name || '/' || f3.name, l.filename, l.lengthms from logs l "
            "join models m on m.id = l.modelId join folders f3 on f3.id = l.folderId "
            "join folders f2 on f2.id = f3.parentId join folders f1 on f1.id = f2.parentId"));
        QStringList rows;
        while (ok && q.next())
            rows << QStringList{q.value(0).toString(), q.value(1).toString(), q.value(2).toString(),
                                q.value(3).toString()}
                        .join(QLatin1Char('|'));
        rows.sort();
        return ok ? rows : QStringList{QStringLiteral("query failed")};
    }

    QStringList models() const
    {
        QSqlQuery q(QSqlDatabase::database(m_db->connectionName()));
        QStringList names;
        if (q.exec(QStringLiteral("select name from models order by name")))
            while (q.next())
                names << q.value(0).toString();
        return names;
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_drive = m_dir->filePath(QStringLiteral("drive"));
        QVERIFY(QDir().mkpath(m_drive + QStringLiteral("/Log")));
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

    // Nothing checked is refused; the header box checks all, none, and all again from a partial state.
    void selection()
    {
        put(QStringLiteral("Log/20240517/10-00-00.log"), nativeLog(QStringLiteral("Cub"), 1000));
        put(QStringLiteral("Log/20240518/09-15-30.log"), nativeLog(QStringLiteral("Cub"), 1000));
        put(QStringLiteral("Log/20240518/11-00-00.log"), nativeLog(QStringLiteral("Cub"), 1000));
        auto w = wizard();
        SyncLogsSelectionPage *page = toSelection(w.get());
        QVERIFY(page);
        QCOMPARE(page->title(), QStringLiteral("HC/HS Log Sync"));
        QCOMPARE(w->button(QWizard::NextButton)->text(), QStringLiteral("Synchronize"));
        QCOMPARE(w->button(QWizard::CancelButton)->text(), QStringLiteral("Close"));

        clickNext(w.get());
        QCOMPARE(w->currentId(), int(TransmitterWizard::SyncSelectionId));
        QCOMPARE(m_prompter->only(),
                 QStringLiteral("information|No log file selected.|Select at least one log file."));

        CheckBoxHeader *header = page->checkHeader();
        const auto clickBox = [header] {
            QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, header->checkBoxRect().center());
        };
        TransmitterLogsModel *model = page->model();
        clickBox();
        QCOMPARE(model->checkedLogs().size(), 3);
        clickBox();
        QCOMPARE(model->checkedLogs().size(), 0);
        QCOMPARE(header->checkState(), Qt::Unchecked);
        // One log checked by hand: the box shows "some", and a click checks the rest.
        const QModelIndex day = model->index(1, 0);
        QVERIFY(model->setData(model->index(0, 0, day), Qt::Checked, Qt::CheckStateRole));
        QCOMPARE(header->checkState(), Qt::PartiallyChecked);
        clickBox();
        QCOMPARE(model->checkedLogs().size(), 3);
        QCOMPARE(header->checkState(), Qt::Checked);
        QVERIFY(model->setData(model->index(0, 0, day), Qt::Unchecked, Qt::CheckStateRole));
        QCOMPARE(header->checkState(), Qt::PartiallyChecked);

        // The drive going away is shown at once: the tree is read again.
        QVERIFY(QDir(onDrive(QStringLiteral("Log/20240518"))).removeRecursively());
        w->onTransmitterRemoved(m_drive);
        QCOMPARE(model->logCount(), 1);
        QCOMPARE(header->checkState(), Qt::Checked);
    }

    void deleteOnDrive_data()
    {
        QTest::addColumn<bool>("folder");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("goneBefore");   // removed behind the page's back (drive pulled)
        QTest::addColumn<QStringList>("asked"); // "kind|title|text"
        QTest::addColumn<bool>("deleted");

        const QString logQuestion =
            QStringLiteral("question|Delete log file|Do you really want to remove the log file permanently?");
        const QString folderQuestion =
            QStringLiteral("question|Delete folder|Do you really want to remove the folder permanently?");
        const int yes = QMessageBox::Yes, no = QMessageBox::No;
        QTest::newRow("log, no keeps it") << false << no << false << QStringList{logQuestion} << false;
        QTest::newRow("log, yes removes it") << false << yes << false << QStringList{logQuestion} << true;
        QTest::newRow("log, failure")
            << false << yes << true
            << QStringList{logQuestion,
                           QStringLiteral("error|Error|There was an error during removing the log file.")}
            << false;
        QTest::newRow("folder, no keeps it") << true << no << false << QStringList{folderQuestion} << false;
        QTest::newRow("folder, yes removes it")
            << true << yes << false << QStringList{folderQuestion} << true;
        QTest::newRow("folder, failure")
            << true << yes << true
            << QStringList{folderQuestion,
                           QStringLiteral("error|Error|There was an error during removing the folder.")}
            << false;
    }
    void deleteOnDrive()
    {
        QFETCH(bool, folder);
        QFETCH(int, answer);
        QFETCH(bool, goneBefore);
        QFETCH(QStringList, asked);
        QFETCH(bool, deleted);
        put(QStringLiteral("Log/20240517/10-00-00.log"), nativeLog(QStringLiteral("Cub"), 1000));
        put(QStringLiteral("Log/20240517/11-00-00.log"), nativeLog(QStringLiteral("Cub"), 1000));
        put(QStringLiteral("Log/20240518/09-00-00.log"), nativeLog(QStringLiteral("Cub"), 1000));
        const QString target =
            onDrive(folder ? QStringLiteral("Log/20240517") : QStringLiteral("Log/20240517/10-00-00.log"));
        auto w = wizard();
        SyncLogsSelectionPage *page = toSelection(w.get());
        TransmitterLogsModel *model = page->model();
        const QModelIndex index = model->indexForPath(target);
        QVERIFY(index.isValid());
        if (goneBefore)
            QVERIFY(folder ? QDir(target).removeRecursively() : QFile::remove(target));
        m_prompter->buttons.enqueue(QMessageBox::StandardButton(answer));
        QCOMPARE(page->deleteEntry(index), deleted);

        QStringList seen;
        for (const ScriptedPrompter::Asked &a : m_prompter->asked)
            seen << a.kind + QLatin1Char('|') + a.title + QLatin1Char('|') + a.text;
        QCOMPARE(seen, asked);
        // Closing the question keeps the file.
        QCOMPARE(m_prompter->asked[0].defaultButton, QMessageBox::No);
        QCOMPARE(QFileInfo::exists(target), !deleted && !goneBefore);
        // The tree shows the drive as it is now; the other day is untouched.
        QCOMPARE(model->indexForPath(target).isValid(), !deleted && !goneBefore);
        QVERIFY(QFileInfo::exists(onDrive(QStringLiteral("Log/20240518/09-00-00.log"))));
        QCOMPARE(QFileInfo::exists(onDrive(QStringLiteral("Log/20240517/11-00-00.log"))),
                 !(folder && (deleted || goneBefore)));
    }

    // Two runs through the wizard: the first files every log under its model and flight date (a missing
    // model created once, a folder that is no date filed by the file's time), the second stores nothing
    // and names the damaged log that appeared in between.
    void syncTwice()
    {
        ModelLibrary library(m_db.get());
        QVERIFY(library.createModel(QStringLiteral("Extra 330")) > 0);
        put(QStringLiteral("Log/20240517/10-00-00.log"), nativeLog(QStringLiteral("Extra 330"), 5000));
        put(QStringLiteral("Log/20240517/11-30-00.log"), nativeLog(QStringLiteral("Cub"), 3000));
        put(QStringLiteral("Log/20240518/09-15-30.log"), nativeLog(QStringLiteral("Cub"), 7000));
        put(QStringLiteral("Log/20231301/12-30-00.log"), nativeLog(QStringLiteral("Cub"), 2000));
        put(QStringLiteral("Log/20240518/flight.log"), nativeLog(QStringLiteral("Hidden"), 1000));
        {
            QFile f(onDrive(QStringLiteral("Log/20231301/12-30-00.log")));
            QVERIFY(f.open(QIODevice::ReadWrite));
            QVERIFY(f.setFileTime(QDateTime(QDate(2023, 11, 5), QTime(12, 0)),
                                  QFileDevice::FileModificationTime));
        }
        const QStringList expected = {"Cub|2023/11/05|12-30-00.log|2000", "Cub|2024/05/17|11-30-00.log|3000",
                                      "Cub|2024/05/18|09-15-30.log|7000",
                                      "Extra 330|2024/05/17|10-00-00.log|5000"};

        auto w = wizard();
        QSignalSpy synchronized(w.get(), &TransmitterWizard::logsSynchronized);
        QTest::ignoreMessage(QtDebugMsg, "Unexpected log datetime.");
        QVERIFY(startAll(w.get()));
        QTRY_COMPARE_WITH_TIMEOUT(w->currentId(), int(TransmitterWizard::SyncFinishId), kWait);
        QCOMPARE(m_prompter->asked.size(), 0);
        auto *finish = qobject_cast<SyncLogsFinishPage *>(w->currentPage());
        QCOMPARE(finish->headline(),
                 QStringLiteral("Your log files have been successfully synchronized with Vexo Studio."));
        QVERIFY(finish->summaryText().contains(QStringLiteral("20231301/12-30-00.log")));
        QCOMPARE(storedLogs(), expected);
        QCOMPARE(models(), (QStringList{"Cub", "Extra 330"}));
        QCOMPARE(synchronized.count(), 1);
        w.reset();

        put(QStringLiteral("Log/20240519/08-00-00.log"), QByteArray("\x01\x02 not a log at all\n"));
        w = wizard();
        QSignalSpy again(w.get(), &TransmitterWizard::logsSynchronized);
        auto *progress = startAll(w.get());
        QVERIFY(progress);
        QTRY_COMPARE_WITH_TIMEOUT(w->currentId(), int(TransmitterWizard::SyncFinishId), kWait);
        QCOMPARE(m_prompter->asked.size(), 0);
        QCOMPARE(progress->report().stored.size(), 0);
        QCOMPARE(progress->report().skipped.size(), 4);
        QCOMPARE(progress->report().failed.size(), 1);
        finish = qobject_cast<SyncLogsFinishPage *>(w->currentPage());
        QVERIFY(finish->headline() !=
                QStringLiteral("Your log files have been successfully synchronized with Vexo Studio."));
        QVERIFY(finish->summaryText().contains(QStringLiteral("20240519/08-00-00.log")));
        QCOMPARE(storedLogs(), expected);
        QCOMPARE(models(), (QStringList{"Cub", "Extra 330"}));
        QCOMPARE(again.count(), 0);
    }

    // Cancel asks first; Yes stops after the log in hand, which stays stored.
    void cancel()
    {
        for (const char *name : {"10-00-00.log", "11-00-00.log", "12-00-00.log"})
            put(QStringLiteral("Log/20240517/") + QLatin1String(name),
                nativeLog(QStringLiteral("Cub"), 1000));
        auto w = wizard();
        SyncLogsProgressPage *progress = startAll(w.get());
        QVERIFY(progress && progress->store());
        m_prompter->buttons << QMessageBox::No << QMessageBox::Yes;
        bool runningAfterNo = false;
        // Asked while the first log is in hand (its model is being made).
        connect(progress->store(), &LogSyncStore::modelCreated, progress, [progress, &runningAfterNo] {
            progress->cancelButton()->click();
            runningAfterNo = progress->isRunning();
            progress->cancelButton()->click();
        });
        QTRY_VERIFY_WITH_TIMEOUT(!progress->isRunning(), kWait);
        QVERIFY(runningAfterNo);
        QStringList asked;
        for (const ScriptedPrompter::Asked &a : m_prompter->asked)
            asked << a.kind + QLatin1Char('|') + a.title + QLatin1Char('|') + a.text;
        const QString question =
            QStringLiteral("question|Confirmation|Do you want to abort the synchronization?");
        QCOMPARE(asked, (QStringList{question, question}));
        QCOMPARE(progress->statusText(), QStringLiteral("Canceled."));
        QCOMPARE(w->currentId(), int(TransmitterWizard::SyncProgressId));
        QCOMPARE(storedLogs(), QStringList{"Cub|2024/05/17|10-00-00.log|1000"});
        QVERIFY(progress->detailsText().contains(QStringLiteral("Stored: 1")));
    }

    // The drive reported gone after the first log: one error, the stored log stays and is reported.
    void driveRemoved()
    {
        for (const char *name : {"10-00-00.log", "11-00-00.log", "12-00-00.log"})
            put(QStringLiteral("Log/20240517/") + QLatin1String(name),
                nativeLog(QStringLiteral("Cub"), 1000));
        auto w = wizard();
        QSignalSpy synchronized(w.get(), &TransmitterWizard::logsSynchronized);
        SyncLogsProgressPage *progress = startAll(w.get());
        QVERIFY(progress && progress->store());
        TransmitterWizard *wp = w.get();
        const QString drive = m_drive;
        // Told by the detection while the files can still be read: the run must end all the same.
        connect(progress->store(), &LogSyncStore::logStored, progress,
                [wp, drive] { wp->onTransmitterRemoved(drive); });
        QTest::ignoreMessage(QtDebugMsg, "Transmitter removed!");
        QTRY_VERIFY_WITH_TIMEOUT(!progress->isRunning(), kWait);
        QCOMPARE(m_prompter->only(),
                 QStringLiteral("error|Error|Transmitter disconnected. Aborting synchronization."));
        QCOMPARE(w->currentId(), int(TransmitterWizard::SyncProgressId));
        QCOMPARE(storedLogs(), QStringList{"Cub|2024/05/17|10-00-00.log|1000"});
        QCOMPARE(progress->report().stored.size(), 1);
        // Told as the reason of the end, not as a cancel by the user.
        QVERIFY(!progress->report().canceled);
        QCOMPARE(progress->report().abortedBy,
                 QStringLiteral("Transmitter disconnected. Aborting synchronization."));
        QVERIFY(progress->detailsText().contains(QStringLiteral("Stored: 1")));
        QCOMPARE(synchronized.count(), 1);
    }
};

QTEST_MAIN(tst_SyncLogsPages)
#include "tst_SyncLogsPages.moc"
