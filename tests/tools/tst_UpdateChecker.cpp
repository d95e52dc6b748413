#include "tools/UpdateChecker.h"

#include "tests/support/LocalHttpServer.h"

#include <QCryptographicHash>
#include <QtTest>

using Reply = LocalHttpServer::Reply;

namespace {
QByteArray updateXml(const QByteArray &packages)
{
    return "<?xml version=\"1.0\"?><Updates><ApplicationName>Vexo</ApplicationName>" + packages +
           "</Updates>";
}

QByteArray devUpdateXml(const QByteArray &date, const QByteArray &url, const QByteArray &sha1Element)
{
    return "<?xml version=\"1.0\"?><DevUpdate><Date>" + date + "</Date><Url>" + url + "</Url>" + sha1Element +
           "</DevUpdate>";
}

QByteArray sha1Of(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex();
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<absent>");
}

// Runs the check on the test's thread until the checker has nothing more to do.
bool runToEnd(UpdateChecker &checker)
{
    QSignalSpy done(&checker, &UpdateChecker::done);
    checker.run();
    return done.count() > 0 || done.wait(20000);
}
} // namespace

class tst_UpdateChecker : public QObject
{
    Q_OBJECT
private slots:
    void programVersion_data();
    void programVersion();
    void networkErrorsAreQuiet_data();
    void networkErrorsAreQuiet();
    void deviceDefinitions_data();
    void deviceDefinitions();
    void definitionsAddress_data();
    void definitionsAddress();
    void stopEndsTheThread();
};

void tst_UpdateChecker::programVersion_data()
{
    QTest::addColumn<QByteArray>("packages");
    QTest::addColumn<QString>("offered"); // empty: the check fails
    QTest::addColumn<bool>("newer");

    auto package = [](const QByteArray &version) {
        return "<PackageUpdate><Name>vexo</Name><Version>" + version + "</Version></PackageUpdate>";
    };
    QTest::newRow("same version") << updateXml(package("1.1.0")) << "1.1.0" << false;
    QTest::newRow("patch newer") << updateXml(package("1.1.1")) << "1.1.1" << true;
    QTest::newRow("two numbers newer") << updateXml(package("1.2")) << "1.2" << true;
    QTest::newRow("two numbers equal") << updateXml(package("1.1")) << "1.1" << false;
    QTest::newRow("numeric, not text") << updateXml(package("1.10.0")) << "1.10.0" << true;
    QTest::newRow("older") << updateXml(package("1.0.9")) << "1.0.9" << false;
    QTest::newRow("first package with a version")
        << updateXml("<Other><Version>9.9</Version></Other><PackageUpdate><Name>x</Name></PackageUpdate>" +
                     package("2.0") + package("3.0"))
        << "2.0" << true;
    QTest::newRow("no package") << updateXml("<Version>9.9</Version>") << QString() << false;
    QTest::newRow("not xml") << QByteArray("<Updates><PackageUpdate><Version>9") << QString() << false;
}

void tst_UpdateChecker::programVersion()
{
    QFETCH(QByteArray, packages);
    QFETCH(QString, offered);
    QFETCH(bool, newer);

    LocalHttpServer server;
    QTemporaryDir data;
    server.setReply("/svc/Update.xml", Reply::ok(packages, "text/xml"));
    // The definitions file is current, so only the program check has something to say.
    QFile local(QDir(data.path()).filePath(UpdateChecker::kDeviceUpdatesFile));
    QVERIFY(local.open(QIODevice::WriteOnly));
    local.close();
    server.setReply(
        "/svc/DevUpdate.xml",
        Reply::ok(devUpdateXml("2001-02-03 4:05:06", "db.sqlite", "<SHA1>00</SHA1>"), "text/xml"));

    UpdateChecker checker(QUrl(server.url("/svc/")), data.path());
    QSignalSpy checked(&checker, &UpdateChecker::programChecked);
    QSignalSpy failed(&checker, &UpdateChecker::checkFailed);
    QSignalSpy available(&checker, &UpdateChecker::deviceUpdateAvailable);
    QVERIFY(runToEnd(checker));
    if (offered.isEmpty()) {
        QCOMPARE(checked.count(), 0);
        QCOMPARE(failed.count(), 1);
    } else {
        QCOMPARE(checked.count(), 1);
        QCOMPARE(checked.at(0).at(0).toString(), offered);
        QCOMPARE(checked.at(0).at(1).toBool(), newer);
        QCOMPARE(failed.count(), 0);
    }
    QCOMPARE(available.count(), 0);
    QCOMPARE(server.requestCount("/svc/DevUpdate.xml"), 1);
}

