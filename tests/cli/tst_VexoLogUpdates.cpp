// `vexo-log check-updates` against a local update service: what it says, its exit codes, and that a
// definitions file that does not verify never replaces the one in place.
#include "tests/support/LocalHttpServer.h"

#include <QCryptographicHash>
#include <QtTest>

using Reply = LocalHttpServer::Reply;

namespace {
struct Run
{
    int code = -1;
    QByteArray out;
    QByteArray err;
};

// The program runs while this thread serves its requests.
Run runCheck(const QStringList &args, const QString &serviceUrl)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("VEXO_UPDATE_URL"));
    if (!serviceUrl.isEmpty())
        env.insert(QStringLiteral("VEXO_UPDATE_URL"), serviceUrl);
    p.setProcessEnvironment(env);
    QEventLoop loop;
    QObject::connect(&p, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    p.start(QStringLiteral(VEXO_LOG_BINARY), QStringList{QStringLiteral("check-updates")} + args);
    loop.exec();
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished();
        return {};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}
} // namespace

class tst_VexoLogUpdates : public QObject
{
    Q_OBJECT
private slots:
    void checkUpdates_data();
    void checkUpdates();
};

void tst_VexoLogUpdates::checkUpdates_data()
{
    QTest::addColumn<bool>("configured");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<bool>("rightHash");
    QTest::addColumn<bool>("localCurrent");
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("says");
    QTest::addColumn<int>("downloads");
    QTest::addColumn<bool>("replaced");

    QTest::newRow("no service") << false << QStringList() << QByteArray("1.2") << true << false << 1
                                << QByteArray("VEXO_UPDATE_URL") << 0 << false;
    QTest::newRow("bad usage") << true << QStringList{"--dowload"} << QByteArray("1.2") << true << false << 2
                               << QByteArray("--dowload") << 0 << false;
    QTest::newRow("up to date") << true << QStringList{"--download"} << QByteArray("1.1.0") << true << true
                                << 0 << QByteArray("program: up to date") << 0 << false;
    QTest::newRow("offered, not fetched") << true << QStringList() << QByteArray("1.1.1") << true << false
                                          << 0 << QByteArray("version 1.1.1 is available") << 0 << false;
    QTest::newRow("fetched") << true << QStringList{"--download"} << QByteArray("1.1.0") << true << false << 0
                             << QByteArray("device definitions: saved to") << 1 << true;
    QTest::newRow("wrong hash, old kept") << true << QStringList{"--download"} << QByteArray("1.1.0") << false
                                          << false << 1 << QByteArray("old file is kept") << 3 << false;
}

void tst_VexoLogUpdates::checkUpdates()
{
    QFETCH(bool, configured);
    QFETCH(QStringList, args);
    QFETCH(QByteArray, version);
    QFETCH(bool, rightHash);
    QFETCH(bool, localCurrent);
    QFETCH(int, code);
    QFETCH(QByteArray, says);
    QFETCH(int, downloads);
    QFETCH(bool, replaced);

    const QByteArray definitions = QByteArray("SQLite format 3").append(QByteArray(10000, 'q'));
    const QByteArray sha1 = rightHash
                                ? QCryptographicHash::hash(definitions, QCryptographicHash::Sha1).toHex()
                                : QByteArray(40, 'a');
    LocalHttpServer server;
    server.setReply("/u/Update.xml", Reply::ok("<Updates><PackageUpdate><Version>" + version +
                                                   "</Version></PackageUpdate></Updates>",
                                               "text/xml"));
    server.setReply("/u/DevUpdate.xml",
                    Reply::ok("<DevUpdate><Date>2024-05-06 7:08:09</Date><Url>defs.db</Url>"
                              "<SHA1>" +
                                  sha1 + "</SHA1></DevUpdate>",
                              "text/xml"));
    server.setReply("/u/defs.db", Reply::ok(definitions));

    QTemporaryDir data;
    const QString local = QDir(data.path()).filePath("DeviceUpdates.sqlite");
    {
        QFile f(local);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("old");
        QVERIFY(f.flush());
        const QDateTime catalogue(QDate(2024, 5, 6), QTime(7, 8, 9));
        QVERIFY(f.setFileTime(localCurrent ? catalogue.addDays(1) : catalogue.addDays(-1),
                              QFileDevice::FileModificationTime));
    }

    const Run r =
        runCheck(args + QStringList{"--data", data.path()}, configured ? server.url("/u") : QString());
    QVERIFY2(r.code == code, r.out + r.err);
    QVERIFY2((r.out + r.err).contains(says), r.out + r.err);
    QCOMPARE(server.requestCount("/u/defs.db"), downloads);
    QFile f(local);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), replaced ? definitions : QByteArray("old"));
    QCOMPARE(QDir(data.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"DeviceUpdates.sqlite"});
}

QTEST_GUILESS_MAIN(tst_VexoLogUpdates)
#include "tst_VexoLogUpdates.moc"
