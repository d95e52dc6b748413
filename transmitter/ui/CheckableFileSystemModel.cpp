#include "transmitter/ui/CheckableFileSystemModel.h"

#include <QDir>
#include <QFileInfo>

namespace {
// A drive's tree is small; the bound only keeps a strange medium from stalling the page.
constexpr int kMaxEntries = 200000;
} // namespace

CheckableFileSystemModel::CheckableFileSystemModel(QObject *parent) : QFileSystemModel(parent)
{
    setFilter(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    setReadOnly(true);
    connect(this, &QAbstractItemModel::rowsInserted, this, &CheckableFileSystemModel::adoptNewRows);
}

QModelIndex CheckableFileSystemModel::setDriveRoot(const QString &root)
{
    m_root = QDir::cleanPath(root);
    m_entries.clear();
    m_order.clear();
    scan(m_root, QString());
    return setRootPath(m_root);
}

void CheckableFileSystemModel::reload()
{
    const QMap<QString, Entry> old = m_entries;
    m_entries.clear();
    m_order.clear();
    scan(m_root, QString());
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it)
        it->checked = old.value(it.key()).checked;
    announceAll(index(m_root));
}

void CheckableFileSystemModel::scan(const QString &folder, const QString &prefix)
{
    const QFileInfoList list =
        QDir(folder).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                                   QDir::DirsFirst | QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo &fi : list) {
        if (m_entries.size() >= kMaxEntries)
            return;
        if (fi.isSymLink())
            continue; // a link could lead off the drive
        Entry e;
        e.folder = fi.isDir();
        e.size = e.folder ? 0 : fi.size();
        const QString key = prefix + fi.fileName() + (e.folder ? QStringLiteral("/") : QString());
        m_entries.insert(key, e);
        m_order << key;
        if (e.folder)
            scan(fi.filePath(), key);
    }
}

QString CheckableFileSystemModel::relativePath(const QModelIndex &index) const
{
    const QString path = filePath(index);
    if (m_root.isEmpty() || !path.startsWith(m_root) || path.size() <= m_root.size())
        return QString();
    QString rel = path.mid(m_root.endsWith(QLatin1Char('/')) ? m_root.size() : m_root.size() + 1);
    if (isDir(index))
        rel += QLatin1Char('/');
    return rel;
}

Qt::CheckState CheckableFileSystemModel::checkState(const QString &relativePath) const
{
    auto it = m_entries.constFind(relativePath);
    if (it == m_entries.constEnd())
        return Qt::Unchecked;
    if (!it->folder)
        return it->checked ? Qt::Checked : Qt::Unchecked;
    // Everything below a folder sorts right after it, as all its keys start with the folder's.
    bool any = false, all = true, inside = false;
    for (++it; it != m_entries.constEnd() && it.key().startsWith(relativePath); ++it) {
        inside = true;
        if (it->folder)
            continue; // a folder's state follows its files (empty folders aside, below)
        any = any || it->checked;
        all = all && it->checked;
    }
    if (!inside)
        return m_entries.value(relativePath).checked ? Qt::Checked : Qt::Unchecked;
    // A folder holding only empty folders follows their own marks.
    if (!any && all) {
        bool anyFolder = false, allFolders = true;
        for (auto f = m_entries.constFind(relativePath) + 1;
             f != m_entries.constEnd() && f.key().startsWith(relativePath); ++f) {
            anyFolder = anyFolder || f->checked;
            allFolders = allFolders && f->checked;
        }
        return allFolders ? Qt::Checked : anyFolder ? Qt::PartiallyChecked : Qt::Unchecked;
    }
    return all ? Qt::Checked : any ? Qt::PartiallyChecked : Qt::Unchecked;
}

void CheckableFileSystemModel::setSubtree(const QString &key, bool checked)
{
    auto it = m_entries.find(key);
    if (it == m_entries.end())
        return;
    it->checked = checked;
    if (!it->folder)
        return;
    for (++it; it != m_entries.end() && it.key().startsWith(key); ++it)
        it->checked = checked;
}

