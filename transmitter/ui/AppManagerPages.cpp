#include "transmitter/ui/AppManagerPages.h"

#include "tools/FileDownloader.h"
#include "tools/UpdateEndpoints.h"
#include "transmitter/AppInstaller.h"
#include "transmitter/AppManifest.h"
#include "transmitter/ui/AppsListDelegate.h"
#include "transmitter/ui/AppsListModel.h"
#include "transmitter/ui/AppsSortFilterProxyModel.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QBuffer>
#include <QCheckBox>
#include <QDebug>
#include <QFile>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QNetworkAccessManager>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QTextBrowser>
#include <QThread>
#include <QVBoxLayout>

namespace {
// A preview is a small picture; anything larger is not decoded.
constexpr qint64 kMaxPreviewBytes = 1024 * 1024;
constexpr int kMaxPreviewSide = 1024;

// Pictures fetched once per run of the program, by URL text: reopening the page draws them at once.
QHash<QString, QImage> &previewCache()
{
    static QHash<QString, QImage> cache;
    return cache;
}

QImage decodePreview(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!size.isValid() || size.width() > kMaxPreviewSide || size.height() > kMaxPreviewSide)
        return {};
    return reader.read();
}

QString appsStyleSheet()
{
    QFile css(QStringLiteral(":/appsManagerHtml.css"));
    return css.open(QIODevice::ReadOnly) ? QString::fromUtf8(css.readAll()) : QString();
}
} // namespace

AppManagerPage::AppManagerPage(QWidget *parent)
    : QWizardPage(parent), m_model(new AppsListModel(this)), m_proxy(new AppsSortFilterProxyModel(this)),
      m_network(new QNetworkAccessManager(this)), m_listDownloader(new FileDownloader(this))
{
    setTitle(tr("Lua App Manager"));
    setFinalPage(true);
    setButtonText(QWizard::FinishButton, tr("Close"));
    m_proxy->setSourceModel(m_model);
    m_listDownloader->setNetworkAccessManager(m_network);
    m_listDownloader->setMaxSize(TxCatalogue::kMaxListBytes);
    connect(m_listDownloader, &AbstractDownloader::finished, this, &AppManagerPage::onListDownloaded);

    m_search = new QLineEdit;
    m_search->setPlaceholderText(tr("Search"));
    m_search->setClearButtonEnabled(true);
    m_onlyInstalled = new QCheckBox(tr("Show only installed"));
    m_onlyCompatible = new QCheckBox(tr("Show only compatible"));
    m_onlyUpdatable = new QCheckBox(tr("Show only updatable"));
    connect(m_search, &QLineEdit::textChanged, m_proxy, &AppsSortFilterProxyModel::setSearchText);
    connect(m_onlyInstalled, &QCheckBox::toggled, m_proxy, &AppsSortFilterProxyModel::setOnlyInstalled);
    connect(m_onlyCompatible, &QCheckBox::toggled, m_proxy, &AppsSortFilterProxyModel::setOnlyCompatible);
    connect(m_onlyUpdatable, &QCheckBox::toggled, m_proxy, &AppsSortFilterProxyModel::setOnlyUpdatable);

    m_list = new QListView;
    m_list->setModel(m_proxy);
    m_list->setItemDelegate(new AppsListDelegate(m_list));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setUniformItemSizes(true);
    connect(m_list, &QWidget::customContextMenuRequested, this, &AppManagerPage::showMenu);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
        showDetails();
        updateButtons();
    });
    connect(m_proxy, &QAbstractItemModel::modelReset, this, &AppManagerPage::updateButtons);
    connect(m_proxy, &QAbstractItemModel::layoutChanged, this, &AppManagerPage::updateButtons);
    connect(m_proxy, &QAbstractItemModel::rowsRemoved, this, &AppManagerPage::updateButtons);
    connect(m_model, &QAbstractItemModel::dataChanged, this, [this] {
        showDetails();
        updateButtons();
    });

    m_details = new QTextBrowser;
    m_details->setOpenLinks(false);
    m_details->document()->setDefaultStyleSheet(appsStyleSheet());

    m_install = new QPushButton(tr("Install"));
    m_uninstall = new QPushButton(tr("Uninstall"));
    connect(m_install, &QPushButton::clicked, this, &AppManagerPage::installCurrent);
    connect(m_uninstall, &QPushButton::clicked, this, &AppManagerPage::uninstallCurrent);
    m_progress = new QProgressBar;
    m_progress->setRange(0, 100);
    m_progress->setVisible(false);
    m_status = new QLabel;
    m_status->setWordWrap(true);
    m_log = new QPlainTextEdit;
    m_log->setReadOnly(true);
    m_log->setMaximumBlockCount(2000);
    m_log->setMaximumHeight(90);

    auto *filters = new QHBoxLayout;
    filters->addWidget(m_search, 1);
    filters->addWidget(m_onlyInstalled);
    filters->addWidget(m_onlyCompatible);
    filters->addWidget(m_onlyUpdatable);
    auto *splitter = new QSplitter;
    splitter->addWidget(m_list);
    splitter->addWidget(m_details);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_status, 1);
    buttons->addWidget(m_progress);
    buttons->addWidget(m_install);
    buttons->addWidget(m_uninstall);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(filters);
    layout->addWidget(splitter, 1);
    layout->addLayout(buttons);
    layout->addWidget(m_log);
    updateButtons();
}

