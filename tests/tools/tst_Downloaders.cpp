#include "tools/FileDownloader.h"
#include "tools/SaveFileDownloader.h"
#include "tools/Sha1Check.h"

#include "tests/support/LocalHttpServer.h"

#include <QtTest>

#include <QTcpServer>
#include <QTcpSocket>

using Reply = LocalHttpServer::Reply;
Q_DECLARE_METATYPE(LocalHttpServer::Reply)

namespace {
// SHA1("abc"), the first example of FIPS 180.
const QString AbcSha1 = QStringLiteral("a9993e364706816aba3e25717850c26c9cd0d89d");
const QByteArray OldContent = "the file from before";

bool runToEnd(AbstractDownloader &downloader, const QUrl &url)
{
    QSignalSpy finished(&downloader, &AbstractDownloader::finished);
    downloader.download(url);
    if (!finished.wait(15000) || finished.size() != 1)
        return false;
    return finished.first().first().toBool();
}

QByteArray contentOf(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

Reply withFault(const QByteArray &body, Reply::Fault fault, int after = 0, qint64 flood = 0)
{
    Reply r = Reply::ok(body);
    r.fault = fault;
    r.faultAfter = after;
    r.floodBytes = flood;
    return r;
}
} // namespace

class TestDownloaders : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void saveOutcome_data();
    void saveOutcome();
    void redirectRule_data();
    void redirectRule();
    void silenceRestartsOnEveryByte();
    void cancelKeepsOldFile();
    void unwritableTarget_data();
    void unwritableTarget();
    void memoryCapAndRetryFromFinished();
    void sha1OfFiles();

private:
    LocalHttpServer m_server;
    QTemporaryDir m_dir;
};

void TestDownloaders::init()
{
    QVERIFY(m_server.isListening());
    QVERIFY(m_dir.isValid());
}

void TestDownloaders::saveOutcome_data()
{
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<qint64>("maxSize");
    QTest::addColumn<qint64>("expectedSize");
    QTest::addColumn<QString>("sha1");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QByteArray>("saved"); // the file afterwards

    const QByteArray body = QByteArray("0123456789").repeated(1000); // several 4096-byte pieces
    const qint64 big = qint64(1) << 30;
    QTest::newRow("whole body") << Reply::ok(body) << big << qint64(-1) << QString() << true << body;
    QTest::newRow("empty body") << Reply::ok(QByteArray()) << big << qint64(-1) << QString() << true
                                << QByteArray();
    QTest::newRow("right hash, other case and blanks")
        << Reply::ok("abc") << big << qint64(3) << " " + AbcSha1.toUpper() + "\n"
        << true << QByteArray("abc");
    QTest::newRow("wrong hash") << Reply::ok("abd") << big << qint64(-1) << AbcSha1 << false << OldContent;
    QTest::newRow("hash not hex") << Reply::ok("abc") << big << qint64(-1) << AbcSha1.left(39) + "g" << false
                                  << OldContent;
    QTest::newRow("404") << Reply::error(404, "<html>gone</html>") << big << qint64(-1) << QString() << false
                         << OldContent;
    QTest::newRow("500 with the right size")
        << Reply::error(500, "abc") << big << qint64(3) << QString() << false << OldContent;
    QTest::newRow("truncated body") << withFault(body, Reply::Cut, 5000) << big << qint64(-1) << QString()
                                    << false << OldContent;
    QTest::newRow("shorter than expected")
        << Reply::ok(body) << big << qint64(body.size() + 1) << QString() << false << OldContent;
    QTest::newRow("longer than expected")
        << Reply::ok(body) << big << qint64(body.size() - 1) << QString() << false << OldContent;
    QTest::newRow("announced length over the cap")
        << withFault("x", Reply::Flood, 0, 50 << 20) << qint64(1 << 20) << qint64(-1) << QString() << false
        << OldContent;
    QTest::newRow("unannounced body over the cap")
        << withFault("x", Reply::FloodUnsized, 0, 50 << 20) << qint64(1 << 20) << qint64(-1) << QString()
        << false << OldContent;
    QTest::newRow("unannounced body within the cap")
        << withFault("y", Reply::FloodUnsized, 0, 100000) << qint64(100000) << qint64(-1) << QString() << true
        << QByteArray(100000, 'y');
    QTest::newRow("relative redirect") << Reply::redirect("/file") << big << qint64(-1) << QString() << true
                                       << QByteArray("redirected body");
    Reply moved = Reply::redirect("/file", 301);
    moved.body = "<html>Moved to <a href=\"/file\">/file</a></html>";
    QTest::newRow("redirect with a page")
        << moved << big << qint64(15) << QString() << true << QByteArray("redirected body");
    QTest::newRow("redirect to file:")
        << Reply::redirect("file:///etc/hostname") << big << qint64(-1) << QString() << false << OldContent;
    QTest::newRow("redirect loop") << Reply::redirect("/start") << big << qint64(-1) << QString() << false
                                   << OldContent;
}

