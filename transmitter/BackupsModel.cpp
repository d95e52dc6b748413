#include "transmitter/BackupsModel.h"

#include "database/DatabaseManager.h"
#include "database/ModelTableModel.h"
#include "transmitter/TransmitterModels.h"

BackupsModel::BackupsModel(DatabaseManager *database, QObject *parent)
    : QAbstractItemModel(parent), m_db(database)
{
}

bool BackupsModel::reload()
{
    if (!m_db)
        return false;
    bool ok = false;
    QVector<BackupRow> rows = m_db->listBackups(&ok);
    if (!ok)
        return false;
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
    return true;
}

QByteArray BackupsModel::encodeFileList(const QStringList &files)
{
    return files.join(QLatin1Char('\n')).toUtf8();
}

QStringList BackupsModel::decodeFileList(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QModelIndex BackupsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (parent.isValid() || row < 0 || row >= m_rows.size() || column < 0 || column >= ColumnCount)
        return QModelIndex();
    return createIndex(row, column);
}

QModelIndex BackupsModel::parent(const QModelIndex &) const
{
    return QModelIndex();
}

int BackupsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

int BackupsModel::columnCount(const QModelIndex &) const
{
    return ColumnCount;
}

QVariant BackupsModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return QVariant();
    const BackupRow &b = m_rows.at(index.row());
    if (role == IdRole)
        return b.id;
    if (role == Qt::ToolTipRole)
        return b.description;
    if (role != Qt::DisplayRole)
        return QVariant();
    switch (index.column()) {
    case NameColumn:
        return b.name;
    case DateColumn:
        return b.dateCreated.toLocalTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    case TransmitterColumn:
        // An id beyond 16 bits names no model (rather than the one its low bits would).
        return TransmitterModels::modelName(b.hwid <= 0xFFFF ? quint16(b.hwid) : quint16(0));
    case SizeColumn:
        return ModelTableModel::formatSize(b.size);
    default:
        return QVariant();
    }
}

QVariant BackupsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case NameColumn:
        return tr("Backup name");
    case DateColumn:
        return tr("Creation date");
    case TransmitterColumn:
        return tr("Transmitter");
    case SizeColumn:
        return tr("Size");
    default:
        return QVariant();
    }
}
