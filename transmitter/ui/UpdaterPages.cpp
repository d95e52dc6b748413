#include "transmitter/ui/UpdaterPages.h"

#include "database/ModelTableModel.h"
#include "tools/FileDownloader.h"
#include "tools/UpdateEndpoints.h"
#include "transmitter/ui/TransmitterWizard.h"
#include "widgets/layout/Prompter.h"

#include <QComboBox>
#include <QDebug>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMetaEnum>
#include <QPixmapCache>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyle>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
constexpr int kFileIndexRole = Qt::UserRole + 1;

QString pageTitle()
{
    return UpdateIntroPage::tr("HC/HS Transmitter Update");
}

// "name (variant n, date)" as the update type choice and the list of updates show it.
QString updateLabel(const TxCatalogue::Update &u)
{
    const QString date = u.releaseDate.isValid() ? TxCatalogue::shortDate(u.releaseDate.date())
                                                 : UpdateIntroPage::tr("no date");
    return UpdateIntroPage::tr("%1 (variant %2, %3)").arg(u.name).arg(u.variant).arg(date);
}
} // namespace

// --- intro ---

UpdateIntroPage::UpdateIntroPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(pageTitle());
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(TransmitterWizard::wrappedLabel(
        tr("This wizard will guide you through the updating process of your Vexo HC/HS transmitter.")));
    layout->addStretch();
}

int UpdateIntroPage::nextId() const
{
    return TransmitterWizard::UpdateCheckId;
}

// --- check ---

UpdateCheckPage::UpdateCheckPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(pageTitle());
    m_device = new QLabel;
    m_device->setTextFormat(Qt::RichText);
    m_status = TransmitterWizard::wrappedLabel(QString());
    m_list = new QListWidget;
    m_downloader = new FileDownloader(this);
    m_downloader->setMaxSize(TxCatalogue::kMaxListBytes);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_device);
    layout->addWidget(m_status);
    layout->addWidget(m_list, 1);
    connect(m_downloader, &AbstractDownloader::finished, this, &UpdateCheckPage::onDownloadFinished);
}

QUrl UpdateCheckPage::listUrl()
{
    const QUrl folder = UpdateEndpoints::txUpdateFolder();
    return folder.isEmpty() ? QUrl() : folder.resolved(QUrl(QStringLiteral("update.json")));
}

QString UpdateCheckPage::statusText() const
{
    return m_status->text();
}

QString UpdateCheckPage::deviceText() const
{
    return m_device->text();
}

void UpdateCheckPage::initializePage()
{
    TransmitterWizard *w = TransmitterWizard::of(this);
    connect(w, &TransmitterWizard::driveRemoved, this, &UpdateCheckPage::onDriveRemoved,
            Qt::UniqueConnection);
    const TransmitterInfo &t = w->transmitter();
    const QString model = t.modelName.isEmpty() ? tr("Unknown Transmitter") : t.modelName;
    m_device->setText(QStringLiteral("<h3>%1</h3><div style=\"margin-left:1em;\"><b>%2</b>: %3<br><b>%4</b>: "
                                     "%5.%6</div>")
                          .arg(tr("Detected device"), tr("Model"), model.toHtmlEscaped(), tr("Version"))
                          .arg(t.versionMajor)
                          .arg(t.versionMinor));
    m_updates.clear();
    m_list->clear();
    const QUrl url = listUrl();
    if (url.isEmpty()) {
        // The wizard stays usable: Back leads to the other tools.
        m_status->setText(tr("No update service is configured, so no updates can be searched for. Set "
                             "%1 to the address of the folder holding \"update.json\".")
                              .arg(QLatin1String(UpdateEndpoints::kTxUpdateUrlVariable)));
        emit completeChanged();
        return;
    }
    m_status->setText(tr("Searching for updates..."));
    emit completeChanged();
    m_downloader->download(url);
}

void UpdateCheckPage::onDriveRemoved()
{
    qDebug() << "Device Removed!!!";
}

void UpdateCheckPage::cleanupPage()
{
    // Leaving the page is no download error.
    m_leaving = true;
    if (m_downloader->isRunning())
        m_downloader->abort();
    m_leaving = false;
}

