#include "transmitter/UpdateWorker.h"

#include "tests/support/LocalHttpServer.h"

#include <QtTest>

#include <QCryptographicHash>

using Reply = LocalHttpServer::Reply;
using Flag = TxCatalogue::FileFlag;
Q_DECLARE_METATYPE(LocalHttpServer::Reply)
Q_DECLARE_METATYPE(TxCatalogue::FileFlag)

namespace {
QString sha1(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex());
}

QByteArray contentOf(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

bool put(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

struct Run
{
    QStringList lines;
    QVector<int> progress;
    int errorType = -1;
    QString errorText;
    int finished = 0;
};

// Runs the worker to its end on this thread (the local server is served by the worker's own loop).
Run run(UpdateWorker &worker, const std::function<void(const QString &)> &onLine = {})
{
    Run r;
    QObject::connect(&worker, &UpdateWorker::processedFile, [&](const QString &line) {
        r.lines << line;
        if (onLine)
            onLine(line);
    });
    QObject::connect(&worker, &UpdateWorker::progressChanged, [&](int p) { r.progress << p; });
    QObject::connect(&worker, &UpdateWorker::error, [&](UpdateWorker::ErrorType type, const QString &text) {
        r.errorType = type;
        r.errorText = text;
    });
    QObject::connect(&worker, &UpdateWorker::finished, [&] { ++r.finished; });
    worker.doWork();
    return r;
}
} // namespace

class TestUpdateWorker : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void flags_data();
    void flags();
    void firstFailureEndsUpdate_data();
    void firstFailureEndsUpdate();
    void hostileListWritesNothing_data();
    void hostileListWritesNothing();
    void cancelKeepsFileBeingFetched();
    void defaultSelection();

private:
    TxCatalogue::FileEntry entry(const QString &path, const QByteArray &content, const QString &destination,
                                 Flag flag = Flag::Standard) const;

    LocalHttpServer m_server;
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_root;
    QString m_data;
};

void TestUpdateWorker::init()
{
    QVERIFY(m_server.isListening());
    m_server.clearLog();
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_root = m_dir->path() + "/drive";
    m_data = m_dir->path() + "/data";
    QVERIFY(QDir().mkpath(m_root));
    QVERIFY(QDir().mkpath(m_data));
}

TxCatalogue::FileEntry TestUpdateWorker::entry(const QString &path, const QByteArray &content,
                                               const QString &destination, Flag flag) const
{
    TxCatalogue::FileEntry e;
    e.url = QUrl(m_server.url(path));
    e.hash = sha1(content);
    e.size = content.size();
    e.destination = destination;
    e.flags = flag;
    return e;
}

void TestUpdateWorker::flags_data()
{
    QTest::addColumn<Flag>("flag");
    QTest::addColumn<QByteArray>("before"); // on the drive; empty: no file
    QTest::addColumn<int>("requests");
    QTest::addColumn<QByteArray>("driveAfter");
    QTest::addColumn<bool>("inDataFolder");
    QTest::addColumn<QString>("line");

    const QByteArray fresh = "firmware v2";
    QTest::newRow("standard, missing")
        << Flag::Standard << QByteArray() << 1 << fresh << false << "installed";
    QTest::newRow("standard, old") << Flag::Standard << QByteArray("firmware v1") << 1 << fresh << false
                                   << "installed";
    QTest::newRow("standard, up to date")
        << Flag::Standard << fresh << 0 << fresh << false << "already up-to-date and valid";
    QTest::newRow("optional, up to date")
        << Flag::Optional << fresh << 0 << fresh << false << "already up-to-date and valid";
    QTest::newRow("forceRewrite, up to date")
        << Flag::ForceRewrite << fresh << 1 << fresh << false << "installed";
    QTest::newRow("downloadOnly, missing")
        << Flag::DownloadOnly << QByteArray() << 1 << QByteArray("<missing>") << true << "not written";
    QTest::newRow("downloadOnly, old on drive") << Flag::DownloadOnly << QByteArray("firmware v1") << 1
                                                << QByteArray("firmware v1") << true << "not written";
}

