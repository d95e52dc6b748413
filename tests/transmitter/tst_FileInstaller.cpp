#include "transmitter/FileInstaller.h"

#include "tests/support/LocalHttpServer.h"

#include <QtTest>

#include <QCryptographicHash>

using Reply = LocalHttpServer::Reply;
Q_DECLARE_METATYPE(LocalHttpServer::Reply)

namespace {
const QByteArray NewContent = "new firmware file body";
const QByteArray OldContent = "the file from before";

QString sha1(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex());
}

QByteArray contentOf(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

void writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(data), data.size());
}

// Every path below root, folders with a trailing "/".
QStringList listing(const QString &root)
{
    QStringList all;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        all << QDir(root).relativeFilePath(it.filePath()) + (it.fileInfo().isDir() ? "/" : "");
    }
    all.sort();
    return all;
}
} // namespace

class TestFileInstaller : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void hostileDestinationRefused_data();
    void hostileDestinationRefused();
    void linkOnDriveRefused();
    void folderClash();
    void abortKeepsOldFile();
    void outcome_data();
    void outcome();

private:
    // Runs one install to its end; returns the result and sets *message.
    FileInstaller::Result run(FileInstaller &installer, const FileInstaller::Item &item, QString *message);

    LocalHttpServer m_server;
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_root;
};

void TestFileInstaller::init()
{
    QVERIFY(m_server.isListening());
    m_server.clearLog();
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_root = m_dir->path() + "/drive";
    QVERIFY(QDir().mkpath(m_root));
}

FileInstaller::Result TestFileInstaller::run(FileInstaller &installer, const FileInstaller::Item &item,
                                             QString *message)
{
    QSignalSpy finished(&installer, &FileInstaller::finished);
    installer.install(item);
    if (!finished.wait(15000) || finished.size() != 1) {
        *message = "<no finished signal>";
        return FileInstaller::Failed;
    }
    *message = finished.first().at(1).toString();
    return finished.first().at(0).value<FileInstaller::Result>();
}

void TestFileInstaller::hostileDestinationRefused_data()
{
    QTest::addColumn<QString>("destination");
    QTest::newRow("absolute") << "/etc/x.lua";
    QTest::newRow("drive letter") << "C:/x.lua";
    QTest::newRow("backslash") << "apps\\x.lua";
    QTest::newRow("parent") << "apps/../../x.lua";
    QTest::newRow("dot") << "apps/./x.lua";
    QTest::newRow("empty segment") << "apps//x.lua";
    QTest::newRow("control char") << QString("apps/x\x01.lua");
    QTest::newRow("FAT-illegal") << "apps/con?.lua";
    QTest::newRow("device name") << "apps/con.lua";
    QTest::newRow("trailing dot") << "apps/x.";
    QTest::newRow("trailing blank") << "apps /x.lua";
    QTest::newRow("empty") << "";
}

void TestFileInstaller::hostileDestinationRefused()
{
    QFETCH(QString, destination);
    m_server.setReply("/f", Reply::ok(NewContent));
    FileInstaller installer;
    installer.setDriveRoot(m_root);
    QString message;
    const auto result = run(
        installer, {QUrl(m_server.url("/f")), sha1(NewContent), NewContent.size(), destination}, &message);
    QCOMPARE(result, FileInstaller::Refused);
    QVERIFY2(message.contains(destination), qPrintable(message));
    QCOMPARE(m_server.requestCount(), 0);
    // Nothing written anywhere in the temporary folder, inside the drive or beside it.
    QCOMPARE(listing(m_dir->path()), QStringList{"drive/"});
}

void TestFileInstaller::linkOnDriveRefused()
{
    // A folder on the drive that is a link to elsewhere must not carry the write out of the drive.
    const QString outside = m_dir->path() + "/outside";
    QVERIFY(QDir().mkpath(outside));
    QVERIFY(QFile::link(outside, m_root + "/apps"));
    m_server.setReply("/f", Reply::ok(NewContent));
    FileInstaller installer;
    installer.setDriveRoot(m_root);
    QString message;
    QCOMPARE(run(installer, {QUrl(m_server.url("/f")), sha1(NewContent), NewContent.size(), "apps/x.lua"},
                 &message),
             FileInstaller::Refused);
    QCOMPARE(m_server.requestCount(), 0);
    QCOMPARE(listing(outside), QStringList());
}

void TestFileInstaller::abortKeepsOldFile()
{
    const QString target = m_root + "/apps/x.lua";
    writeFile(target, OldContent);
    Reply stall = Reply::ok(NewContent);
    stall.fault = Reply::Stall;
    stall.faultAfter = 5;
    m_server.setReply("/f", stall);
    FileInstaller installer;
    installer.setDriveRoot(m_root);
    QSignalSpy finished(&installer, &FileInstaller::finished);
    QSignalSpy progress(&installer, &FileInstaller::downloadProgress);
    installer.install({QUrl(m_server.url("/f")), sha1(NewContent), NewContent.size(), "apps/x.lua"});
    QVERIFY(progress.wait(15000)); // the first bytes are on the drive
    QVERIFY(finished.isEmpty());
    installer.abort();
    QVERIFY(finished.wait(15000));
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.first().at(0).value<FileInstaller::Result>(), FileInstaller::Failed);
    QCOMPARE(contentOf(target), OldContent);
    QCOMPARE(listing(m_root), (QStringList{"apps/", "apps/x.lua"}));
}