void TestDownloaders::saveOutcome()
{
    QFETCH(Reply, reply);
    QFETCH(qint64, maxSize);
    QFETCH(qint64, expectedSize);
    QFETCH(QString, sha1);
    QFETCH(bool, ok);
    QFETCH(QByteArray, saved);

    m_server.setReply("/start", reply);
    m_server.setReply("/file", Reply::ok("redirected body"));
    const QString target = m_dir.filePath("Devices.sqlite");
    QFile old(target);
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write(OldContent) == OldContent.size());
    old.close();

    SaveFileDownloader downloader;
    downloader.setFileName(target);
    downloader.setMaxSize(maxSize);
    downloader.setExpectedSize(expectedSize);
    downloader.setExpectedSha1(sha1);
    QVERIFY2(runToEnd(downloader, QUrl(m_server.url("/start"))) == ok, qPrintable(downloader.errorString()));
    QCOMPARE(downloader.errorString().isEmpty(), ok);
    QCOMPARE(contentOf(target), saved);
    QVERIFY(!QFile::exists(target + ".jsdownload"));
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList{"Devices.sqlite"});
    QCOMPARE(downloader.hashMismatch(), QTest::currentDataTag() == QByteArray("wrong hash") ||
                                            QTest::currentDataTag() == QByteArray("hash not hex"));
    // The cap stops a flood early instead of reading it all.
    QVERIFY(downloader.bytesReceived() <= qMax<qint64>(maxSize, 0) + 4096);
}

void TestDownloaders::redirectRule_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("https to https") << "https://a.example/x"
                                    << "https://b.example/y" << true;
    QTest::newRow("http to https") << "http://a.example/x"
                                   << "https://a.example/x" << true;
    QTest::newRow("http to http") << "http://a.example/x"
                                  << "http://b.example/y" << true;
    QTest::newRow("https to http") << "https://a.example/x"
                                   << "http://a.example/x" << false;
    QTest::newRow("HTTPS to Http") << "HTTPS://a.example/x"
                                   << "Http://a.example/x" << false;
    QTest::newRow("to file") << "http://a.example/x"
                             << "file:///etc/passwd" << false;
    QTest::newRow("to ftp") << "http://a.example/x"
                            << "ftp://a.example/x" << false;
    QTest::newRow("to data") << "https://a.example/x"
                             << "data:text/plain,hi" << false;
    QTest::newRow("no host") << "https://a.example/x"
                             << "https:///x" << false;
}

void TestDownloaders::redirectRule()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(bool, allowed);
    QCOMPARE(AbstractDownloader::redirectAllowed(QUrl(from), QUrl(to)), allowed);
}

// A server that sends one byte every 50 ms: 20 bytes take a second, five times the silence limit, and
// still arrive, because the limit is on silence and not on the whole download.
void TestDownloaders::silenceRestartsOnEveryByte()
{
    QTcpServer slow;
    QVERIFY(slow.listen(QHostAddress::LocalHost));
    connect(&slow, &QTcpServer::newConnection, this, [&slow] {
        QTcpSocket *socket = slow.nextPendingConnection();
        socket->setParent(&slow);
        auto *tick = new QTimer(socket);
        connect(socket, &QTcpSocket::readyRead, socket, [socket, tick] {
            socket->readAll();
            if (tick->isActive())
                return;
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 20\r\nConnection: close\r\n\r\n");
            tick->start(50);
        });
        connect(tick, &QTimer::timeout, socket, [socket, tick, sent = 0]() mutable {
            socket->write("z");
            if (++sent == 20) {
                tick->stop();
                socket->disconnectFromHost();
            }
        });
    });
    FileDownloader downloader;
    downloader.setSilenceLimit(200);
    QVERIFY2(runToEnd(downloader, QUrl(QString("http://127.0.0.1:%1/slow").arg(slow.serverPort()))),
             qPrintable(downloader.errorString()));
    QCOMPARE(downloader.data(), QByteArray(20, 'z'));

    // The same limit ends a server that goes quiet.
    m_server.setReply("/stall", withFault("abcdef", Reply::Stall, 3));
    QTest::ignoreMessage(QtDebugMsg, "Aborting an active network reply!");
    QVERIFY(!runToEnd(downloader, QUrl(m_server.url("/stall"))));
    QVERIFY(downloader.data().isEmpty());
}

