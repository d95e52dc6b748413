#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "tests/support/LocalHttpServer.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestFiles.h"
#include "transmitter/RestoreWorker.h"
#include "transmitter/ui/IntroPage.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "transmitter/ui/UpdaterPages.h"

#include <QComboBox>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

#include <memory>

using Reply = LocalHttpServer::Reply;
Q_DECLARE_METATYPE(LocalHttpServer::Reply)

namespace {
constexpr int kUpdateRow = 3; // "Transmitter Update" on the intro page
constexpr int kHw = 674;
constexpr int kWait = 30000;

QJsonObject language(const QString &en)
{
    return QJsonObject{{"en", en}};
}
} // namespace

class tst_UpdaterPages : public QObject
{
    Q_OBJECT
    LocalHttpServer m_server;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Logger> m_logger;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ScriptedPrompter> m_prompter;
    QString m_drive;

    QJsonObject file(int update, const QString &path, const QByteArray &content, const QString &destination,
                     const QString &flags)
    {
        m_server.setReply(path.toUtf8(), Reply::ok(content));
        return QJsonObject{
            {"idUpdate", update},
            {"url", m_server.url(path)},
            {"hash", QString(QCryptographicHash::hash(content, QCryptographicHash::Sha1).toHex())},
            {"size", content.size()},
            {"destination", destination},
            {"flags", flags},
            {"description", "about " + destination}};
    }

    // Update 1 for the connected model: a firmware file, an optional sound, an optional sound left unchecked.
    // Update 2 (the same model) holds only a file offered unchecked. Update 3 is for another model.
    QByteArray updateList()
    {
        const QJsonArray general{
            QJsonObject{{"hw", kHw},
                        {"update", QJsonArray{QJsonObject{{"id", 1},
                                                          {"releaseDate", "2026-03-04 10:00:00"},
                                                          {"name", language("System")},
                                                          {"description", language("")},
                                                          {"variant", 0}},
                                              QJsonObject{{"id", 2},
                                                          {"releaseDate", "2026-03-05"},
                                                          {"name", language("Extras")},
                                                          {"description", language("")},
                                                          {"variant", 1}}}}},
            QJsonObject{{"hw", 1},
                        {"update", QJsonArray{QJsonObject{{"id", 3},
                                                          {"releaseDate", "2026-03-04"},
                                                          {"name", language("Other")},
                                                          {"variant", 0}}}}}};
        const QJsonArray files{file(1, "/fw", "firmware v2", "update/fw.bin", "standard"),
                               file(1, "/beep", "beep v2", "Audio/beep.wav", "OPTIONAL"),
                               file(1, "/extra", "extra", "Audio/extra.wav", "optionalUnchecked"),
                               file(2, "/only", "only", "Audio/only.wav", "optionalUnchecked"),
                               file(2, "/evil", "evil", "../evil.wav", "optionalUnchecked"),
                               file(3, "/other", "other", "update/other.bin", "standard")};
        return QJsonDocument(QJsonObject{{"general", general}, {"files", files}}).toJson();
    }

    std::unique_ptr<TransmitterWizard> wizard()
    {
        TransmitterInfo t;
        t.rootPath = m_drive;
        t.hwId = kHw;
        t.modelName = QStringLiteral("Vexo HC-6");
        t.versionMajor = 5;
        t.versionMinor = 2;
        auto w = std::make_unique<TransmitterWizard>(t, m_db.get(), m_prompter.get());
        w->show();
        return w;
    }

    // Intro, update intro, check page (waits for the list when a service is configured).
    UpdateCheckPage *toCheck(TransmitterWizard *w, bool wait = true)
    {
        qobject_cast<IntroPage *>(w->currentPage())->tools()->setCurrentRow(kUpdateRow);
        w->next();
        w->next();
        auto *check = qobject_cast<UpdateCheckPage *>(w->currentPage());
        if (check && wait) {
            QElapsedTimer t;
            t.start();
            while (check->statusText() == "Searching for updates..." && t.elapsed() < kWait)
                QTest::qWait(10);
        }
        return check;
    }

    void waitForPage(TransmitterWizard *w, int id) { QTRY_COMPARE_WITH_TIMEOUT(w->currentId(), id, kWait); }

private slots:
    void init()
    {
        QVERIFY(m_server.isListening());
        m_server.clearLog();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_drive = m_dir->filePath("drive");
        QVERIFY(putFile(m_drive + "/config/config.jsn", "{\"config\":1}"));
        QVERIFY(putFile(m_drive + "/update/fw.bin", "firmware v1"));
        QVERIFY(putFile(m_drive + "/Audio/beep.wav", "beep v1"));
        QVERIFY(putFile(m_drive + "/Model/m1.jsn", "model"));
        const QString data = m_dir->filePath("data");
        QVERIFY(QDir().mkpath(data));
        m_logger = std::make_unique<Logger>(QDir(data).filePath("Application.log"));
        m_db = std::make_unique<DatabaseManager>(data, m_logger.get());
        QVERIFY(m_db->openAndInitialise());
        m_prompter = std::make_unique<ScriptedPrompter>();
        qputenv("VEXO_TX_UPDATE_URL", m_server.url("/tx/").toUtf8());
        m_server.setReply("/tx/update.json", Reply::ok(updateList(), "application/json"));
    }

