#include "database/ModelTableModel.h"

#include "database/DatabaseManager.h"

#include <algorithm>

ModelTableModel::ModelTableModel(DatabaseManager *database, QObject *parent)
    : QAbstractTableModel(parent), m_db(database)
{
}

QString ModelTableModel::formatSize(qint64 bytes)
{
    static const char *const units[] = {"B", "kB", "MB", "GB", "TB"};
    double size = double(bytes);
    int unit = 0;
    while (size > 1000 && unit < 4) {
        size /= 1000;
        ++unit;
    }
    return QString::asprintf("%.0f %s", size, units[unit]);
}

bool ModelTableModel::reload()
{
    bool ok = false;
    QVector<ModelData> models = m_db->models(&ok);
    if (!ok) {
        m_lastError = m_db->lastError();
        return false;
    }
    // SQLite's NOCASE folds ASCII only; this also folds accented capitals, keeping the database order
    // for names equal apart from case.
    std::stable_sort(models.begin(), models.end(), [](const ModelData &a, const ModelData &b) {
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    });
    beginResetModel();
    m_models = models;
    endResetModel();
    return true;
}

int ModelTableModel::rowOfModel(int modelId) const
{
    for (int i = 0; i < m_models.size(); ++i) {
        if (m_models.at(i).id == modelId)
            return i;
    }
    return -1;
}

int ModelTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_models.size();
}

int ModelTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant ModelTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_models.size())
        return QVariant();
    const ModelData &m = m_models.at(index.row());
    if (role == IdRole)
        return m.id;
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return QVariant();
    const QString dateFormat = QStringLiteral("yyyy.MM.dd hh:mm");
    switch (index.column()) {
    case NameColumn:
        return m.name;
    case FilenameColumn:
        return m.filename;
    case DescriptionColumn:
        return m.description;
    case ScreenshotColumn:
        return m.screenshot.isEmpty() ? QString() : formatSize(m.screenshot.size());
    case DataColumn:
        return m.data.isEmpty() ? QString() : formatSize(m.data.size());
    case LayoutColumn:
        return m.layout.isEmpty() ? QString() : formatSize(m.layout.size());
    case CreatedColumn:
        return m.dateCreated.toLocalTime().toString(dateFormat);
    case ModifiedColumn:
        return m.dateModified.toLocalTime().toString(dateFormat);
    default:
        return QVariant();
    }
}

QVariant ModelTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case NameColumn:
        return tr("Model");
    case FilenameColumn:
        return tr("Filename");
    case DescriptionColumn:
        return tr("Description");
    case ScreenshotColumn:
        return tr("Screenshot");
    case DataColumn:
        return tr("Model Data");
    case LayoutColumn:
        return tr("Layout");
    case CreatedColumn:
        return tr("Created");
    case ModifiedColumn:
        return tr("Modified");
    default:
        return QVariant();
    }
}
