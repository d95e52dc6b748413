#include "transmitter/TransmitterLogsModel.h"

#include "database/DefaultLayout.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QRegularExpression>

#include <algorithm>

namespace {
const QString kDayFormat = QStringLiteral("yyyyMMdd");
const QString kTimeFormat = QStringLiteral("hh-mm-ss.log");
} // namespace

// The icons live in this static library's resources, which a program must pull in by name.
static void initTransmitterResources()
{
    Q_INIT_RESOURCE(transmitter);
}

struct TransmitterLogsModel::Node
{
    Node *parent = nullptr;
    int row = 0;
    bool folder = false;
    QString name;
    QString path;
    qint64 size = 0;
    QDateTime modified;
    QDate date; // day folders
    QTime time; // logs
    Qt::CheckState check = Qt::Unchecked;
    std::vector<std::unique_ptr<Node>> children;
};

TransmitterLogsModel::TransmitterLogsModel(QObject *parent) : QAbstractItemModel(parent)
{
    initTransmitterResources();
}

TransmitterLogsModel::~TransmitterLogsModel() = default;

bool TransmitterLogsModel::acceptsComponent(const QString &name)
{
    static const QRegularExpression pattern(QStringLiteral("^Log$|^\\d{8}$|^\\d{2}-\\d{2}-\\d{2}\\.log$"));
    return pattern.match(name).hasMatch();
}

QDateTime TransmitterLogsModel::logDateTime(const QString &dayFolder, const QString &fileName)
{
    const QDate date = QDate::fromString(dayFolder, kDayFormat);
    const QTime time = QTime::fromString(fileName, kTimeFormat);
    if (!date.isValid() || !time.isValid())
        return QDateTime();
    return QDateTime(date, time);
}

void TransmitterLogsModel::setDriveRoot(const QString &root)
{
    beginResetModel();
    m_root = root;
    scan(nullptr);
    endResetModel();
}

void TransmitterLogsModel::reload()
{
    beginResetModel();
    std::vector<std::unique_ptr<Node>> old;
    old.swap(m_days);
    scan(&old);
    endResetModel();
}

void TransmitterLogsModel::scan(const std::vector<std::unique_ptr<Node>> *keep)
{
    m_days.clear();
    if (m_root.isEmpty())
        return;
    // Marks of logs still there survive a reload; folders take their state from their logs again.
    QHash<QString, Qt::CheckState> marks;
    if (keep) {
        for (const auto &day : *keep) {
            for (const auto &log : day->children)
                marks.insert(log->path, log->check);
        }
    }
    const QDir logDir(QDir(m_root).filePath(QStringLiteral("Log")));
    const QDir::SortFlags order = QDir::Name;
    const QFileInfoList days = logDir.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, order);
    for (const QFileInfo &dayInfo : days) {
        if (!acceptsComponent(dayInfo.fileName()))
            continue;
        auto day = std::make_unique<Node>();
        day->folder = true;
        day->name = dayInfo.fileName();
        day->path = dayInfo.absoluteFilePath();
        day->modified = dayInfo.lastModified();
        day->date = QDate::fromString(day->name, kDayFormat);
        day->row = int(m_days.size());
        const QFileInfoList logs =
            QDir(day->path).entryInfoList({QStringLiteral("*.log")}, QDir::Files, order);
        for (const QFileInfo &logInfo : logs) {
            if (!acceptsComponent(logInfo.fileName()))
                continue;
            auto log = std::make_unique<Node>();
            log->parent = day.get();
            log->row = int(day->children.size());
            log->name = logInfo.fileName();
            log->path = logInfo.absoluteFilePath();
            log->size = logInfo.size();
            log->modified = logInfo.lastModified();
            log->time = QTime::fromString(log->name, kTimeFormat);
            log->check = marks.value(log->path, Qt::Unchecked);
            day->children.push_back(std::move(log));
        }
        updateFolderState(day.get());
        m_days.push_back(std::move(day));
    }
}

