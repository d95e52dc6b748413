#pragma once

#include "telemetry/TelemetrySimplePair.h"

#include <QAbstractListModel>
#include <QVector>

// The rows of the values window, for its QML scene ("dataModel"): one variable each, with the texts the
// scene shows. The window fills and refreshes the rows; the scene reorders them by dragging (move).
class SensorModel : public QAbstractListModel
{
    Q_OBJECT
public:
    // In this order, as the scene knows them.
    enum Role
    {
        LabelRole = Qt::UserRole + 1,
        UnitRole,
        ValueRole,
        MinimumRole,
        MaximumRole,
        ParamRole,
        DecimalsRole,
        NameRole
    };

    struct Row
    {
        TelemetrySimplePair pair;
        QString label;
        QString unit;
        QString value; // display strings, formatted with the variable's decimals
        QString minimum;
        QString maximum;
        int decimals = 0;
        QString name; // the sensor's
    };

    explicit SensorModel(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QVector<Row> &rows() const { return m_rows; }
    int indexOf(const TelemetrySimplePair &pair) const;
    // False (nothing added) for a variable that already has a row.
    bool append(const Row &row);
    // Replaces a row's texts; the scene hears only of the roles that changed.
    void setRow(int index, const Row &row);

    // Moves the row at from to position to (the scene's drag reordering); out-of-range indexes do nothing.
    Q_INVOKABLE void move(int from, int to);
    Q_INVOKABLE void remove(int index);
    Q_INVOKABLE void clear();

signals:
    // The rows' order changed (moved, removed or cleared), for the window's layout.
    void orderChanged();

private:
    QVector<Row> m_rows;
};