    void cleanup()
    {
        m_db.reset();
        m_logger.reset();
        m_dir.reset();
    }

    void checkPage_data()
    {
        QTest::addColumn<bool>("configured");
        QTest::addColumn<Reply>("list");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QStringList>("updates");
        QTest::addColumn<QString>("box");

        const QString failed = "There was an error during downloading the updates list. Try again later.";
        QTest::newRow("updates found")
            << true << Reply::ok(updateList())
            << "Updates found:" << QStringList{"System (variant 0, ", "Extras (variant 1, "} << "";
        const QByteArray otherModel =
            R"({"general":[{"hw":1,"update":[{"id":3,"releaseDate":"2026-01-01","variant":0}]}],"files":[]})";
        QTest::newRow("none for this model")
            << true << Reply::ok(otherModel) << "No updates found for your device." << QStringList() << "";
        QTest::newRow("404") << true << Reply::error(404, "gone") << failed << QStringList()
                             << "error|Error|";
        QTest::newRow("not a list") << true << Reply::ok("[1,2]") << failed << QStringList()
                                    << "error|Error|";
        QTest::newRow("no service configured")
            << false << Reply() << "No update service is configured" << QStringList() << "";
    }

    void checkPage()
    {
        QFETCH(bool, configured);
        QFETCH(Reply, list);
        QFETCH(QString, status);
        QFETCH(QStringList, updates);
        QFETCH(QString, box);
        if (!configured)
            qunsetenv("VEXO_TX_UPDATE_URL");
        m_server.setReply("/tx/update.json", list);
        auto w = wizard();
        UpdateCheckPage *check = toCheck(w.get());
        QVERIFY(check);
        QVERIFY(check->deviceText().contains("<b>Model</b>: Vexo HC-6<br><b>Version</b>: 5.2</div>"));
        QVERIFY2(check->statusText().startsWith(status), qPrintable(check->statusText()));
        QCOMPARE(check->list()->count(), updates.size());
        for (int i = 0; i < updates.size(); ++i)
            QVERIFY(check->list()->item(i)->text().startsWith(updates.at(i)));
        QCOMPARE(check->isComplete(), !updates.isEmpty());
        if (box.isEmpty()) {
            QVERIFY(m_prompter->asked.isEmpty());
        } else {
            QVERIFY2(m_prompter->only().startsWith(box + status), qPrintable(m_prompter->only()));
            QVERIFY(m_prompter->asked.first().text.contains("Error message:"));
        }
        // The wizard stays usable: back to the tools.
        w->back();
        w->back();
        QCOMPARE(w->currentId(), int(TransmitterWizard::IntroId));
    }

    void overviewSelection_data()
    {
        QTest::addColumn<int>("update");
        QTest::addColumn<QStringList>("check"); // destinations checked by hand
        QTest::addColumn<QStringList>("chosen");
        QTest::newRow("as offered") << 0 << QStringList() << QStringList{"update/fw.bin", "Audio/beep.wav"};
        QTest::newRow("unchecked one checked")
            << 0 << QStringList{"Audio/extra.wav"}
            << QStringList{"update/fw.bin", "Audio/beep.wav", "Audio/extra.wav"};
        QTest::newRow("nothing offered checked") << 1 << QStringList() << QStringList();
        QTest::newRow("unsafe file checked") << 1 << QStringList{"../evil.wav"} << QStringList{"../evil.wav"};
    }

