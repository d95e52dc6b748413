#include "widgets/models/DialogLoadLog.h"

#include "database/ModelFolderTree.h"
#include "database/ModelLibrary.h"
#include "database/ModelTableModel.h"
#include "telemetry/TelemetryDataPackage.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListView>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QTreeView>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
enum FileColumn
{
    NameColumn,
    DateColumn,
    SizeColumn
};

QStringList localFiles(const QMimeData *data)
{
    QStringList files;
    if (data && data->hasUrls()) {
        for (const QUrl &url : data->urls()) {
            if (url.isLocalFile() && !QFileInfo(url.toLocalFile()).isDir())
                files << url.toLocalFile();
        }
    }
    return files;
}

bool holdsTelemetry(const TelemetryDataPackage *package)
{
    return package && (package->sampleCount() > 0 || !package->messages().isEmpty());
}
} // namespace

DialogLoadLog::DialogLoadLog(ModelLibrary *library, int activeModelId, const QStringList &files,
                             const TelemetryDataPackage *openLog, QWidget *parent)
    : QDialog(parent), m_library(library), m_openLog(holdsTelemetry(openLog) ? openLog : nullptr),
      m_models(new ModelTableModel(library->database(), this)), m_tree(new ModelFolderTree(library, this)),
      m_modelView(new QListView(this)), m_folderView(new QTreeView(this)), m_fileList(new QTreeWidget(this)),
      m_remove(new QPushButton(tr("Remove"), this)), m_target(new QLabel(this)),
      m_hint(new QLabel(tr("Hint: Select a model first."), this)),
      m_buttons(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this))
{
    setWindowTitle(tr("Load log files"));
    setAcceptDrops(true);

    m_modelView->setObjectName(QStringLiteral("models"));
    m_modelView->setModel(m_models);
    m_modelView->setModelColumn(ModelTableModel::NameColumn);
    m_modelView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_modelView->setEditTriggers(QAbstractItemView::NoEditTriggers);

    m_folderView->setObjectName(QStringLiteral("folders"));
    m_folderView->setModel(m_tree);
    m_folderView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_folderView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_folderView->setColumnHidden(ModelFolderTree::DetailsColumn, true);
    m_folderView->header()->setStretchLastSection(true);

    m_fileList->setObjectName(QStringLiteral("files"));
    m_fileList->setHeaderLabels({tr("File"), tr("Date"), tr("Size")});
    m_fileList->setRootIsDecorated(false);
    m_fileList->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_fileList->header()->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    m_fileList->header()->setStretchLastSection(false);
    auto *add = new QPushButton(tr("Add files..."), this);
    add->setObjectName(QStringLiteral("addFiles"));
    m_remove->setObjectName(QStringLiteral("removeFiles"));
    m_target->setObjectName(QStringLiteral("target"));
    m_hint->setObjectName(QStringLiteral("hint"));

    auto *modelGroup = new QGroupBox(tr("Model"), this);
    auto *modelLayout = new QVBoxLayout(modelGroup);
    modelLayout->addWidget(m_modelView);
    auto *folderGroup = new QGroupBox(tr("Folder"), this);
    auto *folderLayout = new QVBoxLayout(folderGroup);
    folderLayout->addWidget(m_folderView);
    auto *where = new QHBoxLayout;
    where->addWidget(modelGroup, 1);
    where->addWidget(folderGroup, 2);

    auto *sourceGroup = new QGroupBox(tr("Logs"), this);
    auto *sourceLayout = new QVBoxLayout(sourceGroup);
    sourceLayout->addWidget(m_fileList);
    auto *fileButtons = new QHBoxLayout;
    fileButtons->addWidget(add);
    fileButtons->addWidget(m_remove);
    fileButtons->addStretch(1);
    sourceLayout->addLayout(fileButtons);
    if (m_openLog) {
        const QString name = m_openLog->name().isEmpty() ? tr("unnamed") : m_openLog->name();
        m_openLogBox = new QCheckBox(tr("The open log: %1").arg(name), this);
        m_openLogBox->setObjectName(QStringLiteral("openLog"));
        sourceLayout->addWidget(m_openLogBox);
        // A click is the user's decision; from then on adding files leaves the box alone.
        connect(m_openLogBox, &QCheckBox::clicked, this, [this] { m_openLogChosen = true; });
        connect(m_openLogBox, &QCheckBox::toggled, this, &DialogLoadLog::updateState);
    }

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(where, 3);
    layout->addWidget(sourceGroup, 2);
    layout->addWidget(m_target);
    layout->addWidget(m_hint);
    layout->addWidget(m_buttons);

    connect(m_buttons, &QDialogButtonBox::accepted, this, &DialogLoadLog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &DialogLoadLog::reject);
    connect(add, &QPushButton::clicked, this, &DialogLoadLog::addFilesPressed);
    connect(m_remove, &QPushButton::clicked, this, &DialogLoadLog::removeFilesPressed);
    connect(m_fileList, &QTreeWidget::itemSelectionChanged, this, &DialogLoadLog::updateState);
    connect(m_modelView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &DialogLoadLog::modelChanged);
    connect(m_folderView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &DialogLoadLog::updateState);

    if (!m_models->reload())
        m_hint->setText(tr("Unable to read the models: %1").arg(m_models->lastError()));
    addFiles(files);
    selectModel(activeModelId);
    modelChanged();
}