void TestUpdateWorker::flags()
{
    QFETCH(Flag, flag);
    QFETCH(QByteArray, before);
    QFETCH(int, requests);
    QFETCH(QByteArray, driveAfter);
    QFETCH(bool, inDataFolder);
    QFETCH(QString, line);

    const QByteArray fresh = "firmware v2";
    m_server.setReply("/fw.bin", Reply::ok(fresh));
    if (!before.isEmpty())
        QVERIFY(put(m_root + "/update/fw.bin", before));
    UpdateWorker::Request request{m_root, m_data, 7, {entry("/fw.bin", fresh, "update/fw.bin", flag)}};
    UpdateWorker worker(request);
    const Run r = run(worker);

    QCOMPARE(r.errorType, -1);
    QCOMPARE(r.finished, 1);
    QCOMPARE(r.progress.first(), 100);
    QCOMPARE(m_server.requestCount("/fw.bin"), requests);
    QCOMPARE(contentOf(m_root + "/update/fw.bin"), driveAfter);
    const QString kept = m_data + "/Downloads/7/fw.bin";
    QCOMPARE(contentOf(kept), inDataFolder ? fresh : QByteArray("<missing>"));
    QVERIFY2(r.lines.last().contains(line), qPrintable(r.lines.join('\n')));
    // No temporary file is left anywhere.
    QDirIterator it(m_dir->path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        QVERIFY2(!it.next().endsWith(".jsdownload"), qPrintable(it.filePath()));
}

void TestUpdateWorker::firstFailureEndsUpdate_data()
{
    QTest::addColumn<Reply>("second");
    QTest::addColumn<QString>("secondDestination");
    QTest::addColumn<QString>("text");

    Reply cut = Reply::ok(QByteArray(20000, 'N'));
    cut.fault = Reply::Cut;
    cut.faultAfter = 5000;
    // Size and hash are those of 20000 'N': a pulled connection in the middle of file 2.
    QTest::newRow("connection dropped") << cut << "b/two.bin"
                                        << "Error downloading b/two.bin";
    QTest::newRow("wrong content, same size")
        << Reply::ok(QByteArray(20000, 'X')) << "b/two.bin"
        << QString("SHA1 for file \"b/two.bin\" does not match! Expected: %1, computed: %2")
               .arg(sha1(QByteArray(20000, 'N')), sha1(QByteArray(20000, 'X')));
    QTest::newRow("404") << Reply::error(404, "gone") << "b/two.bin"
                         << "Error downloading b/two.bin";
}

void TestUpdateWorker::hostileListWritesNothing_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QString>("hash");
    QTest::newRow("climbs out") << "b/../../two.bin" << sha1("two");
    QTest::newRow("absolute") << "/etc/two.bin" << sha1("two");
    QTest::newRow("no hash") << "b/two.bin"
                             << "";
}

void TestUpdateWorker::hostileListWritesNothing()
{
    QFETCH(QString, destination);
    QFETCH(QString, hash);
    QVERIFY(put(m_root + "/a/one.bin", "old"));
    m_server.setReply("/1", Reply::ok("new one"));
    m_server.setReply("/2", Reply::ok("two"));
    TxCatalogue::FileEntry second = entry("/2", "two", destination);
    second.hash = hash;
    UpdateWorker worker(
        UpdateWorker::Request{m_root, m_data, 1, {entry("/1", "new one", "a/one.bin"), second}});
    const Run r = run(worker);
    QCOMPARE(r.errorType, int(UpdateWorker::InstallError));
    QVERIFY2(r.errorText.contains("refused before anything was written"), qPrintable(r.errorText));
    QCOMPARE(contentOf(m_root + "/a/one.bin"), QByteArray("old"));
    QCOMPARE(m_server.requestCount("/1") + m_server.requestCount("/2"), 0);
}

