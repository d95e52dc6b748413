#pragma once

#include <QStyledItemDelegate>

// One app of the app manager's list: the preview picture (or the Lua logo), the name in bold, then
// "Author: %1", "Version: %1" and "Supported transmitters:" with the model names.
class AppsListDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

    // The text lines below the name, as drawn.
    static QStringList detailLines(const QModelIndex &index);
};
