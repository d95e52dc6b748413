#include "tests/support/LocalHttpServer.h"
#include "tests/support/ScriptedPrompter.h"
#include "transmitter/AppManifest.h"
#include "transmitter/ui/AppManagerPages.h"
#include "transmitter/ui/AppsListDelegate.h"
#include "transmitter/ui/AppsListModel.h"
#include "transmitter/ui/AppsSortFilterProxyModel.h"
#include "transmitter/ui/IntroPage.h"
#include "transmitter/ui/TransmitterWizard.h"

#include <QtTest>

#include <QCheckBox>
#include <QCryptographicHash>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QTextBrowser>

#include <memory>

using Reply = LocalHttpServer::Reply;
Q_DECLARE_METATYPE(LocalHttpServer::Reply)

namespace {
constexpr int kAppsRow = 2; // "Lua App Manager" on the intro page
constexpr int kHw = 674;    // the connected transmitter, a "Vexo HC-6"

TxCatalogue::App makeApp(int id, const QString &name, const QString &author, const QString &version,
                         const QVector<int> &hw)
{
    TxCatalogue::App a;
    a.id = id;
    a.name = name;
    a.author = author;
    a.version = version;
    a.hw = hw;
    return a;
}

AppManifest installed(int id, const QString &version, bool complete = true)
{
    AppManifest m;
    m.id = id;
    m.version = version;
    m.complete = complete;
    return m;
}

QString sha1(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex());
}
} // namespace

class tst_AppManagerPages : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void filters_data();
    void filters();
    void luaLogoWithoutPreview();
    void listStatus_data();
    void listStatus();
    void installAndUninstallFromPage();
    void interrupted_data();
    void interrupted();

private:
    void serveFoo(const Reply &file);
    std::unique_ptr<TransmitterWizard> wizard();
    AppManagerPage *toApps(TransmitterWizard *w);

    LocalHttpServer m_server;
    std::unique_ptr<QTemporaryDir> m_dir;
    ScriptedPrompter m_prompter;
    QString m_drive;
};

void tst_AppManagerPages::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_drive = m_dir->path();
    QVERIFY(QDir().mkpath(m_drive + "/Apps"));
    m_prompter.asked.clear();
    qputenv("VEXO_TX_UPDATE_URL", m_server.url("/tx/").toUtf8());
}

std::unique_ptr<TransmitterWizard> tst_AppManagerPages::wizard()
{
    TransmitterInfo t;
    t.rootPath = m_drive;
    t.driveLetter = m_drive.at(0).toLatin1();
    t.hwId = kHw;
    t.modelName = "Vexo HC-6";
    auto w = std::make_unique<TransmitterWizard>(t, nullptr, &m_prompter);
    w->show();
    return w;
}

AppManagerPage *tst_AppManagerPages::toApps(TransmitterWizard *w)
{
    qobject_cast<IntroPage *>(w->currentPage())->tools()->setCurrentRow(kAppsRow);
    w->next();
    return qobject_cast<AppManagerPage *>(w->currentPage());
}

void tst_AppManagerPages::filters_data()
{
    QTest::addColumn<QString>("search");
    QTest::addColumn<bool>("onlyInstalled");
    QTest::addColumn<bool>("onlyCompatible");
    QTest::addColumn<bool>("onlyUpdatable");
    QTest::addColumn<QStringList>("shown"); // by name, sorted

    QTest::newRow("no filter") << "" << false << false << false
                               << QStringList{"alpha", "Beta", "Delta", "Epsilon", "Gamma"};
    QTest::newRow("installed") << "" << true << false << false
                               << QStringList{"alpha", "Beta", "Delta", "Epsilon"};
    QTest::newRow("compatible") << "" << false << true << false << QStringList{"alpha", "Beta", "Delta"};
    // An interrupted install counts as updatable although the versions agree.
    QTest::newRow("updatable") << "" << false << false << true << QStringList{"Beta", "Delta", "Epsilon"};
    QTest::newRow("all three") << "" << true << true << true << QStringList{"Beta", "Delta"};
    QTest::newRow("search matches author")
        << "ANN" << false << false << false << QStringList{"alpha", "Gamma"};
    QTest::newRow("search and compatible") << "ann" << false << true << false << QStringList{"alpha"};
    QTest::newRow("search and updatable") << "ta" << false << false << true << QStringList{"Beta", "Delta"};
    QTest::newRow("search finds nothing") << "zzz" << false << false << false << QStringList();
}