    void overviewSelection()
    {
        QFETCH(int, update);
        QFETCH(QStringList, check);
        QFETCH(QStringList, chosen);
        auto w = wizard();
        QVERIFY(toCheck(w.get()));
        w->next();
        qobject_cast<UpdateBackupPromptPage *>(w->currentPage())->skipButton()->click();
        auto *overview = qobject_cast<UpdateOverviewPage *>(w->currentPage());
        QVERIFY(overview);
        overview->typeBox()->setCurrentIndex(update);
        QCOMPARE(overview->tree()->headerItem()->text(0), QString("File"));
        QCOMPARE(overview->tree()->headerItem()->text(1), QString("Size"));
        const TxCatalogue::Update u = overview->currentUpdate();
        for (int i = 0; i < u.files.size(); ++i) {
            if (check.contains(u.files.at(i).destination))
                overview->fileItem(i)->setCheckState(0, Qt::Checked);
        }
        QStringList got;
        for (const TxCatalogue::FileEntry &f : overview->selectedFiles())
            got << f.destination;
        QCOMPARE(got, chosen);
        overview->tree()->setCurrentItem(overview->fileItem(0));
        QCOMPARE(overview->descriptionBox()->toPlainText(), "about " + u.files.at(0).destination);

        const FileTree before = fileTree(m_drive);
        w->button(QWizard::CommitButton)->click();
        if (chosen.contains("../evil.wav")) {
            QVERIFY2(m_prompter->only().startsWith("warning|Updater error.|This update cannot be installed"),
                     qPrintable(m_prompter->only()));
            QCOMPARE(w->currentId(), int(TransmitterWizard::UpdateOverviewId));
            QCOMPARE(fileTree(m_drive), before);
            return;
        }
        if (chosen.isEmpty()) {
            QCOMPARE(m_prompter->only(),
                     QString("warning|Nothing selected|Nothing was selected for the update. "
                             "Please select at least one item."));
            QCOMPARE(w->currentId(), int(TransmitterWizard::UpdateOverviewId));
            return;
        }
        waitForPage(w.get(), TransmitterWizard::UpdateFinishId);
        QCOMPARE(qobject_cast<UpdateFinishPage *>(w->currentPage())->backupText(),
                 QString("No backup was made (skipped)."));
        const FileTree after = fileTree(m_drive);
        QCOMPARE(after.value("update/fw.bin"), QByteArray("firmware v2"));
        QCOMPARE(after.value("Audio/beep.wav"), QByteArray("beep v2"));
        QCOMPARE(after.contains("Audio/extra.wav"), chosen.contains("Audio/extra.wav"));
    }

    // Exit while a file is being fetched asks first; yes stops the update and keeps the old file.
    void exitAsksThenCancels()
    {
        Reply stall = Reply::ok("firmware v2");
        stall.fault = Reply::Stall;
        stall.faultAfter = 3;
        auto w = wizard();
        QVERIFY(toCheck(w.get()));
        m_server.setReply("/fw", stall); // after the list was made, which sets the normal replies
        w->next();
        qobject_cast<UpdateBackupPromptPage *>(w->currentPage())->skipButton()->click();
        w->button(QWizard::CommitButton)->click();
        auto *progress = qobject_cast<UpdateProgressPage *>(w->currentPage());
        QVERIFY(progress);
        QTRY_COMPARE_WITH_TIMEOUT(m_server.requestCount("/fw"), 1, kWait);
        m_prompter->buttons.enqueue(QMessageBox::Yes);
        w->reject();
        QCOMPARE(m_prompter->only(),
                 QString("question|Confirmation|Do you really want to abort the updating process?"));
        QTRY_VERIFY_WITH_TIMEOUT(!progress->isRunning(), kWait);
        QCOMPARE(progress->statusText(), QString("Update canceled."));
        QCOMPARE(w->currentId(), int(TransmitterWizard::UpdateProgressId));
        QCOMPARE(fileTree(m_drive).value("update/fw.bin"), QByteArray("firmware v1"));
        QCOMPARE(m_server.requestCount("/beep"), 0);
    }

    // The backup made before the update brings the drive back to how it was.
    void backupBeforeUpdateRestores()
    {
        const FileTree before = fileTree(m_drive);
        auto w = wizard();
        QVERIFY(toCheck(w.get()));
        w->next();
        w->next(); // not skipped: the backup pages, the whole drive, into the database (it is small)
        QCOMPARE(w->currentId(), int(TransmitterWizard::BackupSelectionId));
        w->next();
        QCOMPARE(w->currentId(), int(TransmitterWizard::BackupInformationId));
        w->button(QWizard::NextButton)->click();
        waitForPage(w.get(), TransmitterWizard::BackupFinishId);
        w->next();
        QCOMPARE(w->currentId(), int(TransmitterWizard::UpdateOverviewId));
        w->button(QWizard::CommitButton)->click();
        waitForPage(w.get(), TransmitterWizard::UpdateFinishId);
        QVERIFY(m_prompter->asked.isEmpty());
        const QString text = qobject_cast<UpdateFinishPage *>(w->currentPage())->backupText();
        QVERIFY2(text.contains("the backup \"Vexo-HC-6_V5.2\" in the database"), qPrintable(text));
        QVERIFY(fileTree(m_drive) != before);

        const QVector<BackupRow> rows = m_db->listBackups();
        QCOMPARE(rows.size(), 1);
        RestoreWorker restore({m_drive, QString(), rows.first().id});
        QObject::connect(&restore, &RestoreWorker::requestBackupFromDb, [&](int id) {
            QByteArray zip;
            const bool ok = m_db->backupData(id, &zip);
            restore.setBackupData(zip, ok);
        });
        QString error;
        QObject::connect(&restore, &RestoreWorker::error,
                         [&](RestoreWorker::ErrorType, const QString &t) { error = t; });
        restore.doWork();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(fileTree(m_drive), before);
    }
};

QTEST_MAIN(tst_UpdaterPages)
#include "tst_UpdaterPages.moc"