void TransmitterLogsModel::updateFolderState(Node *folder)
{
    int checked = 0;
    for (const auto &log : folder->children)
        checked += log->check == Qt::Checked ? 1 : 0;
    folder->check = checked == 0                              ? Qt::Unchecked
                    : checked == int(folder->children.size()) ? Qt::Checked
                                                              : Qt::PartiallyChecked;
}

void TransmitterLogsModel::setFolderChecked(Node *folder, Qt::CheckState state)
{
    folder->check = state;
    for (const auto &log : folder->children)
        log->check = state;
    if (!folder->children.empty())
        emit dataChanged(indexOf(folder->children.front().get()), indexOf(folder->children.back().get()),
                         {Qt::CheckStateRole});
}

void TransmitterLogsModel::setAllChecked(bool checked)
{
    for (const auto &day : m_days)
        setFolderChecked(day.get(), checked ? Qt::Checked : Qt::Unchecked);
    if (!m_days.empty())
        emit dataChanged(indexOf(m_days.front().get()), indexOf(m_days.back().get()), {Qt::CheckStateRole});
}

QList<QPersistentModelIndex> TransmitterLogsModel::checkedLogs() const
{
    QList<QPersistentModelIndex> result;
    for (const auto &day : m_days) {
        for (const auto &log : day->children) {
            if (log->check == Qt::Checked)
                result << QPersistentModelIndex(indexOf(log.get()));
        }
    }
    return result;
}

int TransmitterLogsModel::logCount() const
{
    int count = 0;
    for (const auto &day : m_days)
        count += int(day->children.size());
    return count;
}

bool TransmitterLogsModel::isLog(const QModelIndex &index) const
{
    const Node *node = nodeOf(index);
    return node && !node->folder;
}

QFileInfo TransmitterLogsModel::fileInfo(const QModelIndex &index) const
{
    const Node *node = nodeOf(index);
    return node ? QFileInfo(node->path) : QFileInfo();
}

QDateTime TransmitterLogsModel::logDateTime(const QModelIndex &index) const
{
    const Node *node = nodeOf(index);
    if (!node || node->folder)
        return QDateTime();
    return logDateTime(node->parent->name, node->name);
}

QModelIndex TransmitterLogsModel::indexForPath(const QString &path) const
{
    const QString clean = QFileInfo(path).absoluteFilePath();
    for (const auto &day : m_days) {
        if (day->path == clean)
            return indexOf(day.get());
        if (!clean.startsWith(day->path + QLatin1Char('/')))
            continue;
        for (const auto &log : day->children) {
            if (log->path == clean)
                return indexOf(log.get());
        }
    }
    return QModelIndex();
}

TransmitterLogsModel::Node *TransmitterLogsModel::nodeOf(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    return static_cast<Node *>(index.internalPointer());
}

QModelIndex TransmitterLogsModel::indexOf(const Node *node, int column) const
{
    return node ? createIndex(node->row, column, const_cast<Node *>(node)) : QModelIndex();
}

QModelIndex TransmitterLogsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (row < 0 || column < 0 || column >= ColumnCount)
        return QModelIndex();
    if (!parent.isValid())
        return row < int(m_days.size()) ? indexOf(m_days[size_t(row)].get(), column) : QModelIndex();
    const Node *node = nodeOf(parent);
    if (!node || !node->folder || parent.column() != 0 || row >= int(node->children.size()))
        return QModelIndex();
    return indexOf(node->children[size_t(row)].get(), column);
}

QModelIndex TransmitterLogsModel::parent(const QModelIndex &child) const
{
    const Node *node = nodeOf(child);
    return node && node->parent ? indexOf(node->parent) : QModelIndex();
}

int TransmitterLogsModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_days.size());
    const Node *node = nodeOf(parent);
    return node && node->folder && parent.column() == 0 ? int(node->children.size()) : 0;
}

int TransmitterLogsModel::columnCount(const QModelIndex &) const
{
    return ColumnCount;
}