void tst_AppManagerPages::filters()
{
    QFETCH(QString, search);
    QFETCH(bool, onlyInstalled);
    QFETCH(bool, onlyCompatible);
    QFETCH(bool, onlyUpdatable);
    QFETCH(QStringList, shown);

    AppsListModel model;
    model.setConnectedHardware(kHw);
    model.setApps({makeApp(1, "alpha", "Ann", "1.0", {kHw}), makeApp(2, "Beta", "Bob", "2.0", {675, kHw}),
                   makeApp(3, "Gamma", "Ann", "1.0", {675}), makeApp(4, "Delta", "Dan", "1.0", {kHw}),
                   makeApp(5, "Epsilon", "Eve", "1.0", {675})});
    model.setInstalled({{1, installed(1, "1.0")},
                        {2, installed(2, "1.0")},
                        {4, installed(4, "1.0", false)},
                        {5, installed(5, "0.9")}});
    AppsSortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    proxy.setSearchText(search);
    proxy.setOnlyInstalled(onlyInstalled);
    proxy.setOnlyCompatible(onlyCompatible);
    proxy.setOnlyUpdatable(onlyUpdatable);
    QStringList names;
    for (int row = 0; row < proxy.rowCount(); ++row)
        names << proxy.index(row, 0).data().toString();
    QCOMPARE(names, shown);
}

void tst_AppManagerPages::luaLogoWithoutPreview()
{
    AppsListModel model;
    TxCatalogue::App withPreview = makeApp(2, "Pic", "Bob", "1.0", {kHw, 678});
    withPreview.previewIcon = QUrl("http://127.0.0.1:9/pic.png");
    model.setApps({makeApp(1, "Plain", "Ann", "1.0", {kHw}), withPreview});
    const QModelIndex plain = model.index(0);
    const QModelIndex pic = model.index(1);
    QVERIFY(plain.data(AppsListModel::LuaLogoRole).toBool());
    const QPixmap logo = plain.data(Qt::DecorationRole).value<QPixmap>();
    QCOMPARE(logo.size(), QSize(AppsListModel::IconSize, AppsListModel::IconSize));
    // The logo is drawn in navy: not a blank picture.
    QCOMPARE(logo.toImage().pixelColor(AppsListModel::IconSize / 2, AppsListModel::IconSize - 8).rgb(),
             QColor(0, 0, 128).rgb());
    // Until its picture has arrived, an app with a preview shows the logo too.
    QVERIFY(pic.data(AppsListModel::LuaLogoRole).toBool());
    QImage red(100, 50, QImage::Format_RGB32);
    red.fill(Qt::red);
    model.setPreview(withPreview.previewIcon, red);
    QVERIFY(!pic.data(AppsListModel::LuaLogoRole).toBool());
    QCOMPARE(pic.data(Qt::DecorationRole).value<QPixmap>().toImage().pixelColor(10, 10), QColor(Qt::red));
    QVERIFY(plain.data(AppsListModel::LuaLogoRole).toBool());
    QCOMPARE(AppsListDelegate::detailLines(pic),
             (QStringList{"Author: Bob", "Version: 1.0", "Supported transmitters: Vexo HC-6, Vexo HC-8"}));
}

void tst_AppManagerPages::listStatus_data()
{
    QTest::addColumn<bool>("endpoint");
    QTest::addColumn<Reply>("reply");
    QTest::addColumn<QString>("status");
    const QString failed = "An error occurred while downloading Lua-apps list. Try again later.";
    const QByteArray two = R"({"applications": [{"id": 1, "name": {"en": "One"}, "version": "1", "files": []},
                                                  {"id": 2, "name": {"en": "Two"}, "version": "1", "files": []}]})";
    QTest::newRow("two apps") << true << Reply::ok(two, "application/json") << "2 applications found.";
    QTest::newRow("404") << true << Reply::error(404, "gone") << failed;
    QTest::newRow("not a list") << true << Reply::ok("<html>", "text/html") << failed;
    QTest::newRow("no endpoint") << false << Reply::ok(two) << "*VEXO_TX_UPDATE_URL*";
}

void tst_AppManagerPages::listStatus()
{
    QFETCH(bool, endpoint);
    QFETCH(Reply, reply);
    QFETCH(QString, status);
    if (!endpoint)
        qunsetenv("VEXO_TX_UPDATE_URL");
    m_server.setReply("/tx/apps.json", reply);
    auto w = wizard();
    AppManagerPage *page = toApps(w.get());
    QVERIFY(page);
    if (endpoint) {
        QCOMPARE(page->statusText(), QString("Loading apps..."));
        QTRY_VERIFY_WITH_TIMEOUT(page->statusText() != "Loading apps...", 15000);
    }
    QVERIFY2(QRegExp(status, Qt::CaseSensitive, QRegExp::Wildcard).exactMatch(page->statusText()),
             qPrintable(page->statusText()));
    // The wizard stays usable: back to the tools.
    w->back();
    QCOMPARE(w->currentId(), int(TransmitterWizard::IntroId));
}