AppManagerPage::~AppManagerPage()
{
    stopWork();
}

TransmitterWizard *AppManagerPage::transmitterWizard() const
{
    return TransmitterWizard::of(this);
}

QString AppManagerPage::statusText() const
{
    return m_status->text();
}

QString AppManagerPage::logText() const
{
    return m_log->toPlainText();
}

void AppManagerPage::setStatus(const QString &text)
{
    m_status->setText(text);
}

void AppManagerPage::appendLog(const QString &text)
{
    m_log->appendPlainText(text);
}

void AppManagerPage::initializePage()
{
    TransmitterWizard *w = transmitterWizard();
    if (!w)
        return;
    m_root = w->transmitter().rootPath;
    m_driveGone = false;
    m_model->setConnectedHardware(w->transmitter().hwId);
    m_model->setInstalled(AppManifest::readAll(m_root));
    connect(w, &TransmitterWizard::driveRemoved, this, &AppManagerPage::onDriveRemoved, Qt::UniqueConnection);
    reload();
}

void AppManagerPage::cleanupPage()
{
    m_listDownloader->abort();
}

bool AppManagerPage::isComplete() const
{
    return !isWorking();
}

void AppManagerPage::reload()
{
    m_model->setApps({});
    m_details->clear();
    const QUrl folder = UpdateEndpoints::txUpdateFolder();
    if (folder.isEmpty()) {
        setStatus(tr("No address of the update service is configured (set %1), so the apps list cannot "
                     "be loaded.")
                      .arg(QLatin1String(UpdateEndpoints::kTxUpdateUrlVariable)));
        return;
    }
    setStatus(tr("Loading apps..."));
    m_listDownloader->download(folder.resolved(QUrl(QStringLiteral("apps.json"))));
}

void AppManagerPage::onListDownloaded(bool ok)
{
    const QString failed = tr("An error occurred while downloading Lua-apps list. Try again later.");
    if (!ok) {
        qDebug() << "Lua apps list:" << m_listDownloader->errorString();
        appendLog(m_listDownloader->errorString());
        setStatus(failed);
        return;
    }
    QVector<TxCatalogue::App> apps;
    QString error;
    if (!TxCatalogue::parseAppList(m_listDownloader->data(), &apps, &error)) {
        qDebug() << "Lua apps list:" << error;
        appendLog(error);
        setStatus(failed);
        return;
    }
    AppInstaller::resolveUrls(&apps, m_listDownloader->url());
    m_model->setApps(apps);
    setStatus(tr("%1 applications found.").arg(apps.size()));
    if (m_proxy->rowCount() > 0)
        m_list->setCurrentIndex(m_proxy->index(0, 0));
    fetchPreviews();
}

