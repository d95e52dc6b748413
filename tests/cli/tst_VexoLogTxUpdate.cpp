// `vexo-log tx update` against a local update service: the list, an update with its backup restored
// afterwards, the files its flags leave out, and the exit codes.
#include "tests/support/LocalHttpServer.h"
#include "tests/support/TestFiles.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using Reply = LocalHttpServer::Reply;

namespace {
struct Run
{
    int code = -1;
    QString out;
    QString err;
};

} // namespace

class tst_VexoLogTxUpdate : public QObject
{
    Q_OBJECT
    LocalHttpServer m_server;
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_drive;
    QString m_db;

    // The program runs while this thread serves its requests.
    Run run(const QStringList &args, bool service = true)
    {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove("VEXO_TX_UPDATE_URL");
        if (service)
            env.insert("VEXO_TX_UPDATE_URL", m_server.url("/tx"));
        p.setProcessEnvironment(env);
        QEventLoop loop;
        QObject::connect(&p, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                         &QEventLoop::quit);
        QTimer::singleShot(60000, &loop, &QEventLoop::quit);
        p.start(VEXO_LOG_BINARY, QStringList{"tx"} + args);
        loop.exec();
        if (p.state() != QProcess::NotRunning) {
            p.kill();
            p.waitForFinished();
            return {};
        }
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
    }

    QJsonObject file(const QString &path, const QByteArray &content, const QString &destination,
                     const QString &flags)
    {
        m_server.setReply(path.toUtf8(), Reply::ok(content));
        return QJsonObject{
            {"idUpdate", 1},
            {"url", m_server.url(path)},
            {"hash", QString(QCryptographicHash::hash(content, QCryptographicHash::Sha1).toHex())},
            {"size", content.size()},
            {"destination", destination},
            {"flags", flags}};
    }

private slots:
    void init()
    {
        QVERIFY(m_server.isListening());
        m_dir.reset(new QTemporaryDir);
        m_drive = m_dir->path() + "/drive";
        m_db = m_dir->path() + "/data";
        QVERIFY(QDir().mkpath(m_db));
        // Spelled as the backup stores it: on the drive's FAT file system every spelling is the same file.
        QVERIFY(putFile(m_drive + "/config/config.jsn", R"({"hw":674,"version":"4.22"})"));
        QVERIFY(putFile(m_drive + "/update/fw.bin", "firmware v1"));
        QVERIFY(putFile(m_drive + "/Audio/beep.wav", "beep v1"));
        const QJsonArray general{
            QJsonObject{{"hw", 674},
                        {"update", QJsonArray{QJsonObject{{"id", 1},
                                                          {"releaseDate", "2026-03-04"},
                                                          {"name", QJsonObject{{"en", "System"}}},
                                                          {"variant", 2}}}}}};
        const QJsonArray files{file("/fw", "firmware v2", "update/fw.bin", "Standard"),
                               file("/beep", "beep v2", "Audio/beep.wav", "optional"),
                               file("/extra", "extra", "Audio/extra.wav", "optionalUnchecked"),
                               file("/notes", "notes", "update/notes.txt", "downloadOnly")};
        m_server.setReply(
            "/tx/update.json",
            Reply::ok(QJsonDocument(QJsonObject{{"general", general}, {"files", files}}).toJson()));
    }

    void refusals_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("service");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("says");
        QTest::newRow("list") << QStringList{"--list"} << true << 0
                              << "1\tSystem\tvariant 2\t2026-03-04\t4 files";
        QTest::newRow("neither") << QStringList() << true << 2 << "either --list or --update";
        QTest::newRow("both") << QStringList{"--list", "--update", "1"} << true << 2 << "either --list";
        QTest::newRow("unknown update") << QStringList{"--update", "9"} << true << 2 << "no update 9";
        QTest::newRow("no service") << QStringList{"--list"} << false << 1 << "VEXO_TX_UPDATE_URL";
    }

    void refusals()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, service);
        QFETCH(int, code);
        QFETCH(QString, says);
        const FileTree before = fileTree(m_drive);
        const Run r = run(QStringList{"update", m_drive} + args, service);
        QCOMPARE(r.code, code);
        QVERIFY2((r.out + r.err).contains(says), qPrintable(r.out + r.err));
        QCOMPARE(fileTree(m_drive), before);
    }

    void updateThenUndo()
    {
        const FileTree before = fileTree(m_drive);
        const Run r = run({"update", m_drive, "--update", "1", "--db", m_db});
        QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
        QVERIFY2(r.out.contains("Backup made: backup 1 "), qPrintable(r.out));
        const FileTree after = fileTree(m_drive);
        QCOMPARE(after.value("update/fw.bin"), QByteArray("firmware v2"));
        QCOMPARE(after.value("Audio/beep.wav"), QByteArray("beep v2"));
        QVERIFY(!after.contains("Audio/extra.wav"));  // offered unchecked
        QVERIFY(!after.contains("update/notes.txt")); // fetched only
        QFile notes(m_db + "/Downloads/1/notes.txt");
        QVERIFY(notes.open(QIODevice::ReadOnly));
        QCOMPARE(notes.readAll(), QByteArray("notes"));

        const Run undo = run({"restore", m_drive, "--backup", "1", "--db", m_db});
        QVERIFY2(undo.code == 0, qPrintable(undo.out + undo.err));
        QCOMPARE(fileTree(m_drive), before);
    }

    void droppedMidwayKeepsOldFile()
    {
        Reply cut = Reply::ok("beep v2");
        cut.fault = Reply::Cut;
        cut.faultAfter = 3;
        m_server.setReply("/beep", cut);
        const Run r = run({"update", m_drive, "--update", "1", "--skip-backup", "--data", m_db});
        QCOMPARE(r.code, 3);
        QVERIFY2(r.err.contains("Error downloading Audio/beep.wav"), qPrintable(r.err));
        QVERIFY(r.out.contains("No backup was made (skipped)."));
        const FileTree after = fileTree(m_drive);
        QCOMPARE(after.value("update/fw.bin"), QByteArray("firmware v2"));
        QCOMPARE(after.value("Audio/beep.wav"), QByteArray("beep v1"));
        QCOMPARE(after.size(), 3);
    }
};

QTEST_GUILESS_MAIN(tst_VexoLogTxUpdate)
#include "tst_VexoLogTxUpdate.moc"
