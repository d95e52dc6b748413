#include "transmitter/AppInstaller.h"

#include "tests/support/LocalHttpServer.h"

#include <QtTest>

#include <QCryptographicHash>

using Reply = LocalHttpServer::Reply;

namespace {
QString sha1(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex());
}

void writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(data), data.size());
}

QByteArray contentOf(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// Every path below root with the SHA1 of each file ("/" for a folder): equal listings, equal drives.
QStringList listing(const QString &root)
{
    QStringList all;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        all << QDir(root).relativeFilePath(it.filePath()) + ' ' +
                   (it.fileInfo().isDir() ? QString("/") : sha1(contentOf(it.filePath())));
    }
    all.sort();
    return all;
}

// Files as "destination=content"; the pilot's own files on the drive before the install.
using Files = QMap<QString, QByteArray>;
} // namespace

class TestAppInstaller : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void installThenUninstallRestoresDrive_data();
    void installThenUninstallRestoresDrive();
    void editedFileKeptOnUninstall();
    void updateRemovesDroppedFiles();
    void failedInstall_data();
    void failedInstall();
    void hostileManifestIgnored();

private:
    // The app "Foo" with these files, each served by the local server.
    TxCatalogue::App app(const Files &files, const QString &version = "1.0");
    // Runs one operation to its end; returns whether it succeeded and collects the log.
    bool run(AppInstaller &installer);

    LocalHttpServer m_server;
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_root;
    QStringList m_log;
    QStringList m_status;
    QStringList m_errors;
    int m_served = 0;
};

void TestAppInstaller::init()
{
    QVERIFY(m_server.isListening());
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_root = m_dir->path() + "/drive";
    // A transmitter drive has its own files and an "Apps" folder.
    writeFile(m_root + "/Config/Config.jsn", "{\"hw\": 3}");
    QVERIFY(QDir().mkpath(m_root + "/Apps"));
}

TxCatalogue::App TestAppInstaller::app(const Files &files, const QString &version)
{
    TxCatalogue::App a;
    a.id = 7;
    a.name = "Foo";
    a.version = version;
    a.hw = {3};
    for (auto it = files.begin(); it != files.end(); ++it) {
        const QByteArray path = "/f" + QByteArray::number(++m_served);
        m_server.setReply(path, Reply::ok(it.value()));
        TxCatalogue::FileEntry f;
        f.url = QUrl(m_server.url(path));
        f.hash = sha1(it.value());
        f.size = it.value().size();
        f.destination = it.key();
        a.files << f;
    }
    return a;
}

bool TestAppInstaller::run(AppInstaller &installer)
{
    m_log.clear();
    m_status.clear();
    m_errors.clear();
    connect(&installer, &AppInstaller::logLine, this, [this](const QString &t) { m_log << t; });
    connect(&installer, &AppInstaller::status, this, [this](const QString &t) { m_status << t; });
    connect(&installer, &AppInstaller::error, this,
            [this](const QString &title, const QString &text) { m_errors << title + '|' + text; });
    QSignalSpy finished(&installer, &AppInstaller::finished);
    installer.doWork();
    if (finished.isEmpty() && !finished.wait(15000))
        return false;
    if (finished.size() != 1)
        return false;
    return finished.first().at(0).toBool();
}

void TestAppInstaller::installThenUninstallRestoresDrive_data()
{
    QTest::addColumn<Files>("before");
    QTest::addColumn<Files>("files");

    const Files app{{"Apps/Foo/main.lua", "-- foo"},
                    {"Apps/Foo/img/big/logo.png", "png bytes"},
                    {"Scripts/Foo/foo.lc", "bytecode"}};
    QTest::newRow("fresh folders") << Files() << app;
    QTest::newRow("folder shared with the pilot's file") << Files{{"Apps/Foo/notes.txt", "mine"}} << app;
    // The same bytes were there before the app came: they stay the pilot's.
    QTest::newRow("identical file already there") << Files{{"Apps/Foo/main.lua", "-- foo"}} << app;
}