void TestUpdateWorker::firstFailureEndsUpdate()
{
    QFETCH(Reply, second);
    QFETCH(QString, secondDestination);
    QFETCH(QString, text);

    const QByteArray old = "old";
    for (const char *name : {"a/one.bin", "b/two.bin", "c/three.bin"})
        QVERIFY(put(m_root + "/" + name, old));
    const QByteArray one = "new one", two(20000, 'N'), three = "new three";
    m_server.setReply("/1", Reply::ok(one));
    m_server.setReply("/2", second);
    m_server.setReply("/3", Reply::ok(three));
    UpdateWorker::Request request{m_root,
                                  m_data,
                                  1,
                                  {entry("/1", one, "a/one.bin"), entry("/2", two, secondDestination),
                                   entry("/3", three, "c/three.bin")}};
    UpdateWorker worker(request);
    const Run r = run(worker);

    QCOMPARE(r.errorType, int(UpdateWorker::InstallError));
    QVERIFY2(r.errorText.contains(text.toHtmlEscaped()), qPrintable(r.errorText));
    QCOMPARE(r.finished, 1);
    QCOMPARE(r.progress, QVector<int>{33});
    // File 1 new, file 2 as before, file 3 not even asked for.
    QCOMPARE(contentOf(m_root + "/a/one.bin"), one);
    QCOMPARE(contentOf(m_root + "/b/two.bin"), old);
    QCOMPARE(contentOf(m_root + "/c/three.bin"), old);
    QCOMPARE(m_server.requestCount("/3"), 0);
    QVERIFY(!QFile::exists(m_root + "/b/two.bin.jsdownload"));
    QVERIFY(!QFile::exists(m_dir->path() + "/two.bin"));
}

void TestUpdateWorker::cancelKeepsFileBeingFetched()
{
    const QByteArray old = "old", body(50000, 'S');
    QVERIFY(put(m_root + "/s.bin", old));
    Reply stall = Reply::ok(body);
    stall.fault = Reply::Stall;
    stall.faultAfter = 1000;
    m_server.setReply("/s", stall);
    m_server.setReply("/t", Reply::ok("t"));
    UpdateWorker::Request request{m_root, m_data, 1, {entry("/s", body, "s.bin"), entry("/t", "t", "t.bin")}};
    UpdateWorker worker(request);
    const Run r = run(worker, [&](const QString &line) {
        if (line.startsWith("Downloading"))
            QTimer::singleShot(200, [&] { worker.cancel(); });
    });
    QCOMPARE(r.errorType, int(UpdateWorker::Canceled));
    QCOMPARE(r.errorText, QString("Update canceled."));
    QCOMPARE(r.finished, 1);
    QCOMPARE(contentOf(m_root + "/s.bin"), old);
    QVERIFY(!QFile::exists(m_root + "/t.bin"));
    QVERIFY(!QFile::exists(m_root + "/s.bin.jsdownload"));
}

void TestUpdateWorker::defaultSelection()
{
    QVector<TxCatalogue::FileEntry> files;
    const QVector<QPair<Flag, QString>> all = {{Flag::Standard, "standard"},
                                               {Flag::Optional, "optional"},
                                               {Flag::OptionalUnchecked, "optionalUnchecked"},
                                               {Flag::DownloadOnly, "downloadOnly"},
                                               {Flag::ForceRewrite, "forceRewrite"}};
    for (const auto &f : all) {
        TxCatalogue::FileEntry e;
        e.flags = f.first;
        e.destination = f.second;
        files << e;
    }
    QStringList chosen;
    for (const TxCatalogue::FileEntry &e : UpdateWorker::defaultSelection(files))
        chosen << e.destination;
    // Everything but the optional file offered unchecked, in list order.
    QCOMPARE(chosen, QStringList({"standard", "optional", "downloadOnly", "forceRewrite"}));
}

QTEST_GUILESS_MAIN(TestUpdateWorker)
#include "tst_UpdateWorker.moc"
