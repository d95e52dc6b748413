#include "database/BlobCodec.h"
#include "database/DatabaseManager.h"
#include "database/Logbook.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "tests/database/DatabaseTestSupport.h"
#include "tests/support/TestFiles.h"

#include <QSqlError>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

namespace {
// One flight as the test knows it: the figures the logbook must arrive at are these, added up here.
struct Flight
{
    QString model;
    QString name;
    QDateTime date; // invalid: a log without a recording date
    qint64 ms;
    QByteArray alarms; // one alarm per character, two seconds apart
};

// A recording of messages only: a text at 0 and at ms, so its length is ms; alarms in between.
TelemetryDataPackage recording(const Flight &f)
{
    TelemetryDataPackage p;
    p.setRecordingDate(f.date);
    TelemetryMessage m;
    m.text = QStringLiteral("start");
    p.messages().append(m);
    for (int i = 0; i < f.alarms.size(); ++i) {
        TelemetryMessage a;
        a.timestamp = 1000 + 2000 * i;
        a.alarm = quint8(f.alarms.at(i));
        a.type = TelemetryMessage::kAlarmType;
        a.value = a.alarm;
        p.messages().append(a);
    }
    m.timestamp = qint32(f.ms);
    m.text = QStringLiteral("end");
    p.messages().append(m);
    return p;
}

QDateTime at(int month, int day, int hour)
{
    return QDateTime(QDate(2024, month, day), QTime(hour, 30, 0));
}

const QVector<Flight> kFlights = {
    {"Extra 300", "a.log", at(5, 17, 10), 420000, "SC"}, {"Extra 300", "b.log", at(6, 1, 9), 1230000, ""},
    {"Extra 300", "c.log", QDateTime(), 65000, "V"},     {"Extra 300", "d.log", at(5, 2, 16), 600000, "SVC"},
    {"cub", "e.log", at(7, 4, 11), 3725000, "C"},
};

struct Expected
{
    int flights = 0;
    qint64 total = 0;
    qint64 longest = 0;
    QDateTime first, last;
    int alarms = 0;
};

Expected expectedFor(const QString &model, const QVector<Flight> &flights)
{
    Expected e;
    for (const Flight &f : flights) {
        if (f.model != model)
            continue;
        ++e.flights;
        e.total += f.ms;
        e.longest = std::max(e.longest, f.ms);
        e.alarms += f.alarms.size();
        if (f.date.isValid() && (!e.first.isValid() || f.date < e.first))
            e.first = f.date;
        if (f.date.isValid() && (!e.last.isValid() || f.date > e.last))
            e.last = f.date;
    }
    return e;
}

void compareTotals(const Logbook::Totals &t, const Expected &e)
{
    QCOMPARE(std::make_tuple(t.flights, t.totalms, t.longestms, t.alarms),
             std::make_tuple(e.flights, e.total, e.longest, e.alarms));
    QCOMPARE(t.first, e.first);
    QCOMPARE(t.last, e.last);
}

struct Fixture
{
    QTemporaryDir dir;
    Logger logger{dir.filePath(QStringLiteral("Application.log"))};
    DatabaseManager db{dir.path(), &logger};
    ModelLibrary library{&db};
    QHash<QString, int> models;
    QHash<QString, int> logs; // by file name

    bool store(const QVector<Flight> &flights)
    {
        for (const Flight &f : flights) {
            if (!models.contains(f.model))
                models.insert(f.model, library.createModel(f.model));
            const int id = library.storeLog(recording(f), models.value(f.model), -1, f.name);
            if (id < 0)
                return false;
            logs.insert(f.name, id);
        }
        return true;
    }
};
} // namespace

class tst_Logbook : public QObject
{
    Q_OBJECT
private slots:
    void totalsFollowTheStoredLogs();
    void sorts_data();
    void sorts();
    void upgradeCountsAlarmsOfStoredLogs();
};