void TestAppInstaller::installThenUninstallRestoresDrive()
{
    QFETCH(Files, before);
    QFETCH(Files, files);
    for (auto it = before.begin(); it != before.end(); ++it)
        writeFile(m_root + '/' + it.key(), it.value());
    const QStringList original = listing(m_root);

    const TxCatalogue::App foo = app(files);
    AppInstaller install(AppInstaller::Install, m_root, foo);
    QVERIFY2(run(install), qPrintable(m_log.join('\n')));
    QCOMPARE(m_status.first(), QString("Installing: Foo."));
    QCOMPARE(m_log.first(), QString("Install: Foo."));
    QCOMPARE(m_log.last(), QString("Foo has been successfully installed."));
    for (auto it = files.begin(); it != files.end(); ++it)
        QCOMPARE(contentOf(m_root + '/' + it.key()), it.value());
    AppManifest manifest;
    QVERIFY(AppManifest::read(m_root, 7, &manifest));
    QCOMPARE(manifest.version, QString("1.0"));
    QCOMPARE(manifest.files.size(), files.size());

    AppInstaller uninstall(AppInstaller::Uninstall, m_root, foo);
    QVERIFY2(run(uninstall), qPrintable(m_log.join('\n')));
    QCOMPARE(m_status.first(), QString("Removing: Foo."));
    QCOMPARE(m_log.first(), QString("Uninstall: Foo."));
    QVERIFY(m_log.contains("Removing residuals..."));
    QCOMPARE(m_log.last(), QString("Foo has been successfully uninstalled."));
    QCOMPARE(listing(m_root), original);
}

void TestAppInstaller::editedFileKeptOnUninstall()
{
    const TxCatalogue::App foo = app({{"Apps/Foo/main.lua", "-- foo"}, {"Apps/Foo/lib/util.lua", "-- util"}});
    AppInstaller install(AppInstaller::Install, m_root, foo);
    QVERIFY(run(install));
    writeFile(m_root + "/Apps/Foo/main.lua", "-- foo, tuned by the pilot");

    AppInstaller uninstall(AppInstaller::Uninstall, m_root, foo);
    QVERIFY2(run(uninstall), qPrintable(m_log.join('\n')));
    QCOMPARE(uninstall.keptFiles(), QStringList{"Apps/Foo/main.lua"});
    QVERIFY(m_log.filter("Apps/Foo/main.lua").size() == 1);
    QCOMPARE(listing(m_root),
             (QStringList{"Apps /", "Apps/Foo /", "Apps/Foo/main.lua " + sha1("-- foo, tuned by the pilot"),
                          "Config /", "Config/Config.jsn " + sha1("{\"hw\": 3}")}));
}

void TestAppInstaller::updateRemovesDroppedFiles()
{
    const QStringList original = listing(m_root);
    AppInstaller v1(
        AppInstaller::Install, m_root,
        app({{"Apps/Foo/main.lua", "v1"}, {"Apps/Foo/old/gone.lua", "old"}, {"Apps/Foo/same.lua", "s"}}));
    QVERIFY(run(v1));

    const TxCatalogue::App foo2 =
        app({{"Apps/Foo/main.lua", "v2"}, {"Apps/Foo/new.lua", "new"}, {"Apps/Foo/same.lua", "s"}}, "2.0");
    AppInstaller v2(AppInstaller::Install, m_root, foo2);
    QVERIFY2(run(v2), qPrintable(m_log.join('\n')));
    QCOMPARE(m_status.first(), QString("Updating: Foo."));
    QCOMPARE(m_log.first(), QString("Update: Foo."));
    QVERIFY(m_log.contains("File \"Apps/Foo/same.lua\" already up-to-date and valid."));
    QVERIFY(!QFileInfo::exists(m_root + "/Apps/Foo/old")); // its file dropped, the folder left empty
    QCOMPARE(contentOf(m_root + "/Apps/Foo/main.lua"), QByteArray("v2"));
    QCOMPARE(contentOf(m_root + "/Apps/Foo/new.lua"), QByteArray("new"));
    AppManifest manifest;
    QVERIFY(AppManifest::read(m_root, 7, &manifest));
    QCOMPARE(manifest.version, QString("2.0"));
    QCOMPARE(manifest.files.size(), 3);

    AppInstaller uninstall(AppInstaller::Uninstall, m_root, foo2);
    QVERIFY(run(uninstall));
    QCOMPARE(listing(m_root), original);
}

