#include "widgets/devices/LxBusValueDelegate.h"

#include "widgets/devices/LxBusTableModel.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QSpinBox>

#include <climits>
#include <cmath>

QWidget *LxBusValueDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                                          const QModelIndex &index) const
{
    if (index.column() != LxBusTableModel::ValueColumn)
        return QStyledItemDelegate::createEditor(parent, option, index);
    const QVariantList choices = index.data(LxBusTableModel::ChoicesRole).toList();
    const qint64 min = index.data(LxBusTableModel::MinimumRole).toLongLong();
    const qint64 max = index.data(LxBusTableModel::MaximumRole).toLongLong();
    const int decimals = index.data(LxBusTableModel::DecimalsRole).toInt();
    if (!choices.isEmpty()) {
        auto *box = new QComboBox(parent);
        for (const QVariant &c : choices) {
            const QVariantList pair = c.toList();
            // Choices outside the limits would only be refused when written.
            if (pair.value(0).toLongLong() >= min && pair.value(0).toLongLong() <= max)
                box->addItem(pair.value(1).toString(), pair.value(0));
        }
        return box;
    }
    // A QSpinBox holds only int: wider ranges and decimals take the double box, which is exact up to 2^53.
    if (decimals == 0 && min >= INT_MIN && max <= INT_MAX) {
        auto *box = new QSpinBox(parent);
        box->setRange(int(min), int(max));
        return box;
    }
    auto *box = new QDoubleSpinBox(parent);
    const double scale = std::pow(10.0, decimals);
    box->setDecimals(decimals);
    box->setRange(double(min) / scale, double(max) / scale);
    box->setSingleStep(1.0 / scale);
    return box;
}

void LxBusValueDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    const qint64 raw = index.data(LxBusTableModel::RawRole).toLongLong();
    if (auto *box = qobject_cast<QComboBox *>(editor)) {
        box->setCurrentIndex(box->findData(QVariant(raw)));
    } else if (auto *box = qobject_cast<QSpinBox *>(editor)) {
        box->setValue(int(raw));
    } else if (auto *box = qobject_cast<QDoubleSpinBox *>(editor)) {
        box->setValue(index.data(Qt::EditRole).toDouble());
    } else {
        QStyledItemDelegate::setEditorData(editor, index);
    }
}

void LxBusValueDelegate::setModelData(QWidget *editor, QAbstractItemModel *model,
                                      const QModelIndex &index) const
{
    if (auto *box = qobject_cast<QComboBox *>(editor)) {
        if (box->currentIndex() >= 0)
            model->setData(index, box->currentData(), LxBusTableModel::RawRole);
    } else if (auto *box = qobject_cast<QSpinBox *>(editor)) {
        model->setData(index, qint64(box->value()), LxBusTableModel::RawRole);
    } else if (auto *box = qobject_cast<QDoubleSpinBox *>(editor)) {
        model->setData(index, box->value(), Qt::EditRole);
    } else {
        QStyledItemDelegate::setModelData(editor, model, index);
    }
}
