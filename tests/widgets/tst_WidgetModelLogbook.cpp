#include "database/DatabaseManager.h"
#include "database/Logbook.h"
#include "database/ModelFolderTree.h"
#include "database/ModelLibrary.h"
#include "telemetry/TelemetryData.h"
#include "widgets/models/LogbookView.h"
#include "widgets/models/WidgetModel.h"

#include <QHeaderView>
#include <QTableView>
#include <QTemporaryDir>
#include <QtTest>

namespace {
// A recording of messages only, ms long, with one alarm per character.
TelemetryDataPackage recording(const QDateTime &date, qint64 ms, const QByteArray &alarms)
{
    TelemetryDataPackage p;
    p.setRecordingDate(date);
    TelemetryMessage m;
    m.text = QStringLiteral("start");
    p.messages().append(m);
    for (int i = 0; i < alarms.size(); ++i) {
        TelemetryMessage a;
        a.timestamp = 1000 + 2000 * i;
        a.alarm = quint8(alarms.at(i));
        a.type = TelemetryMessage::kAlarmType;
        a.value = a.alarm;
        p.messages().append(a);
    }
    m.timestamp = qint32(ms);
    m.text = QStringLiteral("end");
    p.messages().append(m);
    return p;
}

QStringList column(const QTableView *view, int c)
{
    QStringList values;
    for (int row = 0; row < view->model()->rowCount(); ++row)
        values << view->model()->index(row, c).data().toString();
    return values;
}

void clickHeader(QTableView *view, int section)
{
    QHeaderView *header = view->horizontalHeader();
    const QPoint pos(header->sectionViewportPosition(section) + header->sectionSize(section) / 2,
                     header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, pos);
}
} // namespace

class tst_WidgetModelLogbook : public QObject
{
    Q_OBJECT
private slots:
    void showsSortsAndFollowsChanges();
};

// The figures below are the stored recordings added up by hand: 0:07:00 + 0:20:30 + 0:01:05.
void tst_WidgetModelLogbook::showsSortsAndFollowsChanges()
{
    QTemporaryDir dir;
    DatabaseManager db(dir.path());
    QVERIFY(db.openAndInitialise());
    ModelLibrary library(&db);
    TelemetryData store;
    const int extra = library.createModel("Extra 300");
    const int cub = library.createModel("Cub");
    const QDateTime day(QDate(2024, 5, 17), QTime(10, 0));
    QVERIFY(library.storeLog(recording(day, 420000, "SC"), extra, -1, "a.log") > 0);
    QVERIFY(library.storeLog(recording(day.addDays(3), 1230000, ""), extra, -1, "b.log") > 0);
    const int c = library.storeLog(recording(day.addDays(-1), 65000, "V"), extra, -1, "c.log");
    QVERIFY(library.storeLog(recording(day, 5000, ""), cub, -1, "cub.log") > 0);

    WidgetModel window(&db, &library, &store);
    window.resize(600, 700);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.selectModel(extra);
    LogbookView *view = window.logbook();
    QCOMPARE(view->summaryText(),
             QString("Flights: 3\nTotal flight time: 0:28:35\nLongest flight: 0:20:30\n"
                     "First flight: 2024-05-16 10:00:00\nLast flight: 2024-05-20 10:00:00\n"
                     "Alarms: 3"));
    QCOMPARE(column(view->table(), Logbook::NameColumn), QStringList({"c.log", "a.log", "b.log"}));
    QCOMPARE(column(view->table(), Logbook::DurationColumn), QStringList({"0:01:05", "0:07:00", "0:20:30"}));

    // The header sorts: ascending first, then descending.
    window.findChild<QTabWidget *>()->setCurrentWidget(view);
    clickHeader(view->table(), Logbook::AlarmsColumn);
    QCOMPARE(column(view->table(), Logbook::AlarmsColumn), QStringList({"0", "1", "2"}));
    clickHeader(view->table(), Logbook::AlarmsColumn);
    QCOMPARE(column(view->table(), Logbook::NameColumn), QStringList({"a.log", "c.log", "b.log"}));

    // A log stored elsewhere (an import, a synchronisation) shows after the window's reload(); a rename
    // and a deletion in the tree show at once.
    QVERIFY(library.storeLog(recording(day.addDays(10), 60000, "SSS"), extra, -1, "d.log") > 0);
    window.reload();
    QVERIFY(view->summaryText().startsWith("Flights: 4\nTotal flight time: 0:29:35\n"));
    QVERIFY(view->summaryText().endsWith("Last flight: 2024-05-27 10:00:00\nAlarms: 6"));
    ModelFolderTree *tree = window.tree();
    QVERIFY(tree->setData(tree->indexOf(ModelFolderTree::LogItem, c), "renamed.log"));
    QVERIFY(column(view->table(), Logbook::NameColumn).contains("renamed.log"));
    QVERIFY(tree->removeItem(tree->indexOf(ModelFolderTree::LogItem, c)));
    QVERIFY(view->summaryText().startsWith("Flights: 3\nTotal flight time: 0:28:30\n"));
    QCOMPARE(column(view->table(), Logbook::AlarmsColumn), QStringList({"3", "2", "0"})); // still sorted

    window.selectModel(cub);
    QCOMPARE(column(view->table(), Logbook::NameColumn), QStringList({"cub.log"}));
    window.selectModel(-1);
    QCOMPARE(view->table()->model()->rowCount(), 0);
    QCOMPARE(view->summaryText(), QString("No model selected."));
}

QTEST_MAIN(tst_WidgetModelLogbook)
#include "tst_WidgetModelLogbook.moc"