void TestAppInstaller::failedInstall_data()
{
    QTest::addColumn<int>("badFile"); // index of the file served with other bytes than its hash
    QTest::addColumn<bool>("manifestLeft");
    QTest::newRow("first file") << 0 << false;
    // The first file is on the drive: the manifest lists it so it can be uninstalled.
    QTest::newRow("second file") << 1 << true;
}

void TestAppInstaller::failedInstall()
{
    QFETCH(int, badFile);
    QFETCH(bool, manifestLeft);
    const QStringList original = listing(m_root);
    TxCatalogue::App foo = app({{"Apps/Foo/a.lua", "a"}, {"Apps/Foo/sub/b.lua", "b"}});
    // The right size, other bytes.
    m_server.setReply(foo.files[badFile].url.path().toLatin1(), Reply::ok("x"));
    AppInstaller install(AppInstaller::Install, m_root, foo);
    QVERIFY(!run(install));
    const QString destination = foo.files[badFile].destination;
    QVERIFY2(m_log.contains(QString("File \"%1\" hash validation failed.").arg(destination)),
             qPrintable(m_log.join('\n')));
    QCOMPARE(m_log.last(), QString("Failed to install Foo."));
    QCOMPARE(m_errors.size(), 1);
    QVERIFY(!QFileInfo::exists(m_root + '/' + destination));
    // Folders made for the failed file are gone again.
    QVERIFY(!QFileInfo::exists(m_root + "/Apps/Foo/sub"));

    AppManifest manifest;
    QCOMPARE(AppManifest::read(m_root, 7, &manifest), manifestLeft);
    if (!manifestLeft) {
        QCOMPARE(listing(m_root), original);
        return;
    }
    QVERIFY(!manifest.complete);
    AppInstaller uninstall(AppInstaller::Uninstall, m_root, foo);
    QVERIFY(run(uninstall));
    QCOMPARE(listing(m_root), original);
}

void TestAppInstaller::hostileManifestIgnored()
{
    // A manifest is read from the drive: paths leading out of it are never acted on.
    const QByteArray outside = "not the drive's";
    writeFile(m_dir->path() + "/outside.txt", outside);
    const QString hash = sha1(outside);
    writeFile(AppManifest::path(m_root, 7),
              QString("{\"id\":7,\"name\":\"Foo\",\"version\":\"1\",\"files\":["
                      "{\"destination\":\"../outside.txt\",\"sha1\":\"%1\"},"
                      "{\"destination\":\"%2/outside.txt\",\"sha1\":\"%1\"},"
                      "{\"destination\":\"Apps/.vexo/7.json\",\"sha1\":\"%1\"},"
                      "{\"destination\":\"Apps/Link/outside.txt\",\"sha1\":\"%1\"}]}")
                  .arg(hash, m_dir->path())
                  .toUtf8());
    QVERIFY(QFile::link(m_dir->path(), m_root + "/Apps/Link"));
    TxCatalogue::App foo;
    foo.id = 7;
    foo.name = "Foo";
    AppInstaller uninstall(AppInstaller::Uninstall, m_root, foo);
    QVERIFY(run(uninstall));
    QCOMPARE(contentOf(m_dir->path() + "/outside.txt"), outside);
    QVERIFY(!QFileInfo::exists(AppManifest::path(m_root, 7)));
    QVERIFY(QFileInfo(m_root + "/Apps").isDir()); // the top-level "Apps" is never removed
}

QTEST_GUILESS_MAIN(TestAppInstaller)
#include "tst_AppInstaller.moc"