void tst_AppManagerPages::serveFoo(const Reply &file)
{
    const QByteArray lua = "-- the app";
    m_server.setReply("/tx/files/main.lua", file);
    m_server.setReply(
        "/tx/apps.json",
        Reply::ok(QString(R"({"applications": [{"id": 9, "name": {"en": "Foo"}, "version": "1.2",
                          "author": "Ann", "hw": [%1], "description": {"en": "A <b>test</b> app"},
                          "files": [{"url": "files/main.lua", "hash": "%2", "size": %3,
                                     "destination": "Apps/Foo/main.lua", "flags": "standard"}]}]})")
                      .arg(kHw)
                      .arg(sha1(lua))
                      .arg(lua.size())
                      .toUtf8()));
}

void tst_AppManagerPages::installAndUninstallFromPage()
{
    serveFoo(Reply::ok("-- the app"));
    auto w = wizard();
    AppManagerPage *page = toApps(w.get());
    QVERIFY(page);
    QTRY_COMPARE_WITH_TIMEOUT(page->statusText(), QString("1 applications found."), 15000);
    QVERIFY(page->details()->toPlainText().contains("A <b>test</b> app")); // shown as text, not markup
    QVERIFY(page->installButton()->isEnabled());
    QVERIFY(!page->uninstallButton()->isEnabled());

    QSignalSpy done(page, &AppManagerPage::workFinished);
    QVERIFY(page->installCurrent());
    QVERIFY(!page->installCurrent()); // a second click while it runs does nothing
    QVERIFY(!page->isComplete());
    QVERIFY(done.wait(15000));
    QCOMPARE(done.first().at(0).toBool(), true);
    QCOMPARE(page->statusText(), QString("Foo has been successfully installed."));
    QVERIFY(QFileInfo::exists(m_drive + "/Apps/Foo/main.lua"));
    QVERIFY(!page->installButton()->isEnabled());
    QVERIFY(page->uninstallButton()->isEnabled());
    page->onlyInstalled()->setChecked(true);
    QCOMPARE(page->proxy()->rowCount(), 1);

    QVERIFY(page->uninstallCurrent());
    QVERIFY(done.wait(15000));
    QCOMPARE(done.at(1).at(0).toBool(), true);
    QCOMPARE(page->statusText(), QString("Foo has been successfully uninstalled."));
    QCOMPARE(QDir(m_drive).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList{"Apps"});
    QVERIFY(QDir(m_drive + "/Apps").isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));
    QCOMPARE(page->proxy()->rowCount(), 0);
    QVERIFY(m_prompter.asked.isEmpty());
}

void tst_AppManagerPages::interrupted_data()
{
    QTest::addColumn<bool>("drivePulled"); // else the pilot chose Exit and confirmed
    QTest::addColumn<QString>("status");
    QTest::newRow("drive pulled") << true << "The transmitter was disconnected.";
    QTest::newRow("exit confirmed") << false << "Canceled.";
}

void tst_AppManagerPages::interrupted()
{
    QFETCH(bool, drivePulled);
    QFETCH(QString, status);
    Reply stall = Reply::ok("-- the app");
    stall.fault = Reply::Stall;
    stall.faultAfter = 3;
    serveFoo(stall);
    auto w = wizard();
    AppManagerPage *page = toApps(w.get());
    QVERIFY(page);
    QTRY_COMPARE_WITH_TIMEOUT(page->statusText(), QString("1 applications found."), 15000);
    QSignalSpy done(page, &AppManagerPage::workFinished);
    QSignalSpy fetched(&m_server, &LocalHttpServer::requestReceived);
    QVERIFY(page->installCurrent());
    QVERIFY(fetched.wait(15000));
    if (drivePulled)
        w->onTransmitterRemoved(m_drive);
    else
        w->reject();
    QVERIFY(done.wait(5000)); // well before the download's own silence limit
    QCOMPARE(done.first().at(0).toBool(), false);
    QCOMPARE(page->statusText(), status);
    // Exit asks first; a pulled drive is no failure to report.
    QCOMPARE(m_prompter.asked.size(), drivePulled ? 0 : 1);
    if (!drivePulled)
        QCOMPARE(m_prompter.asked.first().title, QString("Confirmation"));
    QVERIFY(!QFileInfo::exists(m_drive + "/Apps/Foo"));
    QVERIFY(!QFileInfo::exists(AppManifest::path(m_drive, 9)));
    QCOMPARE(page->installButton()->isEnabled(), !drivePulled);
}

QTEST_MAIN(tst_AppManagerPages)
#include "tst_AppManagerPages.moc"