void tst_Logbook::totalsFollowTheStoredLogs()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QVERIFY2(f.store(kFlights), qPrintable(f.library.lastError()));
    const int empty = f.library.createModel("Bravo");
    Logbook book(&f.db);
    QVector<Flight> stored = kFlights;
    const auto check = [&](const QString &model) {
        QVERIFY(book.setModelId(f.models.value(model)));
        compareTotals(book.totals(), expectedFor(model, stored));
        // Every flight, by date (the undated one first), with its own figures.
        QVector<Flight> mine;
        std::copy_if(stored.cbegin(), stored.cend(), std::back_inserter(mine),
                     [&](const Flight &x) { return x.model == model; });
        std::sort(mine.begin(), mine.end(), [](const Flight &a, const Flight &b) {
            return !a.date.isValid() ? b.date.isValid() : b.date.isValid() && a.date < b.date;
        });
        QCOMPARE(book.rowCount(), mine.size());
        for (int row = 0; row < mine.size(); ++row) {
            const Logbook::Flight &got = book.flights().at(row);
            QCOMPARE(
                std::make_tuple(got.name, got.date, got.lengthms, got.alarms),
                std::make_tuple(mine[row].name, mine[row].date, mine[row].ms, int(mine[row].alarms.size())));
        }
    };
    check("Extra 300");
    check("cub");

    // Moving a log changes nothing; a deleted one leaves the sums.
    int folder = -1;
    QVERIFY(f.library.folderForPath(f.models.value("Extra 300"), "2024/06/01", &folder));
    QVERIFY(f.library.moveLog(f.logs.value("b.log"), folder));
    QVERIFY(f.library.deleteLog(f.logs.value("d.log")));
    stored.erase(
        std::find_if(stored.begin(), stored.end(), [](const Flight &x) { return x.name == "d.log"; }));
    check("Extra 300");

    // Every model at once, by name without regard to case; one without logs has zeros and no dates.
    const QVector<Logbook::Totals> all = f.db.logTotals(-1);
    QCOMPARE(all.size(), 3);
    QCOMPARE(std::make_tuple(all[0].modelName, all[1].modelName, all[2].modelName),
             std::make_tuple(QString("Bravo"), QString("cub"), QString("Extra 300")));
    QCOMPARE(all[0].modelId, empty);
    compareTotals(all[0], Expected());
    compareTotals(all[1], expectedFor("cub", stored));
    compareTotals(all[2], expectedFor("Extra 300", stored));
}

void tst_Logbook::sorts_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("order");
    QTest::addColumn<QStringList>("names");
    // Orders worked out by hand from kFlights' Extra 300 rows.
    QTest::newRow("date up") << int(Logbook::DateColumn) << int(Qt::AscendingOrder)
                             << QStringList{"c.log", "d.log", "a.log", "b.log"};
    QTest::newRow("date down") << int(Logbook::DateColumn) << int(Qt::DescendingOrder)
                               << QStringList{"b.log", "a.log", "d.log", "c.log"};
    QTest::newRow("duration down") << int(Logbook::DurationColumn) << int(Qt::DescendingOrder)
                                   << QStringList{"b.log", "d.log", "a.log", "c.log"};
    QTest::newRow("alarms up, ties by date") << int(Logbook::AlarmsColumn) << int(Qt::AscendingOrder)
                                             << QStringList{"c.log", "b.log", "a.log", "d.log"};
    QTest::newRow("name down") << int(Logbook::NameColumn) << int(Qt::DescendingOrder)
                               << QStringList{"d.log", "c.log", "b.log", "a.log"};
}

void tst_Logbook::sorts()
{
    QFETCH(int, column);
    QFETCH(int, order);
    QFETCH(QStringList, names);
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QVector<Flight> flights = kFlights;
    // A tie in alarms: c.log gets none, like b.log.
    flights[2].alarms.clear();
    QVERIFY(f.store(flights));
    Logbook book(&f.db);
    QVERIFY(book.setModelId(f.models.value("Extra 300")));
    book.sort(column, Qt::SortOrder(order));
    QVERIFY(book.reload()); // a reload keeps the order
    QStringList got;
    for (int row = 0; row < book.rowCount(); ++row)
        got << book.index(row, Logbook::NameColumn).data().toString();
    QCOMPARE(got, names);
}

