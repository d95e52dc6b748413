#include "cli/TxAppsCommand.h"

#include "tests/support/LocalHttpServer.h"

#include <QtTest>

#include <QCryptographicHash>

#include <cstdio>

using Reply = LocalHttpServer::Reply;

namespace {
QString sha1(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex());
}

QByteArray readAll(std::FILE *f)
{
    std::fflush(f);
    std::rewind(f);
    QByteArray bytes;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
        bytes.append(buffer, int(n));
    return bytes;
}

// Every path below root with each file's SHA1.
QStringList listing(const QString &root)
{
    QStringList all;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        QString entry = QDir(root).relativeFilePath(it.filePath());
        if (it.fileInfo().isFile()) {
            QFile f(it.filePath());
            entry += ' ' + (f.open(QIODevice::ReadOnly) ? sha1(f.readAll()) : QString("?"));
        }
        all << entry;
    }
    all.sort();
    return all;
}

struct Run
{
    int code;
    QString out;
    QString err;
};

// The command runs in this process: its event loop serves the local server too.
Run tx(const QStringList &args)
{
    std::FILE *out = std::tmpfile();
    std::FILE *err = std::tmpfile();
    Run r;
    r.code = TxAppsCommand::run(args, out, err);
    r.out = QString::fromUtf8(readAll(out));
    r.err = QString::fromUtf8(readAll(err));
    std::fclose(out);
    std::fclose(err);
    return r;
}
} // namespace

class tst_VexoLogTxApps : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void usage_data();
    void usage();
    void listInstallUninstall();
    void failedInstallExitCode_data();
    void failedInstallExitCode();

private:
    void serveList(const QByteArray &secondBody);

    LocalHttpServer m_server;
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_drive;
};

void tst_VexoLogTxApps::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_drive = m_dir->path();
    QVERIFY(QDir().mkpath(m_drive + "/Config"));
    QVERIFY(QDir().mkpath(m_drive + "/Apps"));
    QFile config(m_drive + "/Config/Config.jsn");
    QVERIFY(config.open(QIODevice::WriteOnly));
    config.write(R"({"hw": 674, "version": "1.2"})");
    config.close();
    qputenv("VEXO_TX_UPDATE_URL", m_server.url("/tx").toUtf8());
    serveList("b");
}

// App 9 "Foo" (for the connected HC-6, id 674) with two files, the second served with secondBody; app 10
// "Bar" for an HS-8 only.
void tst_VexoLogTxApps::serveList(const QByteArray &secondBody)
{
    m_server.setReply("/tx/a.lua", Reply::ok("a"));
    m_server.setReply("/tx/b.lua", Reply::ok(secondBody));
    m_server.setReply("/tx/apps.json", Reply::ok(QString(R"({"applications": [
        {"id": 9, "name": {"en": "Foo"}, "version": "1.0", "hw": [674, 675], "files": [
            {"url": "a.lua", "hash": "%1", "size": 1, "destination": "Apps/Foo/a.lua"},
            {"url": "b.lua", "hash": "%2", "size": 1, "destination": "Apps/Foo/lib/b.lua"}]},
        {"id": 10, "name": {"en": "Bar"}, "version": "2", "hw": [679], "files": []}]})")
                                                     .arg(sha1("a"), sha1("b"))
                                                     .toUtf8()));
}

void tst_VexoLogTxApps::usage_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::newRow("no root") << QStringList{"--list"} << 2;
    QTest::newRow("two actions") << QStringList{"ROOT", "--list", "--uninstall", "9"} << 2;
    QTest::newRow("install without id") << QStringList{"ROOT", "--install"} << 2;
    QTest::newRow("id not a number") << QStringList{"ROOT", "--install", "foo"} << 2;
    QTest::newRow("unknown option") << QStringList{"ROOT", "--force"} << 2;
    QTest::newRow("not a transmitter") << QStringList{"NOWHERE", "--list"} << 1;
    QTest::newRow("uninstall, not installed") << QStringList{"ROOT", "--uninstall", "9"} << 1;
    QTest::newRow("unknown app") << QStringList{"ROOT", "--install", "77"} << 1;
    QTest::newRow("incompatible app") << QStringList{"ROOT", "--install", "10"} << 1;
}

void tst_VexoLogTxApps::usage()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    args.replaceInStrings("ROOT", m_drive);
    args.replaceInStrings("NOWHERE", m_drive + "/nowhere");
    const QStringList before = listing(m_drive);
    const Run r = tx(args);
    QCOMPARE(r.code, code);
    QVERIFY(!r.err.isEmpty());
    QCOMPARE(listing(m_drive), before);
}

void tst_VexoLogTxApps::listInstallUninstall()
{
    const QStringList before = listing(m_drive);
    Run r = tx({m_drive, "--list"});
    QCOMPARE(r.code, 0);
    QVERIFY2(r.out.contains("9\tFoo\t1.0\t-\tyes\tno\n"), qPrintable(r.out));
    QVERIFY(r.out.contains("10\tBar\t2\t-\tno\tno\n"));

    r = tx({m_drive, "--install", "9"});
    QCOMPARE(r.code, 0);
    QVERIFY2(r.out.endsWith("Foo has been successfully installed.\n"), qPrintable(r.out + r.err));
    QVERIFY(QFileInfo::exists(m_drive + "/Apps/Foo/lib/b.lua"));
    QVERIFY(tx({m_drive, "--list"}).out.contains("9\tFoo\t1.0\t1.0\tyes\tno\n"));

    // A newer version in the list makes the app updatable.
    m_server.setReply("/tx/apps.json", Reply::ok(R"({"applications": [{"id": 9, "name": {"en": "Foo"},
        "version": "1.1", "hw": [674], "files": []}]})"));
    QVERIFY(tx({m_drive, "--list"}).out.contains("9\tFoo\t1.1\t1.0\tyes\tyes\n"));

    // Uninstalling needs no list.
    qunsetenv("VEXO_TX_UPDATE_URL");
    r = tx({m_drive, "--uninstall", "9"});
    QCOMPARE(r.code, 0);
    QVERIFY2(r.out.endsWith("Foo has been successfully uninstalled.\n"), qPrintable(r.out + r.err));
    QCOMPARE(listing(m_drive), before);
}

void tst_VexoLogTxApps::failedInstallExitCode_data()
{
    QTest::addColumn<bool>("firstBad");
    QTest::addColumn<int>("code");
    QTest::newRow("nothing written") << true << 1;
    QTest::newRow("first file written") << false << 3;
}

void tst_VexoLogTxApps::failedInstallExitCode()
{
    QFETCH(bool, firstBad);
    QFETCH(int, code);
    if (firstBad)
        m_server.setReply("/tx/a.lua", Reply::ok("x"));
    else
        m_server.setReply("/tx/b.lua", Reply::ok("x"));
    const Run r = tx({m_drive, "--install", "9"});
    QCOMPARE(r.code, code);
    QVERIFY2(r.out.contains("hash validation failed.") && r.out.endsWith("Failed to install Foo.\n"),
             qPrintable(r.out));
    QVERIFY(r.err.contains("Failed to install Foo."));
}

QTEST_GUILESS_MAIN(tst_VexoLogTxApps)
#include "tst_VexoLogTxApps.moc"