void AppManagerPage::fetchPreviews()
{
    QSet<QString> asked;
    for (const TxCatalogue::App &app : m_model->apps()) {
        const QUrl url = app.previewIcon;
        const QString key = url.toString();
        if (key.isEmpty() || asked.contains(key))
            continue;
        asked.insert(key);
        if (previewCache().contains(key)) {
            m_model->setPreview(url, previewCache().value(key));
            continue;
        }
        const QString scheme = url.scheme().toLower();
        if (scheme != QLatin1String("http") && scheme != QLatin1String("https"))
            continue; // the Lua logo stays
        auto *download = new FileDownloader(this);
        download->setNetworkAccessManager(m_network);
        download->setMaxSize(kMaxPreviewBytes);
        connect(download, &AbstractDownloader::finished, this, [this, download, url](bool ok) {
            download->deleteLater();
            const QImage image = ok ? decodePreview(download->data()) : QImage();
            if (image.isNull())
                return;
            previewCache().insert(url.toString(), image);
            m_model->setPreview(url, image);
        });
        download->download(url);
    }
}

const TxCatalogue::App *AppManagerPage::currentApp() const
{
    const QModelIndex index = m_proxy->mapToSource(m_list->currentIndex());
    if (!index.isValid())
        return nullptr;
    return &m_model->appAt(index.row());
}

void AppManagerPage::showDetails()
{
    const QModelIndex index = m_proxy->mapToSource(m_list->currentIndex());
    if (!index.isValid()) {
        m_details->clear();
        return;
    }
    const TxCatalogue::App &app = m_model->appAt(index.row());
    // The list comes from the network: shown as text, never as markup.
    QString description = app.description.toHtmlEscaped();
    description.replace(QLatin1Char('\n'), QLatin1String("<br>"));
    QString html = QStringLiteral("<h2>%1</h2><p class=\"meta\"><b>%2</b><br><b>%3</b>")
                       .arg(app.name.toHtmlEscaped(), tr("Author: %1").arg(app.author).toHtmlEscaped(),
                            tr("Version: %1").arg(app.version).toHtmlEscaped());
    if (app.releaseDate.isValid())
        html += QStringLiteral("<br>") + TxCatalogue::shortDate(app.releaseDate.date()).toHtmlEscaped();
    html += QStringLiteral("<br>") +
            (tr("Supported transmitters:") + QLatin1Char(' ') +
             index.data(AppsListModel::SupportedModelsRole).toStringList().join(QStringLiteral(", ")))
                .toHtmlEscaped();
    html += QStringLiteral("</p>");
    if (index.data(AppsListModel::InstalledRole).toBool()) {
        const bool update = index.data(AppsListModel::UpdatableRole).toBool();
        html += QStringLiteral("<p class=\"%1\">%2</p>")
                    .arg(update ? QStringLiteral("update") : QStringLiteral("installed"),
                         (update ? tr("Installed version: %1 (an update is available)")
                                 : tr("Installed version: %1"))
                             .arg(index.data(AppsListModel::InstalledVersionRole).toString())
                             .toHtmlEscaped());
    }
    html += QStringLiteral("<div class=\"description\">%1</div>").arg(description);
    m_details->setHtml(html);
}

void AppManagerPage::updateButtons()
{
    const QModelIndex index = m_proxy->mapToSource(m_list->currentIndex());
    const bool idle = !isWorking() && !m_driveGone && index.isValid();
    const bool installed = index.isValid() && index.data(AppsListModel::InstalledRole).toBool();
    const bool compatible = index.isValid() && index.data(AppsListModel::CompatibleRole).toBool();
    const bool updatable = index.isValid() && index.data(AppsListModel::UpdatableRole).toBool();
    m_install->setEnabled(idle && compatible && (!installed || updatable));
    m_install->setToolTip(index.isValid() && !compatible
                              ? tr("This app does not support the connected transmitter.")
                              : QString());
    m_uninstall->setEnabled(idle && installed);
}

void AppManagerPage::showMenu(const QPoint &pos)
{
    if (!m_list->indexAt(pos).isValid())
        return;
    m_list->setCurrentIndex(m_list->indexAt(pos));
    QMenu menu(this);
    QAction *install = menu.addAction(tr("Install"), this, &AppManagerPage::installCurrent);
    install->setEnabled(m_install->isEnabled());
    QAction *uninstall = menu.addAction(tr("Uninstall"), this, &AppManagerPage::uninstallCurrent);
    uninstall->setEnabled(m_uninstall->isEnabled());
    menu.exec(m_list->viewport()->mapToGlobal(pos));
}