const TransmitterLogsModel::Header &TransmitterLogsModel::header(const Node *node) const
{
    auto it = m_headers.find(node->path);
    if (it != m_headers.end() && it->size == node->size && it->modified == node->modified)
        return *it;
    Header h;
    h.size = node->size;
    h.modified = node->modified;
    // The reader's rules for "#" lines: the first names the model, later ones make up the description.
    QFile file(node->path);
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray head = file.read(kHeaderBytes);
        const QList<QByteArray> lines = head.split('\n');
        // A line cut by the byte limit is left out: it could be a half-read name.
        const int whole = head.size() < kHeaderBytes || file.atEnd() ? lines.size() : lines.size() - 1;
        for (int i = 0; i < whole; ++i) {
            const QByteArray &line = lines.at(i);
            if (!line.startsWith('#'))
                break;
            const QString text = QString::fromUtf8(line).mid(2).trimmed();
            if (i == 0)
                h.name = text;
            else
                h.description += text;
        }
    }
    return *m_headers.insert(node->path, h);
}

ModelData TransmitterLogsModel::modelData(const Node *node) const
{
    const Header &h = header(node);
    ModelData model;
    model.name = h.name;
    model.description = h.description;
    // Where the model was first met, relative to the drive.
    model.filename = QStringLiteral("Log/%1/%2").arg(node->parent->name, node->name);
    model.layout = DefaultLayout::document();
    model.screenshot = QByteArray("");
    model.data = QByteArray("");
    return model;
}

QVariant TransmitterLogsModel::data(const QModelIndex &index, int role) const
{
    const Node *node = nodeOf(index);
    if (!node)
        return QVariant();
    switch (role) {
    case Qt::DisplayRole:
        if (index.column() == ModelColumn)
            return node->folder ? QVariant() : QVariant(header(node).name);
        if (node->folder)
            return node->date.isValid() ? node->date.toString(QStringLiteral("yyyy-MM-dd")) : node->name;
        return node->time.isValid() ? node->time.toString(QStringLiteral("hh:mm:ss")) : node->name;
    case Qt::DecorationRole:
        // Icons need a graphical application; the command line asks for none.
        if (index.column() != DateColumn || !qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
            return QVariant();
        if (m_chartIcon.isNull()) {
            m_chartIcon = QIcon(QStringLiteral(":/transmitter/icons/chart16x16.png"));
            m_folderIcon = QIcon(QStringLiteral(":/transmitter/icons/folder16x16.png"));
        }
        return node->folder ? m_folderIcon : m_chartIcon;
    case Qt::CheckStateRole:
        return index.column() == DateColumn ? QVariant(int(node->check)) : QVariant();
    case Qt::ToolTipRole:
        return QDir::toNativeSeparators(node->path);
    case DateRole:
        return node->folder && node->date.isValid() ? QVariant(node->date) : QVariant();
    case TimeRole:
        return !node->folder && node->time.isValid() ? QVariant(node->time) : QVariant();
    case ModelDataRole:
        return node->folder ? QVariant() : QVariant::fromValue(modelData(node));
    case FilePathRole:
        return node->path;
    default:
        return QVariant();
    }
}

bool TransmitterLogsModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    Node *node = nodeOf(index);
    if (!node || role != Qt::CheckStateRole || index.column() != DateColumn)
        return false;
    const Qt::CheckState state =
        static_cast<Qt::CheckState>(value.toInt()) == Qt::Unchecked ? Qt::Unchecked : Qt::Checked;
    if (node->folder) {
        setFolderChecked(node, state);
        emit dataChanged(index, index, {Qt::CheckStateRole});
        return true;
    }
    node->check = state;
    emit dataChanged(index, index, {Qt::CheckStateRole});
    const QModelIndex day = indexOf(node->parent);
    updateFolderState(node->parent);
    emit dataChanged(day, day, {Qt::CheckStateRole});
    return true;
}

Qt::ItemFlags TransmitterLogsModel::flags(const QModelIndex &index) const
{
    if (!nodeOf(index))
        return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == DateColumn)
        f |= Qt::ItemIsUserCheckable;
    return f;
}

QVariant TransmitterLogsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case DateColumn:
        return tr("Date");
    case ModelColumn:
        return tr("Model");
    default:
        return QVariant();
    }
}