void TestFileInstaller::folderClash()
{
    QVERIFY(QDir().mkpath(m_root + "/apps/x.lua"));
    m_server.setReply("/f", Reply::ok(NewContent));
    FileInstaller installer;
    installer.setDriveRoot(m_root);
    QString message;
    QCOMPARE(run(installer, {QUrl(m_server.url("/f")), sha1(NewContent), NewContent.size(), "apps/x.lua"},
                 &message),
             FileInstaller::Failed);
    QCOMPARE(message,
             QString("A folder with the same name as the file \"apps/x.lua\" exist. This folder can't be "
                     "removed automatically. Please remove the folder manually and try again later."));
    QCOMPARE(m_server.requestCount(), 0);
    QCOMPARE(listing(m_root), (QStringList{"apps/", "apps/x.lua/"}));
}

void TestFileInstaller::outcome_data()
{
    QTest::addColumn<QByteArray>("old"); // on the drive before; empty: no file
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<bool>("failBeforeReplace");
    QTest::addColumn<bool>("appManagerText");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message"); // exact, or a prefix when ending in "*"
    QTest::addColumn<int>("requests");
    QTest::addColumn<QByteArray>("after"); // the file afterwards

    const QString wrongBody = QByteArray(NewContent).replace("new", "bad");
    Reply cut = Reply::ok(NewContent);
    cut.fault = Reply::Cut;
    cut.faultAfter = 5;
    const QByteArray none = "<missing>";

    QTest::newRow("fresh install") << QByteArray() << Reply::ok(NewContent) << false << false
                                   << int(FileInstaller::Installed) << "File \"apps/x.lua\" installed." << 1
                                   << NewContent;
    QTest::newRow("replaces old") << OldContent << Reply::ok(NewContent) << false << false
                                  << int(FileInstaller::Installed) << "File \"apps/x.lua\" installed." << 1
                                  << NewContent;
    QTest::newRow("up to date") << NewContent << Reply::ok(NewContent) << false << false
                                << int(FileInstaller::UpToDate)
                                << "File \"apps/x.lua\" already up-to-date and valid." << 0 << NewContent;
    QTest::newRow("wrong hash")
        << OldContent << Reply::ok(wrongBody.toLatin1()) << false << false << int(FileInstaller::Failed)
        << QString("SHA1 for file \"apps/x.lua\" does not match! Expected: %1, computed: %2")
               .arg(sha1(NewContent), sha1(wrongBody.toLatin1()))
        << 1 << OldContent;
    QTest::newRow("wrong hash, app manager")
        << QByteArray() << Reply::ok(wrongBody.toLatin1()) << false << true << int(FileInstaller::Failed)
        << "File \"apps/x.lua\" hash validation failed." << 1 << none;
    QTest::newRow("truncated body") << OldContent << cut << false << false << int(FileInstaller::Failed)
                                    << "Error downloading apps/x.lua: *" << 1 << OldContent;
    QTest::newRow("404") << OldContent << Reply::error(404, "gone") << false << false
                         << int(FileInstaller::Failed) << "Error downloading apps/x.lua: *" << 1
                         << OldContent;
    QTest::newRow("pulled before rename")
        << OldContent << Reply::ok(NewContent) << true << false << int(FileInstaller::Failed)
        << "Error downloading apps/x.lua: *" << 1 << OldContent;
    QTest::newRow("pulled before rename, no old file")
        << QByteArray() << Reply::ok(NewContent) << true << false << int(FileInstaller::Failed)
        << "Error downloading apps/x.lua: *" << 1 << none;
}

void TestFileInstaller::outcome()
{
    QFETCH(QByteArray, old);
    QFETCH(Reply, reply);
    QFETCH(bool, failBeforeReplace);
    QFETCH(bool, appManagerText);
    QFETCH(int, result);
    QFETCH(QString, message);
    QFETCH(int, requests);
    QFETCH(QByteArray, after);

    const QString target = m_root + "/apps/x.lua";
    if (!old.isEmpty())
        writeFile(target, old);
    m_server.setReply("/f", reply);
    FileInstaller installer;
    installer.setDriveRoot(m_root);
    installer.setFailBeforeReplace(failBeforeReplace);
    if (appManagerText)
        installer.setHashText(FileInstaller::AppManagerHashText);
    QString got;
    const auto outcome =
        run(installer, {QUrl(m_server.url("/f")), sha1(NewContent), NewContent.size(), "apps/x.lua"}, &got);
    QCOMPARE(int(outcome), result);
    if (message.endsWith('*'))
        QVERIFY2(got.startsWith(message.chopped(1)) && got.size() > message.size(), qPrintable(got));
    else
        QCOMPARE(got, message);
    QCOMPARE(m_server.requestCount("/f"), requests);
    QCOMPARE(contentOf(target), after);
    // Only the file (or nothing): no temporary download is left on the drive.
    QCOMPARE(listing(m_root),
             after == "<missing>" ? QStringList{"apps/"} : (QStringList{"apps/", "apps/x.lua"}));
}

QTEST_GUILESS_MAIN(TestFileInstaller)
#include "tst_FileInstaller.moc"