bool AppManagerPage::installCurrent()
{
    const TxCatalogue::App *app = currentApp();
    if (!app || !m_install->isEnabled())
        return false;
    start(AppInstaller::Install, *app);
    return true;
}

bool AppManagerPage::uninstallCurrent()
{
    const TxCatalogue::App *app = currentApp();
    if (!app || !m_uninstall->isEnabled())
        return false;
    start(AppInstaller::Uninstall, *app);
    return true;
}

void AppManagerPage::start(int operation, const TxCatalogue::App &app)
{
    if (isWorking())
        return;
    m_errorTitle.clear();
    m_errorText.clear();
    m_thread = new QThread(this);
    m_worker = new AppInstaller(AppInstaller::Operation(operation), m_root, app);
    m_worker->moveToThread(m_thread);
    connect(m_thread, &QThread::started, m_worker, &AppInstaller::doWork);
    // The worker stays until its thread ends, and only this page ends it (onWorkFinished, stopWork).
    connect(m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_workerEnded = false;
    connect(
        m_worker, &AppInstaller::finished, this, [this] { m_workerEnded = true; }, Qt::DirectConnection);
    connect(m_worker, &AppInstaller::status, this, &AppManagerPage::setStatus);
    connect(m_worker, &AppInstaller::logLine, this, &AppManagerPage::appendLog);
    connect(m_worker, &AppInstaller::progressChanged, m_progress, &QProgressBar::setValue);
    connect(m_worker, &AppInstaller::error, this, [this](const QString &title, const QString &text) {
        m_errorTitle = title;
        m_errorText = text;
    });
    connect(m_worker, &AppInstaller::finished, this, &AppManagerPage::onWorkFinished);
    m_progress->setValue(0);
    m_progress->setVisible(true);
    if (TransmitterWizard *w = transmitterWizard())
        w->setBusy(true);
    updateButtons();
    emit completeChanged();
    m_thread->start();
}

void AppManagerPage::onWorkFinished(bool ok)
{
    if (!m_worker)
        return;
    const QStringList kept = m_worker->keptFiles();
    m_thread->quit();
    m_thread->wait();
    m_thread->deleteLater();
    m_thread = nullptr;
    m_worker = nullptr;
    m_progress->setVisible(false);
    if (TransmitterWizard *w = transmitterWizard())
        w->setBusy(false);
    if (!m_driveGone)
        m_model->setInstalled(AppManifest::readAll(m_root));
    else
        setStatus(tr("The transmitter was disconnected."));
    updateButtons();
    emit completeChanged();
    Prompter *prompter = transmitterWizard() ? transmitterWizard()->prompter() : Prompter::standard();
    if (!ok && !m_errorText.isEmpty() && !m_driveGone)
        prompter->error(this, m_errorTitle, m_errorText);
    else if (!kept.isEmpty())
        prompter->information(this, tr("Files kept"),
                              tr("These files were changed on the transmitter after the app was installed "
                                 "and were left there:\n%1")
                                  .arg(kept.join(QLatin1Char('\n'))));
    emit workFinished(ok);
}

bool AppManagerPage::askCancel()
{
    if (!isWorking())
        return false;
    Prompter *prompter = transmitterWizard() ? transmitterWizard()->prompter() : Prompter::standard();
    const auto answer =
        prompter->question(this, tr("Confirmation"), tr("Do you really want to abort the running operation?"),
                           QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    if (answer != QMessageBox::Yes || !isWorking())
        return false;
    m_worker->cancel();
    return true;
}

void AppManagerPage::onDriveRemoved()
{
    m_driveGone = true;
    if (m_worker)
        m_worker->cancel();
    m_model->setInstalled({});
    updateButtons();
    setStatus(tr("The transmitter was disconnected."));
}

void AppManagerPage::stopWork()
{
    m_listDownloader->abort();
    if (!m_thread)
        return;
    // Nobody is left to answer the worker's end: it ends its thread itself once its file in hand stops.
    connect(m_worker, &AppInstaller::finished, m_thread, &QThread::quit, Qt::DirectConnection);
    if (m_workerEnded)
        m_thread->quit();
    m_worker->cancel();
    if (!m_thread->wait(20000)) {
        m_thread->quit();
        m_thread->wait();
    }
}