DialogLoadLog::~DialogLoadLog() = default;

void DialogLoadLog::addFiles(const QStringList &paths)
{
    QStringList known;
    for (const QString &f : files())
        known << QFileInfo(f).absoluteFilePath();
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (path.isEmpty() || known.contains(info.absoluteFilePath()))
            continue;
        known << info.absoluteFilePath();
        auto *item = new QTreeWidgetItem(m_fileList);
        item->setData(NameColumn, Qt::UserRole, path);
        item->setText(NameColumn, info.fileName());
        item->setToolTip(NameColumn, QDir::toNativeSeparators(info.absoluteFilePath()));
        // The store dates a file's recording by its modification time; show the date it will get.
        if (info.exists()) {
            item->setText(DateColumn, info.lastModified().toString(QStringLiteral("d-M-yyyy hh:mm:ss")));
            item->setText(SizeColumn, ModelTableModel::formatSize(info.size()));
        }
    }
    if (m_openLogBox && !m_openLogChosen)
        m_openLogBox->setChecked(m_fileList->topLevelItemCount() == 0);
    updateState();
}

QStringList DialogLoadLog::files() const
{
    QStringList paths;
    for (int i = 0; i < m_fileList->topLevelItemCount(); ++i)
        paths << m_fileList->topLevelItem(i)->data(NameColumn, Qt::UserRole).toString();
    return paths;
}

void DialogLoadLog::addFilesPressed()
{
    const QStringList current = files();
    const QString folder = current.isEmpty() ? QString() : QFileInfo(current.constLast()).absolutePath();
    addFiles(prompter()->openFiles(this, tr("Add log files"), folder,
                                   tr("Log files (*.log *.vml *.nmea *.txt);;All files(*.*)")));
}

void DialogLoadLog::removeFilesPressed()
{
    qDeleteAll(m_fileList->selectedItems());
    if (m_openLogBox && !m_openLogChosen)
        m_openLogBox->setChecked(m_fileList->topLevelItemCount() == 0);
    updateState();
}