bool CheckableFileSystemModel::setChecked(const QString &relativePath, bool checked)
{
    if (!m_entries.contains(relativePath))
        return false;
    setSubtree(relativePath, checked);
    QString path = relativePath;
    if (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    announceChange(index(m_root + QLatin1Char('/') + path));
    emit checkedByHand();
    return true;
}

void CheckableFileSystemModel::applyScope(BackupRules::Scope scope)
{
    if (scope == BackupRules::Custom)
        return;
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        QString top = it.key().section(QLatin1Char('/'), 0, 0);
        it->checked = BackupRules::scopeTakes(scope, top);
    }
    announceAll(index(m_root));
}

QStringList CheckableFileSystemModel::checkedFiles() const
{
    QStringList out;
    for (const QString &key : m_order) {
        const Entry e = m_entries.value(key);
        if (!e.folder) {
            if (e.checked)
                out << key;
            continue;
        }
        // An empty folder is kept as a folder entry; others come with their files.
        auto next = m_entries.constFind(key) + 1;
        const bool empty = next == m_entries.constEnd() || !next.key().startsWith(key);
        if (empty && e.checked)
            out << key;
    }
    return out;
}

qint64 CheckableFileSystemModel::checkedSize() const
{
    qint64 total = 0;
    for (const Entry &e : m_entries) {
        if (e.checked)
            total += e.size;
    }
    return total;
}

Qt::ItemFlags CheckableFileSystemModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags f = QFileSystemModel::flags(index);
    if (index.isValid() && index.column() == 0)
        f |= Qt::ItemIsUserCheckable;
    return f;
}

QVariant CheckableFileSystemModel::data(const QModelIndex &index, int role) const
{
    if (role == Qt::CheckStateRole && index.column() == 0)
        return checkState(relativePath(index));
    return QFileSystemModel::data(index, role);
}

bool CheckableFileSystemModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::CheckStateRole || index.column() != 0)
        return QFileSystemModel::setData(index, value, role);
    // A partly checked folder clicked becomes checked.
    return setChecked(relativePath(index), value.toInt() != Qt::Unchecked);
}

void CheckableFileSystemModel::announceAll(const QModelIndex &parent)
{
    const int rows = rowCount(parent);
    if (rows == 0)
        return;
    emit dataChanged(index(0, 0, parent), index(rows - 1, 0, parent), {Qt::CheckStateRole});
    for (int r = 0; r < rows; ++r) {
        const QModelIndex child = index(r, 0, parent);
        if (isDir(child))
            announceAll(child);
    }
}

void CheckableFileSystemModel::announceChange(const QModelIndex &changed)
{
    if (!changed.isValid())
        return;
    emit dataChanged(changed, changed, {Qt::CheckStateRole});
    if (isDir(changed))
        announceAll(changed);
    const QModelIndex rootIndex = index(m_root);
    for (QModelIndex up = changed.parent(); up.isValid() && up != rootIndex; up = up.parent())
        emit dataChanged(up, up, {Qt::CheckStateRole});
}

// A file that appears after the drive was read takes the mark of the folder it appears in.
void CheckableFileSystemModel::adoptNewRows(const QModelIndex &parent, int first, int last)
{
    for (int r = first; r <= last; ++r) {
        const QString key = relativePath(index(r, 0, parent));
        if (key.isEmpty() || m_entries.contains(key))
            continue;
        const QString parentKey = relativePath(parent);
        Entry e;
        e.folder = key.endsWith(QLatin1Char('/'));
        e.size = e.folder ? 0 : QFileInfo(filePath(index(r, 0, parent))).size();
        e.checked = !parentKey.isEmpty() && checkState(parentKey) == Qt::Checked;
        m_entries.insert(key, e);
        // Keep the tree order: after the last entry of its folder.
        int at = m_order.size();
        for (int i = 0; i < m_order.size(); ++i) {
            if (m_order.at(i).startsWith(parentKey) && !parentKey.isEmpty())
                at = i + 1;
        }
        m_order.insert(at, key);
    }
}