void UpdateCheckPage::onDownloadFinished(bool ok)
{
    if (m_leaving)
        return;
    if (!ok) {
        showError(tr("%1\n%2\n  %3")
                      .arg(m_downloader->url().toDisplayString(),
                           QLatin1String(QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(
                               m_downloader->networkError())),
                           m_downloader->errorString()));
        return;
    }
    TxCatalogue::UpdateList list;
    QString why;
    if (!TxCatalogue::parseUpdateList(m_downloader->data(), &list, &why)) {
        qDebug() << "Invalid json update file data.";
        showError(tr("%1\n%2\n  %3").arg(m_downloader->url().toDisplayString(), tr("Invalid data"), why));
        return;
    }
    m_updates = list.updatesFor(TransmitterWizard::of(this)->transmitter().hwId);
    if (m_updates.isEmpty()) {
        m_status->setText(tr("No updates found for your device."));
    } else {
        m_status->setText(tr("Updates found:"));
        for (const TxCatalogue::Update &u : qAsConst(m_updates))
            m_list->addItem(updateLabel(u));
    }
    emit completeChanged();
    emit dataReady();
}

void UpdateCheckPage::showError(const QString &detail)
{
    const QString text = tr("There was an error during downloading the updates list. Try again later.");
    m_status->setText(text);
    m_updates.clear();
    emit completeChanged();
    TransmitterWizard::of(this)->prompter()->error(
        this, tr("Error"), QStringLiteral("%1\n\n%2\n%3").arg(text, tr("Error message:"), detail));
    emit error(detail);
}

bool UpdateCheckPage::isComplete() const
{
    return !m_updates.isEmpty();
}

int UpdateCheckPage::nextId() const
{
    return TransmitterWizard::UpdateBackupPromptId;
}

// --- backup prompt ---

UpdateBackupPromptPage::UpdateBackupPromptPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(pageTitle());
    m_skip = new QPushButton(tr("Skip the backup"));
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_skip);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(TransmitterWizard::wrappedLabel(tr(
        "Your transmitter settings will be backed up in the next step.\n\nWe strongly recommend you to "
        "perform this step. However, if you have already backed up your settings\nor just don't want to do "
        "the backup you can skip directly to the updater.")));
    layout->addStretch();
    layout->addLayout(buttons);
    connect(m_skip, &QPushButton::clicked, this, [this] {
        m_skipped = true;
        if (wizard())
            wizard()->next();
        m_skipped = false;
    });
}

void UpdateBackupPromptPage::initializePage()
{
    m_skipped = false;
    TransmitterWizard::of(this)->setUpdateBackupName(QString());
}

void UpdateBackupPromptPage::cleanupPage()
{
    // Going back leaves the update: the backup tool behaves as its own again.
    TransmitterWizard::of(this)->setBackupBeforeUpdate(false);
}

bool UpdateBackupPromptPage::validatePage()
{
    TransmitterWizard *w = TransmitterWizard::of(this);
    w->setBackupBeforeUpdate(!m_skipped);
    w->setUpdateBackupName(QString());
    return true;
}

int UpdateBackupPromptPage::nextId() const
{
    return m_skipped ? TransmitterWizard::UpdateOverviewId : TransmitterWizard::BackupSelectionId;
}

// --- overview ---

UpdateOverviewPage::UpdateOverviewPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(pageTitle());
    setCommitPage(true);
    setButtonText(QWizard::CommitButton, tr("Update"));
    m_type = new QComboBox;
    m_tree = new QTreeWidget;
    m_tree->setHeaderLabels({tr("File"), tr("Size")});
    m_tree->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_tree->header()->setStretchLastSection(false);
    m_tree->setIconSize(QSize(16, 16));
    m_description = new QPlainTextEdit;
    m_description->setReadOnly(true);
    m_description->setMaximumHeight(80);
    auto *top = new QHBoxLayout;
    top->addWidget(new QLabel(tr("Select the update type:")));
    top->addWidget(m_type, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_tree, 1);
    layout->addWidget(new QLabel(tr("File description")));
    layout->addWidget(m_description);
    connect(m_type, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &UpdateOverviewPage::showUpdate);
    connect(m_tree, &QTreeWidget::currentItemChanged, this, &UpdateOverviewPage::showDescription);
}