void DialogLoadLog::dragEnterEvent(QDragEnterEvent *event)
{
    if (!localFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void DialogLoadLog::dropEvent(QDropEvent *event)
{
    const QStringList dropped = localFiles(event->mimeData());
    if (dropped.isEmpty())
        return;
    addFiles(dropped);
    event->acceptProposedAction();
}

int DialogLoadLog::selectedModel() const
{
    const QModelIndexList rows = m_modelView->selectionModel()->selectedIndexes();
    return rows.isEmpty() ? -1 : m_models->modelAt(rows.constFirst().row()).id;
}

int DialogLoadLog::selectedFolder() const
{
    const QModelIndexList rows = m_folderView->selectionModel()->selectedRows(ModelFolderTree::FileColumn);
    if (rows.isEmpty())
        return -1;
    const QModelIndex item = rows.constFirst();
    // A log stands for the folder it lies in; the top level has no item, and so the id -1.
    return m_tree->itemId(m_tree->itemKind(item) == ModelFolderTree::FolderItem ? item : item.parent());
}

void DialogLoadLog::selectModel(int modelId)
{
    const int row = m_models->rowOfModel(modelId);
    if (row < 0)
        m_modelView->clearSelection();
    else
        m_modelView->setCurrentIndex(m_models->index(row, ModelTableModel::NameColumn));
}

void DialogLoadLog::selectFolder(int folderId)
{
    const QModelIndex item = m_tree->indexOf(ModelFolderTree::FolderItem, folderId);
    if (item.isValid())
        m_folderView->setCurrentIndex(item);
    else
        m_folderView->clearSelection();
}

void DialogLoadLog::modelChanged()
{
    const int id = selectedModel();
    if (id != m_tree->modelId() && !m_tree->setModelId(id)) {
        prompter()->error(this, tr("Error"),
                          tr("<b>Unable to read the folders of the model:</b><ul><li>%1</li></ul>")
                              .arg(m_tree->lastError().toHtmlEscaped()));
    }
    m_folderView->expandAll();
    updateState();
}

QString DialogLoadLog::targetText() const
{
    const int row = m_models->rowOfModel(selectedModel());
    if (row < 0)
        return QString();
    QStringList path{m_models->modelAt(row).name};
    QStringList folders;
    for (QModelIndex f = m_tree->indexOf(ModelFolderTree::FolderItem, selectedFolder()); f.isValid();
         f = f.parent())
        folders.prepend(f.data().toString());
    return tr("Store in: %1").arg((path + folders).join(QStringLiteral(" / ")));
}

void DialogLoadLog::updateState()
{
    const bool haveModel = selectedModel() >= 0;
    const bool haveLogs = m_fileList->topLevelItemCount() > 0 || (m_openLogBox && m_openLogBox->isChecked());
    m_hint->setVisible(!haveModel);
    m_target->setText(targetText());
    m_target->setVisible(haveModel);
    m_remove->setEnabled(!m_fileList->selectedItems().isEmpty());
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(haveModel && haveLogs);
}

void DialogLoadLog::accept()
{
    const int modelId = selectedModel();
    const QStringList paths = files();
    const bool storeOpenLog = m_openLogBox && m_openLogBox->isChecked();
    const int total = paths.size() + (storeOpenLog ? 1 : 0);
    if (modelId < 0 || total == 0)
        return;
    const int folderId = selectedFolder();
    const QString modelName = m_models->modelAt(m_models->rowOfModel(modelId)).name;

    QProgressDialog progress(tr("Storing logs..."), tr("Cancel"), 0, total, this);
    progress.setWindowTitle(windowTitle());
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500);
    QStringList failures;
    QStringList notes;
    QStringList storedPaths;
    int stored = 0;
    int step = 0;
    bool cancelled = false;
    // Files are checked for cancelling between one another: a file's own transaction always ends.
    for (const QString &path : paths) {
        if (progress.wasCanceled()) {
            cancelled = true;
            break;
        }
        progress.setLabelText(tr("Storing %1...").arg(QFileInfo(path).fileName()));
        QString warning;
        if (m_library->importFile(path, modelId, folderId, &warning) < 0) {
            QString error = m_library->lastError();
            if (error.startsWith(path + QStringLiteral(": ")))
                error = error.mid(path.size() + 2);
            failures << QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(path), error);
        } else {
            ++stored;
            storedPaths << path;
            if (!warning.isEmpty())
                notes << QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(path), warning);
        }
        progress.setValue(++step);
    }
    if (storeOpenLog && !cancelled && !progress.wasCanceled()) {
        progress.setLabelText(tr("Storing the open log..."));
        QString name = m_openLog->name().isEmpty() ? tr("Recording") : m_openLog->name();
        // Stored as a native log, whatever it was read from.
        if (!name.endsWith(QStringLiteral(".log"), Qt::CaseInsensitive))
            name += QStringLiteral(".log");
        if (m_library->storeLog(*m_openLog, modelId, folderId, name) < 0) {
            failures << tr("The open log: %1").arg(m_library->lastError());
        } else {
            ++stored;
            // Stored once is enough: another OK must not store it again.
            m_openLogChosen = true;
            m_openLogBox->setChecked(false);
        }
        progress.setValue(++step);
    } else if (storeOpenLog) {
        cancelled = true;
    }
    progress.reset();

    for (int i = m_fileList->topLevelItemCount() - 1; i >= 0; --i) {
        if (storedPaths.contains(m_fileList->topLevelItem(i)->data(NameColumn, Qt::UserRole).toString()))
            delete m_fileList->topLevelItem(i);
    }
    m_stored += stored;

    const auto list = [](const QStringList &lines) {
        QString html = QStringLiteral("<ul>");
        for (const QString &line : lines)
            html += QStringLiteral("<li>%1</li>").arg(line.toHtmlEscaped());
        return html + QStringLiteral("</ul>");
    };
    QString text =
        (stored == 1 ? tr("Stored 1 log under model %1.").arg(modelName.toHtmlEscaped())
                     : tr("Stored %1 logs under model %2.").arg(stored).arg(modelName.toHtmlEscaped()));
    if (!notes.isEmpty())
        text += list(notes);
    if (!failures.isEmpty())
        text += tr("<br><b>Unable to store:</b>") + list(failures);
    if (cancelled)
        text += tr("<br>Cancelled: %1 more not stored.").arg(total - step);
    if (failures.isEmpty() && !cancelled)
        prompter()->information(this, windowTitle(), text);
    else
        prompter()->warning(this, windowTitle(), text);

    if (stored == 0) {
        updateState();
        return;
    }
    emit logsStored(modelId);
    QDialog::accept();
}