void TestDownloaders::cancelKeepsOldFile()
{
    const QString target = m_dir.filePath("keep.bin");
    QFile old(target);
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write(OldContent) == OldContent.size());
    old.close();
    m_server.setReply("/stall", withFault(QByteArray(10000, 'n'), Reply::Stall, 5000));

    SaveFileDownloader downloader;
    downloader.setFileName(target);
    QSignalSpy finished(&downloader, &AbstractDownloader::finished);
    QSignalSpy progress(&downloader, &AbstractDownloader::downloadProgress);
    downloader.download(QUrl(m_server.url("/stall")));
    QTRY_VERIFY(downloader.bytesReceived() == 5000);
    QVERIFY(QFile::exists(target + ".jsdownload"));
    QVERIFY(!progress.isEmpty());
    QTest::ignoreMessage(QtDebugMsg, "Aborting an active network reply!");
    downloader.abort();
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.first().first().toBool(), false);
    QVERIFY(!downloader.isRunning());
    QCOMPARE(contentOf(target), OldContent);
    QVERIFY(!QFile::exists(target + ".jsdownload"));
    downloader.abort(); // nothing running: no second report
    QTest::qWait(50);
    QCOMPARE(finished.size(), 1);
}

void TestDownloaders::unwritableTarget_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("renameFails");
    // A regular file where a folder should be: the temporary file cannot even be created.
    QTest::newRow("under a file") << "plain/out.bin" << false;
    // A folder with content where the file should go: written, then the rename fails.
    QTest::newRow("onto a folder") << "folder" << true;
}

void TestDownloaders::unwritableTarget()
{
    QFETCH(QString, target);
    QFETCH(bool, renameFails);
    QFile plain(m_dir.filePath("plain"));
    QVERIFY(plain.open(QIODevice::WriteOnly));
    plain.close();
    QVERIFY(QDir(m_dir.path()).mkpath("folder/inside"));
    m_server.setReply("/f", Reply::ok("data"));

    const QString path = m_dir.filePath(target);
    SaveFileDownloader downloader;
    downloader.setFileName(path);
    if (renameFails)
        QTest::ignoreMessage(QtDebugMsg,
                             qPrintable(QString("Unable to rename file '%1.jsdownload'!").arg(path)));
    QVERIFY(!runToEnd(downloader, QUrl(m_server.url("/f"))));
    QCOMPARE(downloader.errorString(), QString("Unable to save output file '%1'.").arg(path));
    QVERIFY(!QFile::exists(path + ".jsdownload"));
    QVERIFY(QFileInfo(m_dir.filePath("folder/inside")).isDir());
}

// The update check downloads again from the slot that learns of a bad hash: the next download must run
// cleanly from there, and the in-memory downloader refuses more than its default cap.
void TestDownloaders::memoryCapAndRetryFromFinished()
{
    m_server.addReply("/retry", Reply::ok("abd"));
    m_server.addReply("/retry", Reply::ok("abc"));
    FileDownloader downloader;
    downloader.setExpectedSha1(AbcSha1);
    QList<bool> results;
    connect(&downloader, &AbstractDownloader::finished, this, [&](bool ok) {
        results << ok;
        if (!ok && downloader.hashMismatch())
            downloader.download(QUrl(m_server.url("/retry")));
    });
    downloader.download(QUrl(m_server.url("/retry")));
    QTRY_COMPARE(results.size(), 2);
    QCOMPARE(results, (QList<bool>{false, true}));
    QCOMPARE(downloader.data(), QByteArray("abc"));
    QCOMPARE(Sha1Check::matches(downloader.sha1Hex(), AbcSha1), true);
    disconnect(&downloader, nullptr, this, nullptr);

    downloader.setExpectedSha1(QString());
    m_server.setReply("/big", withFault("b", Reply::FloodUnsized, 0, FileDownloader::DefaultMaxSize + 1));
    QVERIFY(!runToEnd(downloader, QUrl(m_server.url("/big"))));
    QVERIFY(downloader.data().isEmpty());
    QVERIFY(!runToEnd(downloader, QUrl("file:///etc/hostname")));
}

// The two examples of FIPS 180: the second spans many read pieces.
void TestDownloaders::sha1OfFiles()
{
    const QString small = m_dir.filePath("abc"), large = m_dir.filePath("million");
    QFile f(small);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write("abc") == 3);
    f.close();
    f.setFileName(large);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(QByteArray(1000000, 'a')) == 1000000);
    f.close();
    QCOMPARE(Sha1Check::fileHex(small), AbcSha1);
    QVERIFY(Sha1Check::fileMatches(large, "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F"));
    QString error;
    QVERIFY(Sha1Check::fileHex(m_dir.filePath("missing"), &error).isEmpty());
    QVERIFY(!error.isEmpty());
    QVERIFY(!Sha1Check::fileMatches(small, QString()));
}

QTEST_MAIN(TestDownloaders)
#include "tst_Downloaders.moc"
