#include "database/DatabaseConnection.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const char kName[] = "tst_connection";

// A connection of its own on a file in dir, with one table to bind into.
QString openDatabase(const QTemporaryDir &dir)
{
    const QString path = dir.filePath(QStringLiteral("c.sqlite"));
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QLatin1String(kName));
    db.setDatabaseName(path);
    if (!db.open() ||
        !QSqlQuery(db).exec(QStringLiteral("create table t (s text not null, n integer, b blob)")))
        return QString();
    return path;
}

void closeDatabase()
{
    QSqlDatabase::database(QLatin1String(kName), false).close();
    QSqlDatabase::removeDatabase(QLatin1String(kName));
}
} // namespace

class tst_DatabaseConnection : public QObject
{
    Q_OBJECT
private slots:
    void datesRead_data();
    void datesRead();
    void failuresNameTheFile_data();
    void failuresNameTheFile();
};

void tst_DatabaseConnection::datesRead_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expected");
    const QDateTime seconds(QDate(2024, 5, 17), QTime(13, 4, 5), Qt::UTC);
    const QDateTime millis(QDate(2024, 5, 17), QTime(13, 4, 5, 250), Qt::UTC);
    QTest::newRow("as written") << "2024-05-17 13:04:05" << seconds;
    QTest::newRow("with ms") << "2024-05-17 13:04:05.250" << millis;
    QTest::newRow("T") << "2024-05-17T13:04:05" << seconds;
    QTest::newRow("T with ms") << "2024-05-17T13:04:05.250" << millis;
    QTest::newRow("empty") << "" << QDateTime();
    QTest::newRow("not a date") << "17.05.2024" << QDateTime();
    QTest::newRow("no such day") << "2024-02-30 13:04:05" << QDateTime();
    QTest::newRow("a letter in the day") << "2024-05-1x 13:04:05" << QDateTime();
    QTest::newRow("minute 60") << "2024-05-17 13:60:05" << QDateTime();
}

void tst_DatabaseConnection::datesRead()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expected);
    const QDateTime read = DatabaseConnection::dateFromText(text, Qt::UTC);
    QCOMPARE(read.isValid(), expected.isValid());
    if (expected.isValid()) {
        QCOMPARE(read, expected);
        QCOMPARE(read.timeSpec(), Qt::UTC);
        QCOMPARE(DatabaseConnection::dateText(read), QStringLiteral("2024-05-17 13:04:05"));
    }
    QVERIFY(DatabaseConnection::dateText(QDateTime()).isNull());
}

void tst_DatabaseConnection::failuresNameTheFile_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("code");
    const auto row = [](const char *name, const char *what, const char *reason, int code) {
        QTest::newRow(name) << QString(what) << QString(reason) << code;
    };
    row("closed", "closed", "the database is not open", 0);
    row("bad statement", "syntax", "syntax error", 1); // SQLITE_ERROR
    row("no such row", "blob", "no stored data for 7", 0);
    row("damaged blob", "inflate", "", 0);
}

void tst_DatabaseConnection::failuresNameTheFile()
{
    QFETCH(QString, what);
    QFETCH(QString, reason);
    QFETCH(int, code);
    QTemporaryDir dir;
    const QString path =
        what == QLatin1String("closed") ? dir.filePath(QStringLiteral("none.sqlite")) : openDatabase(dir);
    QVERIFY(!path.isEmpty());
    DatabaseConnection c(path, QLatin1String(kName));
    QByteArray out;
    bool done = true;
    if (what == QLatin1String("closed"))
        done = c.execSimple(QStringLiteral("select 1"));
    else if (what == QLatin1String("syntax"))
        done = c.execSimple(QStringLiteral("selec 1"));
    else if (what == QLatin1String("blob"))
        done = c.selectBlob(QStringLiteral("select b from t where n = ?"), 7, &out);
    else
        done = c.uncompressed(QByteArray("\x00\x00\x00\x10garbage", 11), &out);
    closeDatabase();
    QVERIFY(!done);
    QVERIFY2(c.lastError().startsWith(path + QStringLiteral(": ")), qPrintable(c.lastError()));
    QVERIFY2(c.lastError().contains(reason), qPrintable(c.lastError()));
    QCOMPARE(c.lastErrorCode(), code);
}

QTEST_GUILESS_MAIN(tst_DatabaseConnection)
#include "tst_DatabaseConnection.moc"
