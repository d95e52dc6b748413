#pragma once

#include "database/ModelData.h"

#include <QAbstractTableModel>
#include <QVector>

class DatabaseManager;

// The list of models: one row per model, sorted by name without regard to case.
class ModelTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column
    {
        NameColumn,
        FilenameColumn,
        DescriptionColumn,
        ScreenshotColumn,
        DataColumn,
        LayoutColumn,
        CreatedColumn,
        ModifiedColumn,
        ColumnCount
    };
    static constexpr int IdRole = Qt::UserRole + 1;

    explicit ModelTableModel(DatabaseManager *database, QObject *parent = nullptr);

    // Reads the list again; false (keeping the rows shown) when the database fails.
    bool reload();
    QString lastError() const { return m_lastError; }
    const ModelData &modelAt(int row) const { return m_models.at(row); }
    // -1 when the model is not listed.
    int rowOfModel(int modelId) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    // "%.0f %s" of a byte count divided by 1000 while above 1000 (B, kB, MB, GB, TB).
    static QString formatSize(qint64 bytes);

private:
    DatabaseManager *m_db;
    QVector<ModelData> m_models;
    QString m_lastError;
};