void tst_UpdateChecker::networkErrorsAreQuiet_data()
{
    QTest::addColumn<bool>("configured");
    QTest::addColumn<int>("updateStatus");
    QTest::addColumn<int>("devUpdateStatus");
    QTest::addColumn<int>("failures");
    QTest::addColumn<int>("offers");

    QTest::newRow("no service") << false << 200 << 200 << 1 << 0;
    QTest::newRow("Update.xml missing") << true << 404 << 200 << 1 << 0;
    QTest::newRow("DevUpdate.xml missing") << true << 200 << 404 << 1 << 1;
    QTest::newRow("server error") << true << 500 << 500 << 1 << 0;
}

void tst_UpdateChecker::networkErrorsAreQuiet()
{
    QFETCH(bool, configured);
    QFETCH(int, updateStatus);
    QFETCH(int, devUpdateStatus);
    QFETCH(int, failures);
    QFETCH(int, offers);

    LocalHttpServer server;
    QTemporaryDir data;
    auto reply = [](int status, const QByteArray &body) {
        return status == 200 ? Reply::ok(body, "text/xml") : Reply::error(status, "<html>no</html>");
    };
    server.setReply("/Update.xml",
                    reply(updateStatus, updateXml("<PackageUpdate><Version>1.2</Version></PackageUpdate>")));
    server.setReply("/DevUpdate.xml", reply(devUpdateStatus, devUpdateXml("2001-02-03 4:05:06", "db", "")));

    UpdateChecker checker(configured ? QUrl(server.url("/")) : QUrl(), data.path());
    checker.setAutoDownload(true);
    QSignalSpy checked(&checker, &UpdateChecker::programChecked);
    QSignalSpy failed(&checker, &UpdateChecker::checkFailed);
    QSignalSpy progress(&checker, &UpdateChecker::progress);
    QVERIFY(runToEnd(checker));
    QCOMPARE(failed.count(), failures);
    QCOMPARE(checked.count(), offers);
    // A failed check is reported once and starts no download.
    QCOMPARE(progress.count(), 0);
    QCOMPARE(server.requestCount("/db"), 0);
    if (!configured)
        QCOMPARE(server.requestCount(), 0);
}

void tst_UpdateChecker::deviceDefinitions_data()
{
    QTest::addColumn<QString>("localFile");     // "", "older" or "newer" than the catalogue
    QTest::addColumn<QByteArrayList>("served"); // bodies of successive downloads
    QTest::addColumn<QByteArray>("sha1Element");
    QTest::addColumn<int>("downloads");
    QTest::addColumn<int>("lastProgress");
    QTest::addColumn<QByteArray>("finalContent");

    const QByteArray good = QByteArray("SQLite format 3").append(QByteArray(5000, 'd'));
    const QByteArray bad = QByteArray("SQLite format 3").append(QByteArray(5000, 'x'));
    const QByteArray sha = "<SHA1>" + sha1Of(good) + "</SHA1>";
    const QByteArray shaUpper = "<SHA1> " + sha1Of(good).toUpper() + "\n</SHA1>";
    const QByteArray old = "old definitions";

    QTest::newRow("missing, right hash") << "" << QByteArrayList{good} << sha << 1 << 100 << good;
    QTest::newRow("hash in capitals") << "" << QByteArrayList{good} << shaUpper << 1 << 100 << good;
    QTest::newRow("older, replaced") << "older" << QByteArrayList{good} << sha << 1 << 100 << good;
    QTest::newRow("newer, not fetched") << "newer" << QByteArrayList{good} << sha << 0 << -2 << old;
    QTest::newRow("wrong then right") << "" << QByteArrayList{bad, good} << sha << 2 << 100 << good;
    QTest::newRow("right on the last retry")
        << "older" << QByteArrayList{bad, bad, good} << sha << 3 << 100 << good;
    QTest::newRow("never right, old kept") << "older" << QByteArrayList{bad} << sha << 3 << -1 << old;
    QTest::newRow("no SHA1, missing")
        << "" << QByteArrayList{good} << QByteArray() << 3 << -1 << QByteArray("<absent>");
    QTest::newRow("no SHA1, old kept") << "older" << QByteArrayList{good} << QByteArray() << 3 << -1 << old;
}