// A database from before the logbook: no logbook table. The upgrade adds it and counts each stored log
// once, in one transaction, changing no log; a log it cannot read is entered with 0.
void tst_Logbook::upgradeCountsAlarmsOfStoredLogs()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const int model = f.library.createModel("Old");
    QVERIFY(execOn(f.db, "drop table logbook"));
    const QVector<Flight> flights = {kFlights[0], kFlights[1], kFlights[3]};
    QVector<QByteArray> blobs;
    for (const Flight &fl : flights)
        blobs << BlobCodec::compress(LogFileWriter::write(recording(fl)));
    blobs << randomBytes(300, 7); // damaged
    blobs << QByteArray();        // a row never completed (null data)
    QSqlQuery insert(QSqlDatabase::database(f.db.connectionName()));
    QVERIFY(insert.prepare("insert into logs (modelId, filename, dateCreated, lengthms, comment, data) "
                           "values (?, ?, ?, ?, '', ?)"));
    for (int i = 0; i < blobs.size(); ++i) {
        insert.addBindValue(model);
        insert.addBindValue(QStringLiteral("%1.log").arg(i));
        // Another program may leave a date empty rather than null: no date either.
        insert.addBindValue(i == 4 ? QString("") : DatabaseManager::dateText(at(3, 1 + i, 12)));
        insert.addBindValue(1000 * (i + 1));
        insert.addBindValue(blobs[i].isNull() ? QVariant(QVariant::ByteArray) : QVariant(blobs[i]));
        QVERIFY2(insert.exec(), qPrintable(insert.lastError().text()));
    }
    f.db.close();
    const QString path = f.dir.filePath("data.sqlite");

    // Read-only, nothing is written: the logbook works, without alarm counts.
    QTemporaryDir copyDir;
    QVERIFY(QFile::copy(path, copyDir.filePath("data.sqlite")));
    const QByteArray copyBefore = readAll(copyDir.filePath("data.sqlite"));
    {
        DatabaseManager readOnly(copyDir.path());
        readOnly.setConnectionName("readonly");
        readOnly.setReadOnly(true);
        QVERIFY2(readOnly.openAndInitialise(), qPrintable(readOnly.lastError()));
        const QVector<Logbook::Totals> t = readOnly.logTotals(model);
        QCOMPARE(t.size(), 1);
        QCOMPARE(std::make_tuple(t[0].flights, t[0].totalms, t[0].alarms),
                 std::make_tuple(5, qint64(15000), 0));
    }
    QCOMPARE(readAll(copyDir.filePath("data.sqlite")), copyBefore);

    QVERIFY2(f.db.openAndInitialise(), qPrintable(f.db.lastError()));
    QSqlQuery q(QSqlDatabase::database(f.db.connectionName()));
    QVERIFY(q.exec("select l.filename, b.alarms, l.lengthms, l.data from logs l "
                   "left join logbook b on b.logId = l.id order by l.id"));
    for (int i = 0; i < blobs.size(); ++i) {
        QVERIFY(q.next());
        const QVariant alarms = i < flights.size()    ? QVariant(flights[i].alarms.size())
                                : i == flights.size() ? QVariant(0)
                                                      : QVariant(); // no data, nothing to count
        QCOMPARE(std::make_tuple(q.value(0).toString(), q.value(1).isNull(), q.value(1).toInt(),
                                 q.value(2).toInt()),
                 std::make_tuple(QStringLiteral("%1.log").arg(i), alarms.isNull(), alarms.toInt(),
                                 1000 * (i + 1)));
        QCOMPARE(q.value(3).toByteArray(), blobs[i]);
    }
    QVERIFY(!q.next());
    const Logbook::Totals upgraded = f.db.logTotals(model).value(0);
    QCOMPARE(std::make_tuple(upgraded.first, upgraded.last, upgraded.alarms),
             std::make_tuple(at(3, 1, 12), at(3, 4, 12), 5));
    QVERIFY(f.library.storeLog(recording(kFlights[4]), model, -1) > 0); // stored with its row
    f.db.close();
    QVERIFY(f.db.openAndInitialise()); // counts nothing again
    const QString log = QString::fromUtf8(readAll(f.logger.path()));
    QCOMPARE(log.count("Database update: logbook of 4 stored logs"), 1);
    QCOMPARE(log.count("Database update: logbook"), 1);
    QVERIFY2(log.contains("Log 4: alarms not counted"), qPrintable(log));
    QCOMPARE(f.db.logTotals(model).value(0).alarms, 6);
    // A deleted log takes its row with it.
    QVERIFY(f.library.deleteLog(1));
    QCOMPARE(countOf(f.db, "select count(*) from logbook where logId = 1"), 0);
}

QTEST_MAIN(tst_Logbook)
#include "tst_Logbook.moc"
