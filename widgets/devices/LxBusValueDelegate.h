#pragma once

#include <QStyledItemDelegate>

// Editors for the value column of LxBusTableModel: a list for choice values, otherwise a number box held to
// the parameter's limits and decimals.
class LxBusValueDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const override;
};