void tst_UpdateChecker::deviceDefinitions()
{
    QFETCH(QString, localFile);
    QFETCH(QByteArrayList, served);
    QFETCH(QByteArray, sha1Element);
    QFETCH(int, downloads);
    QFETCH(int, lastProgress);
    QFETCH(QByteArray, finalContent);

    const QDateTime date(QDate(2024, 3, 7), QTime(9, 5, 1));
    LocalHttpServer server;
    QTemporaryDir data;
    const QString path = QDir(data.path()).filePath(UpdateChecker::kDeviceUpdatesFile);
    if (!localFile.isEmpty()) {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("old definitions");
        QVERIFY(f.flush());
        QVERIFY(f.setFileTime(localFile == "older" ? date.addDays(-1) : date.addSecs(60),
                              QFileDevice::FileModificationTime));
    }
    server.setReply(
        "/DevUpdate.xml",
        Reply::ok(devUpdateXml("2024-03-07 9:5:1", "files/defs.sqlite", sha1Element), "text/xml"));
    for (const QByteArray &body : served)
        server.addReply("/files/defs.sqlite", Reply::ok(body));

    UpdateChecker checker(QUrl(server.url("/")), data.path());
    checker.setCheckProgram(false);
    checker.setAutoDownload(true);
    QSignalSpy available(&checker, &UpdateChecker::deviceUpdateAvailable);
    QSignalSpy progress(&checker, &UpdateChecker::progress);
    QVERIFY(runToEnd(checker));

    QCOMPARE(server.requestCount("/files/defs.sqlite"), downloads);
    QCOMPARE(available.count(), downloads > 0 ? 1 : 0);
    if (downloads > 0) {
        QCOMPARE(available.at(0).at(0).toDateTime(), date);
        QCOMPARE(progress.last().at(0).toInt(), lastProgress);
    } else {
        QCOMPARE(progress.count(), 0);
    }
    QCOMPARE(readAll(path), finalContent);
    // Nothing half-done stays behind.
    QCOMPARE(QDir(data.path()).entryList(QDir::Files),
             QFileInfo::exists(path) ? QStringList{UpdateChecker::kDeviceUpdatesFile} : QStringList());
    if (lastProgress == 100) {
        // The next check finds the file current.
        QCOMPARE(QFileInfo(path).lastModified(), date);
        server.clearLog();
        QVERIFY(runToEnd(checker));
        QCOMPARE(server.requestCount("/files/defs.sqlite"), 0);
    }
}

void tst_UpdateChecker::definitionsAddress_data()
{
    QTest::addColumn<QString>("catalogue");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("expected"); // empty: refused

    QTest::newRow("relative") << "http://h/a/DevUpdate.xml"
                              << "db.sqlite"
                              << "http://h/a/db.sqlite";
    QTest::newRow("absolute https") << "http://h/DevUpdate.xml"
                                    << "https://cdn/x.db"
                                    << "https://cdn/x.db";
    QTest::newRow("https to http") << "https://h/DevUpdate.xml"
                                   << "http://h/x.db"
                                   << "";
    QTest::newRow("local file") << "http://h/DevUpdate.xml"
                                << "file:///etc/passwd"
                                << "";
    QTest::newRow("ftp") << "http://h/DevUpdate.xml"
                         << "ftp://h/x.db"
                         << "";
    QTest::newRow("empty") << "http://h/DevUpdate.xml"
                           << "  "
                           << "";
}

void tst_UpdateChecker::definitionsAddress()
{
    QFETCH(QString, catalogue);
    QFETCH(QString, url);
    QFETCH(QString, expected);
    const QUrl got = UpdateChecker::definitionsUrl(QUrl(catalogue), url);
    QCOMPARE(got.isValid() ? got.toString() : QString(), expected);
}

void tst_UpdateChecker::stopEndsTheThread()
{
    // A server that never answers must not hold up the program's exit nor leave a partial file.
    LocalHttpServer server;
    QTemporaryDir data;
    server.setReply("/DevUpdate.xml",
                    Reply::ok(devUpdateXml("2024-03-07 9:5:1", "defs", "<SHA1>00</SHA1>"), "text/xml"));
    Reply stall = Reply::ok(QByteArray(100000, 'z'));
    stall.fault = Reply::Stall;
    stall.faultAfter = 1000;
    server.setReply("/defs", stall);

    auto *checker = new UpdateChecker(QUrl(server.url("/")), data.path());
    checker->setCheckProgram(false);
    checker->setAutoDownload(true);
    UpdateCheckerThread thread(checker);
    QSignalSpy request(&server, &LocalHttpServer::requestReceived);
    thread.start();
    QTRY_VERIFY_WITH_TIMEOUT(server.requestCount("/defs") == 1, 20000);
    thread.stop();
    QVERIFY(!thread.isRunning());
    QCOMPARE(QDir(data.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
}

QTEST_GUILESS_MAIN(tst_UpdateChecker)
#include "tst_UpdateChecker.moc"