QIcon UpdateOverviewPage::typeIcon(const QString &path, bool large)
{
    const QFileInfo info(path);
#ifdef Q_OS_WIN
    // A program carries its own icon: asked for each file that is there, never cached by suffix.
    if (info.suffix().compare(QLatin1String("exe"), Qt::CaseInsensitive) == 0 && info.isFile())
        return QFileIconProvider().icon(info);
#endif
    const QString key = info.suffix().toLower() + (large ? QLatin1String("_large") : QLatin1String("_small"));
    QPixmap pixmap;
    if (!QPixmapCache::find(key, &pixmap)) {
        const int side = large ? 32 : 16;
        pixmap = QFileIconProvider().icon(info).pixmap(side, side);
        QPixmapCache::insert(key, pixmap);
    }
    return QIcon(pixmap);
}

void UpdateOverviewPage::initializePage()
{
    TransmitterWizard *w = TransmitterWizard::of(this);
    auto *check = qobject_cast<UpdateCheckPage *>(w->page(TransmitterWizard::UpdateCheckId));
    m_updates = check ? check->updates() : QVector<TxCatalogue::Update>();
    const QSignalBlocker block(m_type);
    m_type->clear();
    for (const TxCatalogue::Update &u : qAsConst(m_updates))
        m_type->addItem(updateLabel(u));
    if (check && check->list()->currentRow() >= 0)
        m_type->setCurrentIndex(check->list()->currentRow());
    showUpdate(m_type->currentIndex());
}

void UpdateOverviewPage::showUpdate(int index)
{
    m_tree->clear();
    m_fileItems.clear();
    m_description->clear();
    if (index < 0 || index >= m_updates.size())
        return;
    const QString root = TransmitterWizard::of(this)->transmitter().rootPath;
    const TxCatalogue::Update &u = m_updates.at(index);
    QHash<QString, QTreeWidgetItem *> folders;
    for (int i = 0; i < u.files.size(); ++i) {
        const TxCatalogue::FileEntry &f = u.files.at(i);
        const QStringList parts = f.destination.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        QTreeWidgetItem *parent = nullptr;
        QString path;
        for (int p = 0; p + 1 < parts.size(); ++p) {
            path += parts.at(p) + QLatin1Char('/');
            QTreeWidgetItem *&folder = folders[path];
            if (!folder) {
                folder = parent ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(m_tree);
                folder->setText(0, parts.at(p));
                folder->setIcon(0, QFileIconProvider().icon(QFileIconProvider::Folder));
                folder->setExpanded(true);
            }
            parent = folder;
        }
        auto *item = parent ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(m_tree);
        item->setText(0, parts.isEmpty() ? f.destination : parts.last());
        item->setText(1, f.size >= 0 ? ModelTableModel::formatSize(f.size) : QString());
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setIcon(0, typeIcon(root + QLatin1Char('/') + f.destination));
        item->setData(0, kFileIndexRole, i);
        item->setToolTip(0, f.destination);
        // A file the list describes unsafely is shown as such; the update will not start with it.
        const QString problem = UpdateWorker::problemOf(f);
        if (!problem.isEmpty()) {
            item->setIcon(0, style()->standardIcon(QStyle::SP_MessageBoxWarning));
            item->setForeground(0, QBrush(Qt::red));
            item->setToolTip(0, problem);
        }
        if (TxCatalogue::isOptional(f.flags)) {
            item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
            item->setCheckState(0, f.flags == TxCatalogue::FileFlag::Optional ? Qt::Checked : Qt::Unchecked);
        }
        m_fileItems << item;
    }
    m_tree->expandAll();
    m_tree->resizeColumnToContents(1);
}

void UpdateOverviewPage::showDescription()
{
    const QTreeWidgetItem *item = m_tree->currentItem();
    const QVariant index = item ? item->data(0, kFileIndexRole) : QVariant();
    const TxCatalogue::Update u = currentUpdate();
    m_description->setPlainText(index.isValid() && index.toInt() < u.files.size()
                                    ? u.files.at(index.toInt()).description
                                    : QString());
}

QTreeWidgetItem *UpdateOverviewPage::fileItem(int index) const
{
    return index >= 0 && index < m_fileItems.size() ? m_fileItems.at(index) : nullptr;
}

TxCatalogue::Update UpdateOverviewPage::currentUpdate() const
{
    const int index = m_type->currentIndex();
    return index >= 0 && index < m_updates.size() ? m_updates.at(index) : TxCatalogue::Update();
}

QVector<TxCatalogue::FileEntry> UpdateOverviewPage::selectedFiles() const
{
    const TxCatalogue::Update u = currentUpdate();
    QVector<TxCatalogue::FileEntry> chosen;
    for (int i = 0; i < u.files.size() && i < m_fileItems.size(); ++i) {
        if (!TxCatalogue::isOptional(u.files.at(i).flags) || m_fileItems.at(i)->checkState(0) == Qt::Checked)
            chosen << u.files.at(i);
    }
    return chosen;
}

bool UpdateOverviewPage::validatePage()
{
    const QVector<TxCatalogue::FileEntry> chosen = selectedFiles();
    QStringList problems;
    for (const TxCatalogue::FileEntry &file : chosen) {
        const QString problem = UpdateWorker::problemOf(file);
        if (!problem.isEmpty())
            problems << problem;
    }
    if (!problems.isEmpty()) {
        TransmitterWizard::of(this)->prompter()->warning(
            this, tr("Updater error."),
            tr("This update cannot be installed; nothing was written to the transmitter.\n\n%1")
                .arg(problems.join(QLatin1Char('\n'))));
        return false;
    }
    if (!chosen.isEmpty())
        return true;
    TransmitterWizard::of(this)->prompter()->warning(
        this, tr("Nothing selected"),
        tr("Nothing was selected for the update. Please select at least one item."));
    return false;
}

int UpdateOverviewPage::nextId() const
{
    return TransmitterWizard::UpdateProgressId;
}

// --- progress ---

UpdateProgressPage::UpdateProgressPage(QWidget *parent)
    : WorkerProgressPage(tr("Do you really want to abort the updating process?"), parent)
{
    setTitle(pageTitle());
}

UpdateProgressPage::~UpdateProgressPage()
{
    shutDown();
}

int UpdateProgressPage::nextId() const
{
    return TransmitterWizard::UpdateFinishId;
}

QObject *UpdateProgressPage::createWorker()
{
    TransmitterWizard *w = transmitterWizard();
    auto *overview = qobject_cast<UpdateOverviewPage *>(w->page(TransmitterWizard::UpdateOverviewId));
    UpdateWorker::Request request;
    request.root = w->transmitter().rootPath;
    request.dataFolder = w->dataFolder();
    request.updateId = overview->currentUpdate().id;
    request.files = overview->selectedFiles();
    auto *worker = new UpdateWorker(request);
    m_worker = worker;
    setCanceller([worker] { worker->cancel(); });
    connect(worker, &UpdateWorker::error, this, &UpdateProgressPage::onUpdateError);
    connect(w, &TransmitterWizard::driveRemoved, this, &UpdateProgressPage::onDriveRemoved,
            Qt::UniqueConnection);
    return worker;
}

void UpdateProgressPage::onDriveRemoved()
{
    // Nothing more can be written; the file being fetched keeps its old content.
    if (isRunning() && m_worker) {
        appendDetails(tr("The transmitter was removed: the update stops."));
        m_worker->cancel();
    }
}

void UpdateProgressPage::onUpdateError(UpdateWorker::ErrorType type, const QString &text)
{
    const bool canceled = type == UpdateWorker::Canceled;
    reportError(canceled, text);
    if (canceled) {
        setStatusText(text);
        appendDetails(text);
    }
}

// --- finish ---

UpdateFinishPage::UpdateFinishPage(QWidget *parent) : QWizardPage(parent)
{
    setTitle(tr("Update finished."));
    setFinalPage(true);
    m_backup = TransmitterWizard::wrappedLabel(QString());
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(
        TransmitterWizard::wrappedLabel(tr("The update files have been successfully instaled to the "
                                           "transmitter. Please disconnect it from your PC and "
                                           "reboot.")));
    layout->addWidget(m_backup);
    layout->addStretch();
}

void UpdateFinishPage::initializePage()
{
    const QString name = TransmitterWizard::of(this)->updateBackupName();
    m_backup->setText(name.isEmpty()
                          ? tr("No backup was made (skipped).")
                          : tr("Before the update %1 was made. To undo the update, restore it with "
                               "\"Recover the Transmitter\".")
                                .arg(name));
}

QString UpdateFinishPage::backupText() const
{
    return m_backup->text();
}
